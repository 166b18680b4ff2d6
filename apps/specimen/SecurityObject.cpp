#include <specimen/SecurityObject.hpp>

#include <Foundation/Hex.hpp>
#include <specimen/DER.hpp>
#include <specimen/Identity.internal.hpp>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace tavlo::specimen {

using foundation::Data;

namespace {

struct Hash {
  std::string_view name;
  const EVP_MD* (*function)();
  std::string_view identifier;
};

constexpr std::array hashes{
    Hash{"SHA-1", EVP_sha1, "1.3.14.3.2.26"},
    Hash{"SHA-224", EVP_sha224, "2.16.840.1.101.3.4.2.4"},
    Hash{"SHA-256", EVP_sha256, "2.16.840.1.101.3.4.2.1"},
    Hash{"SHA-384", EVP_sha384, "2.16.840.1.101.3.4.2.2"},
    Hash{"SHA-512", EVP_sha512, "2.16.840.1.101.3.4.2.3"},
};

Data hashOf(const Data& file, const EVP_MD* function) {
  Data hash(static_cast<std::size_t>(EVP_MD_get_size(function)));
  require(EVP_Digest(file.data(), file.size(), hash.data(), nullptr, function, nullptr) == 1);
  return hash;
}

/// The LDS security object, which is what gets signed.
Data hashList(const Files& groups, const Hash& hash) {
  constexpr std::uint32_t sequence = 0x30;
  Data list;
  for (const auto& [id, file] : groups) {
    const Data groupNumber = element(0x02, number(static_cast<std::uint64_t>(id)));
    list = joined({list, element(sequence, {groupNumber, element(0x04, hashOf(file, hash.function()))})});
  }
  const Data algorithm = element(sequence, {objectIdentifier(hash.identifier), element(0x05, Data{})});
  return element(sequence, {element(0x02, number(0)), algorithm, element(sequence, list)});
}

Identity newSigner(const Signature& signature, const Authority& authority, std::chrono::year_month_day end) {
  // The document codes that it may sign for, by their first letters, after version 0 (ICAO Doc 9303-12, 7.1.1.6).
  Data initials;
  for (const std::string_view initial : {"A", "C", "I", "P"}) initials = joined({initials, element(0x13, initial)});
  const Data types = element(0x30, {element(0x02, number(0)), element(0x31, initials)});
  return certified(newKey(signature.key, signature.explicitParameters),
                   {.name = "Document Signer Utopia",
                    .begin = std::chrono::sys_days(signature.date) - std::chrono::days(30),
                    .end = end,
                    .extensions = "authorityKeyIdentifier = keyid:always\nkeyUsage = critical, digitalSignature\n"
                                  "2.23.136.1.1.6.2 = DER:" +
                                  foundation::toHexString(types) + "\n"},
                   &authority.identity());
}

void setSigningTime(CMS_SignerInfo* info, std::chrono::year_month_day date) {
  const Owned<ASN1_TIME, ASN1_TIME_free> time(ASN1_TIME_set(nullptr, midnight(date)));
  require(time && CMS_signed_add1_attr_by_NID(info, NID_pkcs9_signingTime, time->type, time.get(), -1) == 1);
}

}  // namespace

Data securityObject(const Files& groups, const Signature& signature, const Authority& authority,
                    std::chrono::year_month_day signerEnd) {
  const auto* const hash = std::ranges::find(hashes, signature.hash, &Hash::name);
  if (hash == hashes.end()) throw std::invalid_argument("no such hash function: " + signature.hash);
  const bool isRSA = signature.key.starts_with("RSA");
  if (signature.probabilistic && !isRSA) throw std::invalid_argument("only RSA keys sign with PSS padding");
  if (signature.probabilistic && signature.indefiniteLengths) {  // OpenSSL writes none of these
    throw std::invalid_argument("PSS padding and indefinite lengths do not go together");
  }
  if (signature.explicitParameters && isRSA) throw std::invalid_argument("only curves have parameters to write out");

  const Data content = hashList(groups, *hash);
  const Identity signer = newSigner(signature, authority, signerEnd);
  const unsigned int flags = CMS_BINARY | CMS_PARTIAL | (signature.indefiniteLengths ? CMS_STREAM : 0U);
  const Owned<CMS_ContentInfo, CMS_ContentInfo_free> message(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
  const Owned<ASN1_OBJECT, ASN1_OBJECT_free> contentType(OBJ_txt2obj("2.23.136.1.1.1", 1));
  require(message && contentType && CMS_set1_eContentType(message.get(), contentType.get()) == 1);

  CMS_SignerInfo* const info =
      CMS_add1_signer(message.get(), signer.certificate.get(), signer.key.get(), hash->function(),
                      CMS_NOSMIMECAP | (signature.probabilistic ? CMS_KEY_PARAM : 0U) |
                          (signature.byKeyIdentifier ? CMS_USE_KEYID : 0U));
  require(info != nullptr);
  if (signature.probabilistic) {
    EVP_PKEY_CTX* const context = CMS_SignerInfo_get0_pkey_ctx(info);
    require(EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PSS_PADDING) == 1 &&
            EVP_PKEY_CTX_set_rsa_pss_saltlen(context, RSA_PSS_SALTLEN_DIGEST) == 1);
  }
  setSigningTime(info, signature.date);

  const Owned<BIO, BIO_free> stream(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
  require(stream != nullptr);
  const Data encoded = written([&](BIO* out) {
    if (signature.indefiniteLengths)
      return i2d_CMS_bio_stream(out, message.get(), stream.get(), static_cast<int>(flags)) == 1;
    return CMS_final(message.get(), stream.get(), nullptr, flags) == 1 && i2d_CMS_bio(out, message.get()) == 1;
  });
  return element(0x77, encoded);
}

}  // namespace tavlo::specimen
