#include "Authority.hpp"

#include <Foundation/Data.hpp>

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <ctime>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace tavlo::sandbox {

namespace fs = std::filesystem;
using foundation::Data;
using foundation::IfExists;

namespace {

struct OpenSSLDelete {
  void operator()(BIO* stream) const { BIO_free(stream); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};
template <class T>
using Owned = std::unique_ptr<T, OpenSSLDelete>;

/// Every step of making a certificate succeeds or ends the making.
void require(bool success) {
  if (success) return;
  ERR_clear_error();
  throw std::runtime_error("the sandbox's certificates could not be made");
}

struct Identity {
  Owned<EVP_PKEY> key;
  Owned<X509> certificate;
};

struct Extension {
  int kind;
  const char* value;
};

// In days.
constexpr int authorityLife = 3650;
constexpr int serverLife = 365;
constexpr int renewalBeforeEnd = 30;

constexpr std::array authorityExtensions{
    Extension{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
    Extension{NID_key_usage, "critical,keyCertSign"},
    Extension{NID_subject_key_identifier, "hash"},
    Extension{NID_name_constraints,
              "critical,permitted;DNS:localhost,permitted;IP:127.0.0.1/255.255.255.255,"
              "permitted;IP:::1/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
};
constexpr std::array serverExtensions{
    Extension{NID_basic_constraints, "critical,CA:FALSE"},
    Extension{NID_key_usage, "critical,digitalSignature"},
    Extension{NID_ext_key_usage, "serverAuth"},
    Extension{NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1"},
    Extension{NID_subject_key_identifier, "hash"},
    Extension{NID_authority_key_identifier, "keyid:always"},
};

/// A new key with its certificate, signed by `issuer`, or by itself when there is none.
Identity makeIdentity(const std::string& name, std::time_t now, int days, std::span<const Extension> extensions,
                      const Identity* issuer = nullptr) {
  Identity made{Owned<EVP_PKEY>(EVP_EC_gen("P-256")), Owned<X509>(X509_new())};
  require(made.key && made.certificate);
  const Identity& signer = issuer == nullptr ? made : *issuer;
  X509* certificate = made.certificate.get();

  std::array<unsigned char, 16> serial{};
  require(RAND_bytes(serial.data(), static_cast<int>(serial.size())) == 1);
  serial[0] &= 0x7FU;  // a serial number is positive
  const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(
      BN_bin2bn(serial.data(), static_cast<int>(serial.size()), nullptr), BN_free);
  require(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr);

  X509_NAME* subject = X509_get_subject_name(certificate);
  require(X509_set_version(certificate, X509_VERSION_3) == 1 &&
          X509_NAME_add_entry_by_NID(subject, NID_commonName, MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0) == 1 &&
          X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get())) == 1 &&
          // A day back, for clocks that are a little behind.
          X509_time_adj_ex(X509_getm_notBefore(certificate), -1, 0, &now) != nullptr &&
          X509_time_adj_ex(X509_getm_notAfter(certificate), days, 0, &now) != nullptr &&
          X509_set_pubkey(certificate, made.key.get()) == 1);

  X509V3_CTX context;
  X509V3_set_ctx(&context, signer.certificate.get(), certificate, nullptr, nullptr, 0);
  for (const auto& [kind, value] : extensions) {
    const Owned<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
  }
  require(X509_sign(certificate, signer.key.get(), EVP_sha256()) > 0);
  return made;
}

/// What `write` writes, for as long as `use` runs; the memory is overwritten then, as it may hold a key.
template <class Write, class Use>
void withPEM(Write write, Use use) {
  const Owned<BIO> stream(BIO_new(BIO_s_secmem()));
  require(stream && write(stream.get()));
  unsigned char* text = nullptr;
  const long size = BIO_get_mem_data(stream.get(), &text);
  require(size > 0);
  use(foundation::DataView(text, static_cast<std::size_t>(size)));
}

bool store(const Identity& identity, const fs::path& file, IfExists ifExists) {
  bool stored = false;
  withPEM(
      [&](BIO* stream) {
        return PEM_write_bio_PKCS8PrivateKey(stream, identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
               PEM_write_bio_X509(stream, identity.certificate.get()) == 1;
      },
      [&](foundation::DataView pem) { stored = foundation::writePrivately(file, pem, ifExists); });
  return stored;
}

/// The identity in `file`; absent when there is no such file or no matching key and certificate in it.
std::optional<Identity> load(const fs::path& file) {
  Data pem = foundation::contentsOf(file, 65'536);
  const Owned<BIO> stream(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  require(stream != nullptr);
  // An empty password: a file that asks for one is none of ours, and nobody is asked at the terminal.
  Identity identity;
  identity.key.reset(PEM_read_bio_PrivateKey(stream.get(), nullptr, nullptr, const_cast<char*>("")));
  identity.certificate.reset(PEM_read_bio_X509(stream.get(), nullptr, nullptr, const_cast<char*>("")));
  OPENSSL_cleanse(pem.data(), pem.size());
  const bool sound = identity.key && identity.certificate &&
                     X509_check_private_key(identity.certificate.get(), identity.key.get()) == 1;
  ERR_clear_error();
  if (!sound) return std::nullopt;
  return identity;
}

bool isCurrent(const X509* certificate, std::time_t now) {
  std::time_t later = now + std::time_t{renewalBeforeEnd} * 24 * 60 * 60;
  return X509_cmp_time(X509_get0_notBefore(certificate), &now) < 0 &&
         X509_cmp_time(X509_get0_notAfter(certificate), &later) > 0;
}

Identity authorityIn(const fs::path& folder, std::time_t now) {
  const fs::path file = folder / "authority.pem";
  if (!fs::exists(file)) {
    // Of two sandboxes that start at once, both go on with the authority that was stored first.
    store(makeIdentity("tavlo-sandbox authority, for development only", now, authorityLife, authorityExtensions), file,
          IfExists::fail);
  }
  std::optional<Identity> authority = load(file);
  if (!authority || !isCurrent(authority->certificate.get(), now)) {
    throw std::runtime_error("The certificate authority in " + file.string() +
                             " is damaged or expired. Remove the file: a new authority is made at the next start, and "
                             "apps must then trust the new ca.pem.");
  }
  return std::move(*authority);
}

bool isServing(const fs::path& file, const Identity& authority, std::time_t now) {
  if (!fs::exists(file)) return false;
  const std::optional<Identity> server = load(file);
  const bool serves = server && isCurrent(server->certificate.get(), now) &&
                      X509_verify(server->certificate.get(), authority.key.get()) == 1;
  ERR_clear_error();
  return serves;
}

}  // namespace

Authority Authority::prepare(const fs::path& folder, std::time_t now) {
  foundation::createPrivateFolder(folder);
  const Authority files{folder / "ca.pem", folder / "server.pem"};
  const Identity authority = authorityIn(folder, now);
  withPEM([&](BIO* stream) { return PEM_write_bio_X509(stream, authority.certificate.get()) == 1; },
          [&](foundation::DataView pem) { foundation::writePrivately(files.certificate, pem); });
  if (!isServing(files.serverIdentity, authority, now)) {
    store(makeIdentity("localhost", now, serverLife, serverExtensions, &authority), files.serverIdentity,
          IfExists::replace);
  }
  return files;
}

}  // namespace tavlo::sandbox
