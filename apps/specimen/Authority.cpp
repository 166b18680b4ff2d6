#include <specimen/Authority.hpp>

#include <specimen/Identity.internal.hpp>

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <stdexcept>
#include <string>
#include <utility>

namespace tavlo::specimen {

namespace fs = std::filesystem;
using foundation::Data;
using foundation::IfExists;

namespace {

bool writeCertificate(BIO* stream, const Identity& identity) {
  return PEM_write_bio_X509(stream, identity.certificate.get()) == 1;
}

void store(const Identity& identity, const fs::path& file) {
  Data pem = written([&](BIO* stream) {
    return PEM_write_bio_PKCS8PrivateKey(stream, identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
           writeCertificate(stream, identity);
  });
  foundation::writePrivately(file, pem, IfExists::fail);  // of several at once, all go on with the first
  OPENSSL_cleanse(pem.data(), pem.size());
}

/// The key and certificate in `file`; either is missing when they do not belong together.
Identity load(const fs::path& file) {
  constexpr std::size_t maximumSize = 65'536;
  Data pem = foundation::contentsOf(file, maximumSize);
  const Owned<BIO, BIO_free> stream(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  require(stream != nullptr);
  std::array<char, 1> noPassword{};  // without one, an encrypted file would have the user asked for it
  Identity identity{
      Owned<EVP_PKEY, EVP_PKEY_free>(PEM_read_bio_PrivateKey(stream.get(), nullptr, nullptr, noPassword.data())),
      Owned<X509, X509_free>(PEM_read_bio_X509(stream.get(), nullptr, nullptr, noPassword.data()))};
  OPENSSL_cleanse(pem.data(), pem.size());
  const bool belongTogether = identity.key && identity.certificate &&
                              X509_check_private_key(identity.certificate.get(), identity.key.get()) == 1;
  ERR_clear_error();
  if (!belongTogether) throw std::runtime_error(file.string() + " is no key with its certificate");
  return identity;
}

}  // namespace

Authority Authority::make() {
  Identity identity = certified(newKey("P-384"), {.name = "CSCA Utopia Specimens",
                                                  .begin = firstYear / 1 / 1,
                                                  .end = (lastYear + std::chrono::years(1)) / 1 / 1,
                                                  .extensions = "basicConstraints = critical, CA:TRUE, pathlen:0\n"
                                                                "keyUsage = critical, keyCertSign, cRLSign\n"});
  return Authority(std::make_shared<const Identity>(std::move(identity)));
}

Authority Authority::keptIn(const fs::path& folder) {
  const fs::path keyFile = folder / "csca-key.pem";
  const fs::path certificateFile = folder / "csca.pem";
  if (!fs::exists(keyFile)) {
    if (fs::exists(certificateFile)) {
      throw std::runtime_error(certificateFile.string() + " belongs to an authority whose key is not there; " +
                               "name another folder");
    }
    foundation::createPrivateFolder(folder);
    foundation::sweepTemporaryFiles(folder);
    store(*make().identity_, keyFile);
  }
  const Authority authority(std::make_shared<const Identity>(load(keyFile)));
  const Data certificate = authority.certificate();
  if (!foundation::writePrivately(certificateFile, certificate, IfExists::fail) &&
      foundation::contentsOf(certificateFile) != certificate) {
    throw std::runtime_error(certificateFile.string() + " is not the certificate that is in csca-key.pem");
  }
  return authority;
}

Data Authority::certificate() const {
  return written([this](BIO* stream) { return writeCertificate(stream, *identity_); });
}

}  // namespace tavlo::specimen
