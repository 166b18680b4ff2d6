#include <specimen/Identity.internal.hpp>

#include <Foundation/Hex.hpp>
#include <specimen/DER.hpp>
#include <specimen/Zone.hpp>

#include <openssl/bio.h>
#include <openssl/conf.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/params.h>
#include <openssl/rand.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace tavlo::specimen {

using foundation::Data;

namespace {

constexpr std::array rsaKinds{std::pair{"RSA-2048", 2048U}, std::pair{"RSA-3072", 3072U}, std::pair{"RSA-4096", 4096U}};
constexpr std::array<std::string_view, 7> curves{"P-224",           "P-256",           "P-384",          "P-521",
                                                 "brainpoolP256r1", "brainpoolP384r1", "brainpoolP512r1"};

/// The lines that both certificates have; the state's code is in the alternative names, as the standard asks for.
constexpr std::string_view commonExtensions =
    "[extensions]\n"
    "subjectKeyIdentifier = hash\n"
    "crlDistributionPoints = URI:http://utopia.invalid/csca.crl\n"
    "subjectAltName = email:csca@utopia.invalid, dirName:state\n"
    "issuerAltName = email:csca@utopia.invalid, dirName:state\n";
constexpr std::string_view stateSection = "[state]\nL = UTO\n";

/// The line for an extension that says that the private key may be used as long as the certificate is valid.
std::string keyUsagePeriod(const CertificateContent& content) {
  const auto timeOf = [](std::chrono::year_month_day day) { return digitsOf(day) + "000000Z"; };
  const Data period = element(0x30, {element(0x80, timeOf(content.begin)), element(0x81, timeOf(content.end))});
  return "privateKeyUsagePeriod = DER:" + foundation::toHexString(period) + "\n";
}

void addExtensions(X509* certificate, X509* issuer, const CertificateContent& content) {
  const std::string text =
      std::string(commonExtensions) + keyUsagePeriod(content) + content.extensions + std::string(stateSection);
  const Owned<BIO, BIO_free> stream(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  const Owned<CONF, NCONF_free> configuration(NCONF_new(nullptr));
  require(stream && configuration && NCONF_load_bio(configuration.get(), stream.get(), nullptr) == 1);
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509V3_set_nconf(&context, configuration.get());
  require(X509V3_EXT_add_nconf(configuration.get(), &context, "extensions", certificate) == 1);
}

void setSerialNumber(X509* certificate) {
  std::array<unsigned char, 16> serial{};
  require(RAND_bytes(serial.data(), static_cast<int>(serial.size())) == 1);
  serial[0] = static_cast<unsigned char>((serial[0] & 0x7FU) | 0x40U);  // positive, and of one length
  const Owned<BIGNUM, BN_free> number(BN_bin2bn(serial.data(), static_cast<int>(serial.size()), nullptr));
  require(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr);
}

void setSubject(X509* certificate, const std::string& name) {
  X509_NAME* subject = X509_get_subject_name(certificate);
  for (const auto& [field, text] : {std::pair<const char*, std::string>{"C", "UT"}, {"O", "Utopia"}, {"CN", name}}) {
    require(X509_NAME_add_entry_by_txt(subject, field, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1, 0) == 1);
  }
}

}  // namespace

void require(bool success) {
  if (success) return;
  ERR_clear_error();
  throw std::runtime_error("a key, certificate or signature could not be made");
}

Data written(const std::function<bool(BIO*)>& write) {
  const Owned<BIO, BIO_free> stream(BIO_new(BIO_s_mem()));
  require(stream && write(stream.get()));
  const unsigned char* bytes = nullptr;
  const long size = BIO_get_mem_data(stream.get(), &bytes);
  return {bytes, bytes + size};
}

Owned<EVP_PKEY, EVP_PKEY_free> newKey(const std::string& kind, bool explicitParameters) {
  const auto* rsa = std::ranges::find(rsaKinds, kind, &decltype(rsaKinds)::value_type::first);
  if (rsa != rsaKinds.end()) {
    Owned<EVP_PKEY, EVP_PKEY_free> key(EVP_RSA_gen(rsa->second));
    require(key != nullptr);
    return key;
  }
  if (std::ranges::find(curves, kind) == curves.end()) throw std::invalid_argument("no such kind of key: " + kind);
  const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
  std::string curve = kind;
  std::string encoding = explicitParameters ? OSSL_PKEY_EC_ENCODING_EXPLICIT : OSSL_PKEY_EC_ENCODING_GROUP;
  const std::array parameters{
      OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, curve.data(), 0),
      OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_EC_ENCODING, encoding.data(), 0),
      OSSL_PARAM_construct_end(),
  };
  EVP_PKEY* key = nullptr;
  require(context && EVP_PKEY_keygen_init(context.get()) == 1 &&
          EVP_PKEY_CTX_set_params(context.get(), parameters.data()) == 1 &&
          EVP_PKEY_generate(context.get(), &key) == 1);
  return Owned<EVP_PKEY, EVP_PKEY_free>(key);
}

Data derivedPublicKey(std::string_view name) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> hash{};
  const Owned<EC_GROUP, EC_GROUP_free> group(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
  require(group && EVP_Digest(name.data(), name.size(), hash.data(), nullptr, EVP_sha256(), nullptr) == 1);
  const Owned<BIGNUM, BN_free> factor(BN_bin2bn(hash.data(), static_cast<int>(hash.size()), nullptr));
  const Owned<EC_POINT, EC_POINT_free> point(EC_POINT_new(group.get()));
  std::array<unsigned char, 1 + 1 + 2 * 32> bits{};  // no unused bits, then an uncompressed point
  require(factor && point && EC_POINT_mul(group.get(), point.get(), factor.get(), nullptr, nullptr, nullptr) == 1 &&
          EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED, &bits[1], bits.size() - 1,
                             nullptr) == bits.size() - 1);
  const Data algorithm =
      element(0x30, {objectIdentifier("1.2.840.10045.2.1"), objectIdentifier("1.2.840.10045.3.1.7")});
  return element(0x30, {algorithm, element(0x03, bits)});
}

std::time_t midnight(std::chrono::year_month_day day) {
  return std::chrono::system_clock::to_time_t(std::chrono::sys_days(day));
}

Identity certified(Owned<EVP_PKEY, EVP_PKEY_free> key, const CertificateContent& content, const Identity* issuer) {
  Identity made{std::move(key), Owned<X509, X509_free>(X509_new())};
  X509* const certificate = made.certificate.get();
  require(certificate != nullptr && X509_set_version(certificate, X509_VERSION_3) == 1);
  setSerialNumber(certificate);
  setSubject(certificate, content.name);
  const Identity& signer = issuer == nullptr ? made : *issuer;
  require(X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get())) == 1 &&
          ASN1_TIME_set(X509_getm_notBefore(certificate), midnight(content.begin)) != nullptr &&
          ASN1_TIME_set(X509_getm_notAfter(certificate), midnight(content.end)) != nullptr &&
          X509_set_pubkey(certificate, made.key.get()) == 1);
  addExtensions(certificate, signer.certificate.get(), content);
  require(X509_sign(certificate, signer.key.get(), EVP_sha384()) > 0);
  return made;
}

}  // namespace tavlo::specimen
