#include "Input.hpp"

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Failure.hpp"
#include "Output.hpp"

namespace tavlo::app {

namespace {

/// Far more than a camera writes, in bytes.
constexpr std::size_t maximumSelfieSize = std::size_t{64} << 20;
/// The certificates of a whole system take less than 1 MB.
constexpr std::size_t maximumTrustSize = std::size_t{16} << 20;

bool isFolder(const std::string& path) {
  std::error_code unreadable;  // is told when the path is read
  return std::filesystem::is_directory(path, unreadable);
}

/// Gives what `read` gives, or ends with its reason and the path.
template <class Read>
auto reading(const std::string& path, Read read) {
  try {
    return read();
  } catch (const std::filesystem::filesystem_error& error) {
    throw Failure(ExitCode::input, error.path1().string() + ": " + error.code().message());
  } catch (const std::exception& error) {
    const std::string reason = error.what();
    const bool isNamed = reason.find(path) != std::string::npos;
    throw Failure(ExitCode::input, isNamed ? reason : path + ": " + reason);
  }
}

}  // namespace

reader::DocumentReading readDocument(const std::vector<std::string>& paths) {
  if (paths.size() == 1 && isFolder(paths.front())) {
    return reading(paths.front(), [&] { return reader::readDocument(std::filesystem::path(paths.front())); });
  }
  std::vector<reader::NamedFile> files;
  for (const std::string& path : paths) {
    if (isFolder(path)) {
      throw Failure(ExitCode::wrongUse, path + ": give one folder, or files that together are one document");
    }
    files.push_back(
        {path, reading(path, [&] { return foundation::contentsOf(path, reader::maximumElementaryFileSize); })});
  }
  return reading("The files", [&] { return reader::readDocument(std::move(files)); });
}

reader::NFCPassportModel loadDocument(const std::string& folder) {
  auto document = reading(folder, [&] { return reader::readDocument(std::filesystem::path(folder)); });
  for (const auto& finding : document.findings) {
    if (finding.kind != reader::FileFinding::Kind::malformed) continue;
    const std::string problem = folder + ": " + finding.name + " is malformed: " + finding.text;
    if (finding.group == reader::DataGroupId::DG1) {
      throw Failure(ExitCode::input, problem + ". Without the document number that it holds nothing can be sent");
    }
    tell("tavlo: " + problem + ". It is left out");
  }
  return std::move(document.model);
}

uikit::UIImage loadSelfie(const std::string& file) {
  return reading(file, [&] { return uikit::UIImage::decode(foundation::contentsOf(file, maximumSelfieSize)); });
}

reader::TrustAnchors loadAnchors(const std::string& folder) {
  return reading(folder, [&] { return reader::trustAnchorsIn(folder); });
}

foundation::Data loadFile(const std::string& file) {
  return reading(file, [&] { return foundation::contentsOf(file); });
}

void trustOnly(const std::string& pemFile) {
  const auto bytes = reading(pemFile, [&] { return foundation::contentsOf(pemFile, maximumTrustSize); });
  if (foundation::textOf(bytes).find("-----BEGIN CERTIFICATE-----") == std::string_view::npos) {
    throw Failure(ExitCode::input, pemFile +
                                       ": no certificate in PEM form. A DER file becomes one with: openssl x509 "
                                       "-inform der -in FILE -out CA.pem");
  }
  ::setenv("SSL_CERT_FILE", pemFile.c_str(), 1);
  ::unsetenv("SSL_CERT_DIR");  // else the certificates there would count, too
}

}  // namespace tavlo::app
