#include <TavloReader/SecurityObject.internal.hpp>

#include <TavloReader/TLV.internal.hpp>

#include <openssl/asn1t.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace tavlo::reader {

using foundation::Data;
using foundation::DataView;

namespace {

using Result = AuthenticationStep::Result;

// The LDS security object (ICAO Doc 9303-10, 4.6.2), in the C library's notation for ASN.1.
struct DataGroupHash {
  ASN1_INTEGER* number;
  ASN1_OCTET_STRING* hash;
};
ASN1_SEQUENCE(DataGroupHash) =
    {
        ASN1_SIMPLE(DataGroupHash, number, ASN1_INTEGER),
        ASN1_SIMPLE(DataGroupHash, hash, ASN1_OCTET_STRING),
} static_ASN1_SEQUENCE_END(DataGroupHash) DEFINE_STACK_OF(DataGroupHash)

        struct LDSSecurityObject {
  ASN1_INTEGER* version;
  X509_ALGOR* hashAlgorithm;
  STACK_OF(DataGroupHash) * hashes;
  ASN1_STRING* versionInfo;
};
ASN1_SEQUENCE(LDSSecurityObject) =
    {
        ASN1_SIMPLE(LDSSecurityObject, version, ASN1_INTEGER),
        ASN1_SIMPLE(LDSSecurityObject, hashAlgorithm, X509_ALGOR),
        ASN1_SEQUENCE_OF(LDSSecurityObject, hashes, DataGroupHash),
        ASN1_OPT(LDSSecurityObject, versionInfo, ASN1_SEQUENCE),
} static_ASN1_SEQUENCE_END(LDSSecurityObject)

        void freeLDSSecurityObject(LDSSecurityObject * object) {
  ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(object), ASN1_ITEM_rptr(LDSSecurityObject));
}

DataView viewOf(const ASN1_OCTET_STRING* string) {
  return {ASN1_STRING_get0_data(string), static_cast<std::size_t>(ASN1_STRING_length(string))};
}

bool isOfType(const ASN1_OBJECT* object, std::string_view identifier) {
  std::array<char, 64> text{};
  OBJ_obj2txt(text.data(), text.size(), object, 1);
  return text.data() == identifier;
}

/// The C library's number of what an algorithm identifier names.
int nidOf(const X509_ALGOR* algorithm) {
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  return OBJ_obj2nid(object);
}

/// Takes the certificates out of the message; gives whether they are no more than can be meant.
bool takeCertificates(SecurityObject& object) {
  constexpr int maximumCount = 16;  // the signer's, and the links between a few generations of authorities
  STACK_OF(X509)* const certificates = CMS_get1_certs(object.message.get());
  const bool isPlausible = sk_X509_num(certificates) <= maximumCount;
  while (sk_X509_num(certificates) > 0) object.certificates.emplace_back(sk_X509_pop(certificates));
  sk_X509_free(certificates);
  return isPlausible;
}

