#include <TavloReader/DocumentSource.hpp>

#include <Foundation/UTF8.hpp>
#include <TavloReader/TLV.internal.hpp>
#include <UIKit/UIImage.hpp>

#include <algorithm>
#include <iterator>
#include <memory>
#include <regex>
#include <string_view>
#include <system_error>
#include <utility>

namespace tavlo::reader {

using foundation::Data;
using foundation::DataView;

namespace {

/// The group that a file's name means, as in "EF_DG1.bin", "Datagroup1.bin", "EF.SOD" or, by its identifier, "0101".
std::optional<DataGroupId> groupMeantBy(const std::string& path) {
  // A ".com" at the end is an extension, unless it is EF.COM.
  static const std::regex pattern(
      "(?:(?:^|EF[.]|[^A-Z0-9.])(?:EF)?(COM)|"
      "(?:^|[^A-Z0-9])(?:EF)?(?:(SOD)|(?:DG|DATAGROUP)([0-9]{1,2})|01([0-9A-F]{2})))(?![A-Z0-9])",
      std::regex::icase);
  const std::string fileName = path.substr(path.rfind('/') + 1);
  std::smatch match;
  if (!std::regex_search(fileName, match, pattern)) return std::nullopt;
  constexpr int identifierOfCOM = 0x1E;
  constexpr int identifierOfSOD = 0x1D;
  const int identifier = match[4].matched ? std::stoi(match[4], nullptr, 16) : 0;
  if (match[1].matched || identifier == identifierOfCOM) return DataGroupId::COM;
  if (match[2].matched || identifier == identifierOfSOD) return DataGroupId::SOD;
  const int number = match[3].matched ? std::stoi(match[3]) : identifier;
  if (number < 1 || number > 16) return std::nullopt;
  return static_cast<DataGroupId>(number);
}

bool isText(DataView bytes) {
  const auto isControl = [](std::uint8_t byte) { return byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r'; };
  return !bytes.empty() && foundation::isValidUTF8(foundation::textOf(bytes)) && std::ranges::none_of(bytes, isControl);
}

/// What a file is that is no data group; empty when it is nothing known.
std::string otherFile(DataView bytes) {
  if (isText(bytes)) return foundation::textOf(bytes).starts_with("-----BEGIN ") ? "PEM text" : "text";
  if (const auto format = uikit::imageFormat(bytes)) return "a picture, " + std::string(name(*format));
  const auto tag = takeTag(bytes);
  if (!tag || !takeLength(bytes)) return {};
  switch (*tag) {
    case 0x30:
      return "a certificate, EF.CardSecurity or other signed data";
    case 0x31:
      return "EF.CardAccess";
    case 0x42:
      return "EF.CVCA";
    case 0x43:
    case 0x46:
    case 0x47:
      return "EF.ATR/INFO";
    case 0x61:
      return takeTag(bytes) == 0x4F ? "EF.DIR" : "";
    default:
      return {};
  }
}

/// Puts the reading of a document together, file by file.
class DocumentBuilder {
 public:
  void add(const std::string& fileName, Data bytes) {
    if (bytes.size() > maximumElementaryFileSize) return leaveUnread(fileName, "larger than any data group");
    FileFinding finding;
    finding.name = foundation::makeValidUTF8(fileName);
    finding.group = DataGroup::recognise(bytes);
    const auto meant = groupMeantBy(fileName);
    if (!finding.group) {
      finding.text = otherFile(bytes);
      if (finding.text.empty()) finding.group = meant;
    }
    if (meant && finding.group != meant) finding.oddities.push_back("the name says " + std::string(name(*meant)));

    if (finding.group) {
      parse(finding, std::move(bytes));
    } else if (finding.text.empty()) {
      finding.text = "no data group";
    }
    reading_.findings.push_back(std::move(finding));
  }

  /// Takes note of a file whose bytes are not to be had.
  void leaveUnread(const std::string& fileName, std::string why) {
    FileFinding finding;
    finding.name = foundation::makeValidUTF8(fileName);
    finding.group = groupMeantBy(fileName);
    if (finding.group) finding.kind = FileFinding::Kind::malformed;
    finding.text = std::move(why);
    reading_.findings.push_back(std::move(finding));
  }

  DocumentReading finish() { return std::move(reading_); }

 private:
  void parse(FileFinding& finding, Data bytes) {
    std::shared_ptr<const DataGroup> group;
    try {
      group = DataGroup::parse(*finding.group, std::move(bytes));
    } catch (const ReaderError& error) {
      finding.kind = FileFinding::Kind::malformed;
      finding.text = error.what();
      return;
    }
    const auto isTwin = [&](const FileFinding& other) {
      return other.kind == FileFinding::Kind::group && other.group == finding.group;
    };
    const auto twin = std::ranges::find_if(reading_.findings, isTwin);
    if (twin != reading_.findings.end()) {
      throw ReaderError(std::string(name(group->id())) + " is there twice: as \"" + twin->name + "\" and as \"" +
                        finding.name + "\"");
    }
    finding.kind = FileFinding::Kind::group;
    finding.text = std::string(name(group->id())) + ", " + byteCount(group->data().size());
    std::ranges::copy(group->oddities(), std::back_inserter(finding.oddities));
    reading_.model.add(std::move(group));
  }

  DocumentReading reading_;
};

void checkCount(std::size_t fileCount) {
  if (fileCount > maximumFileCount) {
    throw ReaderError("More than " + std::to_string(maximumFileCount) + " files are no document");
  }
}

}  // namespace

DocumentReading readDocument(std::vector<NamedFile> files) {
  checkCount(files.size());
  DocumentBuilder builder;
  for (NamedFile& file : files) builder.add(file.name, std::move(file.bytes));
  return builder.finish();
}

DocumentReading readDocument(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    paths.push_back(entry.path());
    checkCount(paths.size());
  }
  std::ranges::sort(paths);

  DocumentBuilder builder;
  for (const std::filesystem::path& path : paths) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
      builder.leaveUnread(path.filename(), "no regular file");
      continue;
    }
    try {
      builder.add(path.filename(), foundation::contentsOf(path, maximumElementaryFileSize));
    } catch (const std::system_error& systemError) {
      builder.leaveUnread(path.filename(), systemError.code().message());
    }
  }
  DocumentReading reading = builder.finish();
  const auto isLeftAside = [](const FileFinding& finding) { return finding.kind == FileFinding::Kind::leftAside; };
  if (std::ranges::all_of(reading.findings, isLeftAside)) {
    throw ReaderError("There is no data group in the folder " + foundation::makeValidUTF8(folder.string()));
  }
  return reading;
}

}  // namespace tavlo::reader
