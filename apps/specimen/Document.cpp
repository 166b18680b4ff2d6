#include <specimen/Document.hpp>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tavlo::specimen {

namespace fs = std::filesystem;
using foundation::Data;
using reader::DataGroupId;

namespace {

/// The name as DG11 has it: two fillers between the last and the first names, one instead of a blank.
std::string fullName(const Document& document) {
  if (!document.fullName.empty()) return document.fullName;
  std::string name = document.printed.lastName;
  if (!document.printed.firstName.empty()) name += "<<" + document.printed.firstName;
  std::ranges::replace(name, ' ', '<');
  return name;
}

Data dataGroup11(const Document& document) {
  std::vector<Item> items{{0x5F0E, fullName(document)}, {0x5F2B, document.printed.dateOfBirth}};
  if (!document.placeOfBirth.empty()) items.push_back({0x5F11, document.placeOfBirth});
  return textGroup(DataGroupId::DG11, items);
}

Data dataGroup12(const Document& document) {
  return textGroup(DataGroupId::DG12,
                   {{0x5F19, "UTOPIA SPECIMEN OFFICE"}, {0x5F26, digitsOf(document.signature.date)}});
}

Files makeGroups(const Document& document) {
  Files files{{DataGroupId::DG1, dataGroup1(zone(document.printed))},
              {DataGroupId::DG2, dataGroup2(document.portraits, document.faceStandard)}};
  if (document.handSignature) files[DataGroupId::DG7] = dataGroup7(*document.handSignature);
  for (const DataGroupId id : document.groups) {
    switch (id) {
      case DataGroupId::DG3:
        files[id] = dataGroup3();
        break;
      case DataGroupId::DG11:
        files[id] = dataGroup11(document);
        break;
      case DataGroupId::DG12:
        files[id] = dataGroup12(document);
        break;
      case DataGroupId::DG14:
        files[id] = dataGroup14("chip authentication of " + document.printed.documentNumber);
        break;
      case DataGroupId::DG15:
        files[id] = dataGroup15("active authentication of " + document.printed.documentNumber);
        break;
      default:
        throw std::invalid_argument(std::string(name(id)) + " cannot be made");
    }
  }
  return files;
}

}  // namespace

Files make(const Document& document, const Authority& authority) {
  using Kind = Tampering::Kind;
  const std::chrono::year_month_day dateOfExpiry = document.printed.dateOfExpiry;
  Signature signature = document.signature;
  if (document.portraits.empty()) throw std::invalid_argument("there is no portrait");
  if (!signature.date.ok()) throw std::invalid_argument("the date of issue is no date");
  if (dateOfExpiry <= signature.date) throw std::invalid_argument("the date of expiry is not after that of issue");
  if (signature.date.year() < firstYear || dateOfExpiry.year() > lastYear) {
    throw std::invalid_argument("documents are issued from 2000 on and expire in 2049 at the latest");
  }

  Files files = makeGroups(document);
  std::vector<DataGroupId> groups;
  Files signedFiles;
  for (const auto& [id, file] : files) {
    groups.push_back(id);
    if (!contains(document.tampering, Kind::notSigned, id)) signedFiles[id] = file;
  }
  // Signers are valid as long as their documents.
  std::chrono::year_month_day signerEnd = std::chrono::sys_days(dateOfExpiry) + std::chrono::days(1);
  if (contains(document.tampering, Kind::expiredSigner)) {
    signerEnd = std::chrono::sys_days(signature.date) - std::chrono::days(1);
  }
  if (contains(document.tampering, Kind::indefinite)) signature.indefiniteLengths = true;
  const bool isOfAnother = contains(document.tampering, Kind::wrongAuthority);

  files[DataGroupId::COM] = commonData(groups);
  files[DataGroupId::SOD] =
      securityObject(signedFiles, signature, isOfAnother ? Authority::make() : authority, signerEnd);
  tamper(files, document.tampering);
  return files;
}

void write(const Files& files, const fs::path& folder) {
  if (!fs::is_directory(folder)) foundation::createPrivateFolder(folder);
  if (!fs::is_empty(folder)) {
    throw std::system_error(std::make_error_code(std::errc::directory_not_empty), folder.string());
  }
  std::vector<fs::path> written;
  try {
    for (const auto& [id, file] : files) {
      const std::string group(name(id));
      written.push_back(folder / ((group.starts_with("DG") ? group : "EF_" + group) + ".bin"));
      if (foundation::writePrivately(written.back(), file, foundation::IfExists::fail)) continue;
      written.pop_back();
      throw std::system_error(std::make_error_code(std::errc::directory_not_empty), folder.string());
    }
  } catch (...) {  // what is there would pass for a document without the other groups
    std::error_code ignored;
    for (const fs::path& file : written) fs::remove(file, ignored);
    throw;
  }
}

}  // namespace tavlo::specimen