/// Takes the file of the SOD apart; gives whether it could. A hash function that is not allowed leaves `digest` empty.
bool parse(DataView file, SecurityObject& object) {
  constexpr std::size_t maximumSize = std::size_t{64} << 10;  // ten times what real ones take
  constexpr std::uint32_t outerTag = 0x77;
  if (file.size() > maximumSize || takeTag(file) != outerTag) return false;
  const auto length = takeLength(file);
  if (!length || *length > file.size()) return false;

  const std::uint8_t* position = file.data();
  object.message.reset(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(*length)));
  CMS_ContentInfo* const message = object.message.get();
  if (message == nullptr || OBJ_obj2nid(CMS_get0_type(message)) != NID_pkcs7_signed) return false;
  if (!isOfType(CMS_get0_eContentType(message), "2.23.136.1.1.1")) return false;
  if (sk_CMS_SignerInfo_num(CMS_get0_SignerInfos(message)) != 1 || !takeCertificates(object)) return false;
  ASN1_OCTET_STRING** const content = CMS_get0_content(message);
  if (content == nullptr || *content == nullptr) return false;

  const DataView encoded = viewOf(*content);
  position = encoded.data();
  const Owned<LDSSecurityObject, freeLDSSecurityObject> lds(reinterpret_cast<LDSSecurityObject*>(
      ASN1_item_d2i(nullptr, &position, static_cast<long>(encoded.size()), ASN1_ITEM_rptr(LDSSecurityObject))));
  if (!lds) return false;
  std::map<DataGroupId, Data> hashes;
  for (int i = 0; i < sk_DataGroupHash_num(lds->hashes); ++i) {
    const DataGroupHash* listed = sk_DataGroupHash_value(lds->hashes, i);
    std::int64_t number = 0;
    if (ASN1_INTEGER_get_int64(&number, listed->number) != 1 || number < 1 || number > 16) return false;
    const DataView hash = viewOf(listed->hash);
    const bool isNew = hashes.try_emplace(static_cast<DataGroupId>(number), hash.begin(), hash.end()).second;
    if (!isNew) return false;
  }
  object.hashes = std::move(hashes);
  object.digest = acceptedDigest(nidOf(lds->hashAlgorithm));
  return true;
}

/// What a signature algorithm says of hash and key, in the C library's numbers; NID_undef where it is not acceptable.
struct SignatureAlgorithm {
  int digest = NID_undef;
  int key = NID_undef;
};

/// The hash function in the parameters of RSA-PSS (RFC 4055, 3.1), provided that their mask generation takes an
/// accepted one. Salt and trailer are left to the C library, which keeps to what is stated.
int digestOfPSS(const X509_ALGOR* algorithm) {
  const auto read = [](const X509_ALGOR* identifier, const ASN1_ITEM* item) {
    const ASN1_TYPE* parameter = identifier->parameter;
    return parameter == nullptr ? nullptr : ASN1_TYPE_unpack_sequence(item, parameter);
  };
  const Owned<RSA_PSS_PARAMS, RSA_PSS_PARAMS_free> parameters(
      static_cast<RSA_PSS_PARAMS*>(read(algorithm, ASN1_ITEM_rptr(RSA_PSS_PARAMS))));
  if (!parameters) return NID_undef;
  const int digest = parameters->hashAlgorithm == nullptr ? NID_sha1 : nidOf(parameters->hashAlgorithm);
  int maskDigest = NID_sha1;
  if (const X509_ALGOR* mask = parameters->maskGenAlgorithm) {
    const Owned<X509_ALGOR, X509_ALGOR_free> inner(static_cast<X509_ALGOR*>(read(mask, ASN1_ITEM_rptr(X509_ALGOR))));
    if (nidOf(mask) != NID_mgf1 || !inner) return NID_undef;
    maskDigest = nidOf(inner.get());
  }
  return acceptedDigest(maskDigest) == nullptr ? NID_undef : digest;
}

SignatureAlgorithm readSignatureAlgorithm(const X509_ALGOR* algorithm, int digestOfMessage) {
  SignatureAlgorithm stated;
  switch (const int nid = nidOf(algorithm)) {
    case NID_rsaEncryption:  // RSA PKCS#1 v1.5 with the hash that is stated beside it
      return {digestOfMessage, EVP_PKEY_RSA};
    case NID_rsassaPss:
      return {digestOfPSS(algorithm), EVP_PKEY_RSA};
    default:
      if (OBJ_find_sigid_algs(nid, &stated.digest, &stated.key) != 1) return {};
      return stated;
  }
}

/// The C library compares the hash of the signed attributes with the content, but not their type.
bool signedAttributesNameContent(const SecurityObject& object) {
  const CMS_SignerInfo* const info = object.signerInfo();
  if (CMS_signed_get_attr_count(info) < 0) return true;
  constexpr int onlyOneWithOneValue = -3;
  const void* type =
      CMS_signed_get0_data_by_OBJ(info, OBJ_nid2obj(NID_pkcs9_contentType), onlyOneWithOneValue, V_ASN1_OBJECT);
  return type != nullptr &&
         OBJ_cmp(static_cast<const ASN1_OBJECT*>(type), CMS_get0_eContentType(object.message.get())) == 0;
}

}  // namespace

