// Keeps a passport and a certificate that rests on it, and shows them when the app starts again.

#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <TavloCA/CredentialDocument.hpp>
#include <TavloCommon/FileImageStore.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace {

using namespace tavlo;

/// Writes a document down; a crash leaves the former file or the whole new one.
void keep(const CredentialDocument& document, const std::filesystem::path& file) {
  foundation::writePrivately(file, foundation::JSONEncoder().encode(document));
}

/// A stored document becomes what it is read as: a Passport here. Its children always become base records.
std::shared_ptr<Passport> load(const std::filesystem::path& file) {
  return foundation::JSONDecoder().decode<std::shared_ptr<Passport>>(foundation::contentsOf(file));
}

void show(const CredentialDocument& document) {
  const auto kind = document.documentType();  // absent for codes of two letters, which are common
  std::cout << (kind ? title(*kind) : "Document") << " " << document.documentNumber() << ", " << document.firstName()
            << " " << document.lastName() << "\n";
  if (const auto portrait = document.image()) {
    std::cout << "  portrait of " << portrait->width() << " x " << portrait->height() << " pixels\n";
  }
  for (const auto& child : document.children()) show(*child);
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("use: example-documents FOLDER WHERE-TO-KEEP");
  const std::filesystem::path kept = argv[2];
  foundation::createPrivateFolder(kept);
  // Pictures beside the records, so that one folder holds all. Put in once, when the app starts.
  common::ImageStore::install(std::make_shared<common::FileImageStore>(kept / "images"));

  if (!exists(kept / "passport.json")) {
    const auto document = reader::readDocument(std::filesystem::path(argv[1]));
    const auto passport = make<Passport>(document.model);  // its pictures are files from here on
    // The certificate as it will be read back: its logo and its time are not written down.
    const auto certificate = make<CertificationDocument>(*passport);
    passport->modifyChildren([&](auto& children) { children.push_back(certificate); });
    keep(*passport, kept / "passport.json");
  }
  show(*load(kept / "passport.json"));
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
