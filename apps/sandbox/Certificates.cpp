#include "Certificates.hpp"

#include <Foundation/Owned.hpp>

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace tavlo::sandbox {

namespace fs = std::filesystem;
using foundation::Data;
using foundation::DataView;
using foundation::IfExists;
using foundation::Owned;

namespace {

constexpr std::time_t renewalBeforeEnd = 30 * oneDay;
constexpr std::size_t uncompressedPointSize = 65;

/// Every step of making a certificate succeeds or ends the making.
void require(bool success) {
  if (success) return;
  ERR_clear_error();
  throw std::runtime_error("the sandbox's certificates could not be made");
}

/// The certificate of `key`, signed by `issuer`, or by `key` itself when there is none.
Owned<X509, X509_free> certify(EVP_PKEY* key, const Description& description, const Identity* issuer) {
  Owned<X509, X509_free> made(X509_new());
  X509* const certificate = made.get();
  require(certificate != nullptr);
  X509* const issuing = issuer == nullptr ? certificate : issuer->certificate.get();

  std::array<unsigned char, 16> serial{};
  require(RAND_bytes(serial.data(), static_cast<int>(serial.size())) == 1);
  serial[0] &= 0x7FU;  // a serial number is positive
  const Owned<BIGNUM, BN_free> number(BN_bin2bn(serial.data(), static_cast<int>(serial.size()), nullptr));
  require(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr);

  X509_NAME* subject = X509_get_subject_name(certificate);
  const auto* name = reinterpret_cast<const unsigned char*>(description.subject.c_str());
  require(X509_set_version(certificate, X509_VERSION_3) == 1 &&
          X509_NAME_add_entry_by_NID(subject, NID_commonName, MBSTRING_UTF8, name, -1, -1, 0) == 1 &&
          X509_set_issuer_name(certificate, X509_get_subject_name(issuing)) == 1 &&
          ASN1_TIME_set(X509_getm_notBefore(certificate), description.from) != nullptr &&
          ASN1_TIME_set(X509_getm_notAfter(certificate), description.until) != nullptr &&
          X509_set_pubkey(certificate, key) == 1);

  X509V3_CTX context;
  X509V3_set_ctx(&context, issuing, certificate, nullptr, nullptr, 0);
  for (const auto& [kind, value] : description.extensions) {
    const Owned<X509_EXTENSION, X509_EXTENSION_free> extension(
        X509V3_EXT_conf(nullptr, &context, kind.c_str(), value.c_str()));
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
  }
  require(X509_sign(certificate, issuer == nullptr ? key : issuer->key.get(), EVP_sha256()) > 0);
  return made;
}

/// What `write` writes, for as long as `use` runs; the memory is overwritten then, as it may hold a key.
template <class Write, class Use>
void withPEM(Write write, Use use) {
  const Owned<BIO, BIO_free> stream(BIO_new(BIO_s_secmem()));
  require(stream && write(stream.get()));
  unsigned char* text = nullptr;
  const long size = BIO_get_mem_data(stream.get(), &text);
  require(size > 0);
  use(DataView(text, static_cast<std::size_t>(size)));
}

Owned<EVP_PKEY, EVP_PKEY_free> publicKeyOf(DataView bytes) {
  Owned<EVP_PKEY, EVP_PKEY_free> key;
  const unsigned char* end = bytes.data();
  if (bytes.size() == uncompressedPointSize) {
    // A key with the curve alone, which the point is then read into.
    key.reset(EVP_EC_gen("P-256"));
    require(key && EVP_PKEY_set1_encoded_public_key(key.get(), bytes.data(), bytes.size()) == 1);
  } else {
    key.reset(d2i_PublicKey(EVP_PKEY_RSA, nullptr, &end, static_cast<long>(bytes.size())));
    require(key != nullptr);
  }
  return key;
}

}  // namespace

Identity makeIdentity(const Description& description, const Identity* issuer) {
  Owned<EVP_PKEY, EVP_PKEY_free> key(EVP_EC_gen("P-256"));
  require(key != nullptr);
  auto certificate = certify(key.get(), description, issuer);
  return {std::move(key), std::move(certificate)};
}

std::string makeCertificate(DataView publicKey, const Description& description, const Identity& issuer) {
  const auto certificate = certify(publicKeyOf(publicKey).get(), description, &issuer);
  std::string text;
  withPEM([&](BIO* stream) { return PEM_write_bio_X509(stream, certificate.get()) == 1; },
          [&](DataView pem) { text = foundation::textOf(pem); });
  return text;
}

Identity authorityIn(const fs::path& file, const Description& description, std::time_t now) {
  if (!fs::exists(file)) storeIdentity(makeIdentity(description), file, IfExists::fail);
  auto authority = loadIdentity(file);
  if (!authority || !vouches(*authority, *authority, {}, now)) {
    throw std::runtime_error("The certificate authority in " + file.string() +
                             " is damaged or expired. Remove the file: a new authority is made at the next start, and "
                             "must then be trusted anew.");
  }
  return std::move(*authority);
}

bool storeIdentity(const Identity& identity, const fs::path& file, IfExists ifExists) {
  bool stored = false;
  withPEM(
      [&](BIO* stream) {
        return PEM_write_bio_PKCS8PrivateKey(stream, identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
               PEM_write_bio_X509(stream, identity.certificate.get()) == 1;
      },
      [&](DataView pem) { stored = foundation::writePrivately(file, pem, ifExists); });
  return stored;
}

std::optional<Identity> loadIdentity(const fs::path& file) {
  if (!fs::exists(file)) return std::nullopt;
  Data pem = foundation::contentsOf(file, 65'536);
  const Owned<BIO, BIO_free> stream(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  require(stream != nullptr);
  // An empty password: a file that asks for one is none of ours, and nobody is asked at the terminal.
  Owned<EVP_PKEY, EVP_PKEY_free> key(PEM_read_bio_PrivateKey(stream.get(), nullptr, nullptr, const_cast<char*>("")));
  Owned<X509, X509_free> certificate(PEM_read_bio_X509(stream.get(), nullptr, nullptr, const_cast<char*>("")));
  OPENSSL_cleanse(pem.data(), pem.size());
  const bool sound = key && certificate && X509_check_private_key(certificate.get(), key.get()) == 1;
  ERR_clear_error();
  if (!sound) return std::nullopt;
  return Identity{std::move(key), std::move(certificate)};
}

void storeCertificate(const Identity& identity, const fs::path& file) {
  withPEM([&](BIO* stream) { return PEM_write_bio_X509(stream, identity.certificate.get()) == 1; },
          [&](DataView pem) { foundation::writePrivately(file, pem); });
}

bool vouches(const Identity& authority, const Identity& server, const std::vector<std::string>& names,
             std::time_t now) {
  X509* const certificate = server.certificate.get();
  const Owned<X509_STORE, X509_STORE_free> store(X509_STORE_new());
  const Owned<X509_STORE_CTX, X509_STORE_CTX_free> context(X509_STORE_CTX_new());
  require(store && context && X509_STORE_add_cert(store.get(), authority.certificate.get()) == 1 &&
          X509_STORE_CTX_init(context.get(), store.get(), certificate, nullptr) == 1);
  X509_STORE_CTX_set_time(context.get(), 0, now + renewalBeforeEnd);
  const bool vouched =
      X509_verify_cert(context.get()) == 1 && X509_cmp_time(X509_get0_notBefore(certificate), &now) < 0;
  ERR_clear_error();
  return vouched && std::ranges::all_of(names, [&](const std::string& name) {
           return (isAddress(name) ? X509_check_ip_asc(certificate, name.c_str(), 0)
                                   : X509_check_host(certificate, name.c_str(), 0, 0, nullptr)) == 1;
         });
}

bool isAddress(const std::string& name) {
  ASN1_OCTET_STRING* const address = a2i_IPADDRESS(name.c_str());
  ASN1_OCTET_STRING_free(address);
  ERR_clear_error();
  return address != nullptr;
}

}  // namespace tavlo::sandbox