CMS_SignerInfo* SecurityObject::signerInfo() const {
  return sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(message.get()), 0);
}

AuthenticationStep readSecurityObject(const NFCPassportModel& model, SecurityObject& object) {
  const auto failed = [](const char* reason, const char* text) {
    return AuthenticationStep{"sod", Result::failed, reason, text};
  };
  const auto sod = model.dataGroupsRead().find(DataGroupId::SOD);
  if (sod == model.dataGroupsRead().end()) return failed("not_sent", "The document security object is missing.");
  if (!parse(sod->second->data(), object)) return failed("malformed", "The document security object cannot be read.");
  if (object.digest == nullptr) return failed("algorithm_refused", "The groups' hash function is not accepted.");
  return {"sod", Result::passed, "read", "The document security object can be read."};
}

AuthenticationStep findSigner(SecurityObject& object) {
  CMS_set1_signers_certs(object.message.get(), nullptr, 0);
  CMS_SignerInfo_get0_algs(object.signerInfo(), nullptr, &object.signer, nullptr, nullptr);
  if (object.signer == nullptr) {
    return {"signer", Result::failed, "not_found", "The document signer's certificate is missing."};
  }
  return {"signer", Result::passed, "found", "The document signer's certificate is in the security object."};
}

AuthenticationStep verifySignature(const SecurityObject& object) {
  const auto failed = [](const char* reason, const char* text) {
    return AuthenticationStep{"signature", Result::failed, reason, text};
  };
  EVP_PKEY* key = nullptr;
  X509_ALGOR* digestAlgorithm = nullptr;
  X509_ALGOR* signatureAlgorithm = nullptr;
  CMS_SignerInfo_get0_algs(object.signerInfo(), &key, nullptr, &digestAlgorithm, &signatureAlgorithm);
  // With keys on elliptic curves the C library does not look at the signature algorithm, nor with RSA at its hash.
  const int digest = nidOf(digestAlgorithm);
  const SignatureAlgorithm stated = readSignatureAlgorithm(signatureAlgorithm, digest);
  const bool isKnown = stated.key == EVP_PKEY_RSA || stated.key == EVP_PKEY_EC;
  if (!isKnown || acceptedDigest(stated.digest) == nullptr || acceptedDigest(digest) == nullptr) {
    return failed("algorithm_refused", "The signature's algorithm is not accepted.");
  }
  int keyType = key == nullptr ? NID_undef : EVP_PKEY_get_base_id(key);
  if (keyType == EVP_PKEY_RSA_PSS) keyType = EVP_PKEY_RSA;
  if (stated.digest != digest || stated.key != keyType) {
    return failed("algorithm_mismatch", "The signature's algorithm is not that of its hash and key.");
  }
  // The signer's chain is a step of its own, so that the report can say which of the two is wrong.
  constexpr unsigned int flags = CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY;
  if (CMS_verify(object.message.get(), nullptr, nullptr, nullptr, nullptr, flags) != 1 ||
      !signedAttributesNameContent(object)) {
    return failed("invalid", "The document signer's signature does not verify.");
  }
  return {"signature", Result::passed, "valid", "The document signer's signature verifies."};
}

std::optional<std::time_t> signingTime(const SecurityObject& object) {
  const CMS_SignerInfo* const info = object.signerInfo();
  const int index = CMS_signed_get_attr_by_NID(info, NID_pkcs9_signingTime, -1);
  if (index < 0) return std::nullopt;
  const ASN1_TYPE* time = X509_ATTRIBUTE_get0_type(CMS_signed_get_attr(info, index), 0);
  if (time == nullptr || (time->type != V_ASN1_UTCTIME && time->type != V_ASN1_GENERALIZEDTIME)) return std::nullopt;
  return secondsOf(time->value.asn1_string);
}

}  // namespace tavlo::reader
