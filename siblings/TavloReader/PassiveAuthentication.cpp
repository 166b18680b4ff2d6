#include <TavloReader/PassiveAuthentication.hpp>

#include <Foundation/UTF8.hpp>
#include <TavloReader/TLV.internal.hpp>

#include <openssl/asn1t.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

namespace tavlo::reader {

using foundation::Data;
using foundation::DataView;

namespace {

using Result = AuthenticationStep::Result;

/// Hands an object of the C library back to it.
template <auto release>
struct Release {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};
template <class T, auto release>
using Owned = std::unique_ptr<T, Release<release>>;
using Certificate = Owned<X509, X509_free>;

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

/// The hash function that an algorithm identifier names; none when it is not one that the standard allows.
const EVP_MD* digestOf(const X509_ALGOR* algorithm) {
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  constexpr std::array allowed = {NID_sha1, NID_sha224, NID_sha256, NID_sha384, NID_sha512};
  const auto* found = std::ranges::find(allowed, OBJ_obj2nid(object));
  return found == allowed.end() ? nullptr : EVP_get_digestbynid(*found);
}

/// What the SOD says, before any of it is verified.
struct SecurityObject {
  Owned<CMS_ContentInfo, CMS_ContentInfo_free> message;
  const EVP_MD* digest = nullptr;
  std::map<DataGroupId, Data> hashes;

  [[nodiscard]] CMS_SignerInfo* signerInfo() const {
    return sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(message.get()), 0);
  }
  /// The document signer's certificate out of the SOD, once the signature was looked at; none when it is not there.
  [[nodiscard]] X509* signer() const {
    X509* certificate = nullptr;
    CMS_SignerInfo_get0_algs(signerInfo(), nullptr, &certificate, nullptr, nullptr);
    return certificate;
  }
};

/// Takes the file of the SOD apart; gives whether it could. A hash function that is not allowed leaves `digest` empty.
bool parse(DataView file, SecurityObject& object) {
  constexpr std::uint32_t outerTag = 0x77;
  if (takeTag(file) != outerTag) return false;
  const auto length = takeLength(file);
  if (!length || *length > file.size()) return false;

  const std::uint8_t* position = file.data();
  object.message.reset(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(*length)));
  CMS_ContentInfo* const message = object.message.get();
  if (message == nullptr || OBJ_obj2nid(CMS_get0_type(message)) != NID_pkcs7_signed) return false;
  if (!isOfType(CMS_get0_eContentType(message), "2.23.136.1.1.1")) return false;
  if (sk_CMS_SignerInfo_num(CMS_get0_SignerInfos(message)) != 1) return false;
  ASN1_OCTET_STRING** const content = CMS_get0_content(message);
  if (content == nullptr || *content == nullptr) return false;

  const DataView encoded = viewOf(*content);
  position = encoded.data();
  const Owned<LDSSecurityObject, freeLDSSecurityObject> lds(reinterpret_cast<LDSSecurityObject*>(
      ASN1_item_d2i(nullptr, &position, static_cast<long>(encoded.size()), ASN1_ITEM_rptr(LDSSecurityObject))));
  if (!lds) return false;
  for (int i = 0; i < sk_DataGroupHash_num(lds->hashes); ++i) {
    const DataGroupHash* listed = sk_DataGroupHash_value(lds->hashes, i);
    std::int64_t number = 0;
    if (ASN1_INTEGER_get_int64(&number, listed->number) != 1 || number < 1 || number > 16) return false;
    const DataView hash = viewOf(listed->hash);
    const bool isNew = object.hashes.try_emplace(static_cast<DataGroupId>(number), hash.begin(), hash.end()).second;
    if (!isNew) return false;
  }
  object.digest = digestOf(lds->hashAlgorithm);
  return true;
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

AuthenticationStep verifySignature(const SecurityObject& object) {
  const auto failed = [](const char* reason, const char* text) {
    return AuthenticationStep{"signature", Result::failed, reason, text};
  };
  X509_ALGOR* digestAlgorithm = nullptr;
  CMS_SignerInfo_get0_algs(object.signerInfo(), nullptr, nullptr, &digestAlgorithm, nullptr);
  // The signer's chain is a step of its own, so that the report can say which of the two is wrong.
  constexpr unsigned int flags = CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY;
  const bool valid = CMS_verify(object.message.get(), nullptr, nullptr, nullptr, nullptr, flags) == 1;
  if (object.signer() == nullptr) return failed("signer_not_found", "The document signer's certificate is missing.");
  if (digestOf(digestAlgorithm) == nullptr) return failed("algorithm_refused", "The signature's hash is not accepted.");
  if (!valid) return failed("invalid", "The document signer's signature does not verify.");
  return {"signature", Result::passed, "valid", "The document signer's signature verifies."};
}

std::optional<std::time_t> secondsOf(const ASN1_TIME* time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
  return timegm(&parts);
}

/// The signing time that the signer states; absent when there is none.
std::optional<std::time_t> signingTime(const CMS_SignerInfo* info) {
  const int index = CMS_signed_get_attr_by_NID(info, NID_pkcs9_signingTime, -1);
  if (index < 0) return std::nullopt;
  const ASN1_TYPE* time = X509_ATTRIBUTE_get0_type(CMS_signed_get_attr(info, index), 0);
  if (time == nullptr || (time->type != V_ASN1_UTCTIME && time->type != V_ASN1_GENERALIZEDTIME)) return std::nullopt;
  return secondsOf(time->value.asn1_string);
}

/// Verifies `signer` with this one anchor. Gives the C library's code, X509_V_OK or another.
int verifyWith(X509* anchor, X509* signer, std::time_t time) {
  const Owned<X509_STORE, X509_STORE_free> store(X509_STORE_new());
  const Owned<X509_STORE_CTX, X509_STORE_CTX_free> context(X509_STORE_CTX_new());
  if (!store || !context || X509_STORE_add_cert(store.get(), anchor) != 1 ||
      X509_STORE_CTX_init(context.get(), store.get(), signer, nullptr) != 1) {
    throw std::bad_alloc();
  }
  X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_PARTIAL_CHAIN);
  X509_STORE_CTX_set_time(context.get(), 0, time);
  // Many states write out the parameters of their curves, which the C library refuses unless told otherwise.
  X509_STORE_CTX_set_verify_cb(context.get(), [](int passed, X509_STORE_CTX* current) {
    return passed == 1 || X509_STORE_CTX_get_error(current) == X509_V_ERR_EC_KEY_EXPLICIT_PARAMS ? 1 : 0;
  });
  if (X509_verify_cert(context.get()) == 1) return X509_V_OK;
  const int error = X509_STORE_CTX_get_error(context.get());
  return error == X509_V_OK ? X509_V_ERR_UNSPECIFIED : error;
}

AuthenticationStep verifyChain(const SecurityObject& object, const std::vector<Certificate>& anchors) {
  const auto failed = [](const char* reason, std::string text) {
    return AuthenticationStep{"chain", Result::failed, reason, std::move(text)};
  };
  X509* const signer = object.signer();
  if (signer == nullptr) return {"chain", Result::notChecked, "no_signer", "There is no document signer to check."};
  if (anchors.empty()) return failed("no_trust_anchors", "There is no trusted certificate to check the signer with.");

  const auto stated = signingTime(object.signerInfo());
  const std::time_t time = stated ? *stated : secondsOf(X509_get0_notBefore(signer)).value_or(0);
  int error = X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY;
  for (const Certificate& anchor : anchors) {  // one at a time: a state's successive authorities bear the same name
    const int code = verifyWith(anchor.get(), signer, time);
    if (code == X509_V_OK) return {"chain", Result::passed, "trusted", "A trusted authority vouches for the signer."};
    if (code != X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY) error = code;
  }
  switch (error) {
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
      return failed("issuer_unknown", "The document signer's certificate comes from no trusted authority.");
    case X509_V_ERR_CERT_NOT_YET_VALID:
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return failed("outside_validity", "A certificate behind the document was not valid when it was signed.");
    default:
      return failed("refused", std::string("The document signer's certificate is refused: ") +
                                   X509_verify_cert_error_string(error) + ".");
  }
}

Data hashOf(const Data& file, const EVP_MD* digest) {
  Data hash(EVP_MAX_MD_SIZE);
  unsigned int size = 0;
  if (EVP_Digest(file.data(), file.size(), hash.data(), &size, digest, nullptr) != 1) throw std::bad_alloc();
  hash.resize(size);
  return hash;
}

/// One step for each group that the SOD lists or that was sent.
void compareGroups(const NFCPassportModel& model, const SecurityObject& object, AuthenticationReport& report) {
  for (int number = 1; number <= 16; ++number) {
    const auto id = static_cast<DataGroupId>(number);
    const std::string group(name(id));
    const auto sent = model.dataGroupsRead().find(id);
    const auto listed = object.hashes.find(id);
    const bool isSent = sent != model.dataGroupsRead().end();
    const bool isListed = listed != object.hashes.end();

    if (isSent && isListed && hashOf(sent->second->data(), object.digest) == listed->second) {
      report.steps.push_back({group, Result::passed, "hash_match", group + " is as it was signed."});
    } else if (isSent && isListed) {
      report.steps.push_back({group, Result::failed, "hash_mismatch", group + " is not as it was signed."});
    } else if (isSent) {
      report.steps.push_back({group, Result::failed, "not_in_sod", group + " is not among the signed groups."});
    } else if (isListed) {
      report.steps.push_back({group, Result::notChecked, "not_sent", group + " was signed but is not here."});
    }
  }
}

/// The certificates of one trust anchor: one in DER, or one or more in PEM; none when it is neither.
std::vector<Certificate> readAnchor(const Data& encoded) {
  constexpr std::size_t maximumSize = std::size_t{16} << 20;  // a whole world's authorities take one tenth of it
  std::vector<Certificate> certificates;
  if (encoded.empty() || encoded.size() > maximumSize) return certificates;
  const std::uint8_t* position = encoded.data();
  if (Certificate certificate{d2i_X509(nullptr, &position, static_cast<long>(encoded.size()))}) {
    certificates.push_back(std::move(certificate));
    return certificates;
  }
  const Owned<BIO, BIO_free> text(BIO_new_mem_buf(encoded.data(), static_cast<int>(encoded.size())));
  std::array<char, 1> noPassword{};  // without one, an encrypted file would have the user asked for it
  while (Certificate certificate{PEM_read_bio_X509(text.get(), nullptr, nullptr, noPassword.data())}) {
    certificates.push_back(std::move(certificate));
  }
  const bool readToTheEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  if (!readToTheEnd) certificates.clear();
  return certificates;
}

std::vector<Certificate> readAnchors(const TrustAnchors& anchors) {
  std::vector<Certificate> all;
  for (std::size_t i = 0; i < anchors.size(); ++i) {
    auto certificates = readAnchor(anchors[i]);
    if (certificates.empty()) throw ReaderError("Trust anchor " + std::to_string(i + 1) + " is no certificate");
    std::ranges::move(certificates, std::back_inserter(all));
  }
  return all;
}

}  // namespace

TrustAnchors trustAnchorsIn(const std::filesystem::path& folder) {
  std::size_t room = std::size_t{64} << 20;
  TrustAnchors anchors;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::filesystem::path& file = entry.path();
    if (!entry.is_regular_file() || file.filename().native().starts_with('.')) continue;
    anchors.push_back(foundation::contentsOf(file, room));
    room -= anchors.back().size();
    if (readAnchor(anchors.back()).empty()) {
      throw ReaderError(foundation::makeValidUTF8(file.string()) +
                        " is no certificate in PEM or DER: move it out of the folder");
    }
  }
  if (anchors.empty()) throw ReaderError("There is no certificate in " + foundation::makeValidUTF8(folder.string()));
  return anchors;
}

bool AuthenticationReport::isTrusted() const {
  const auto passed = [this](std::string_view step) {
    const auto found = std::ranges::find(steps, step, &AuthenticationStep::name);
    return found != steps.end() && found->result == Result::passed;
  };
  constexpr std::array<std::string_view, 4> required = {"sod", "signature", "chain", "DG1"};
  const bool nothingFailed = std::ranges::count(steps, Result::failed, &AuthenticationStep::result) == 0;
  return nothingFailed && std::ranges::all_of(required, passed);
}

AuthenticationReport authenticate(const NFCPassportModel& model, const TrustAnchors& anchors) {
  const std::vector<Certificate> certificates = readAnchors(anchors);
  AuthenticationReport report;
  SecurityObject object;
  report.steps.push_back(readSecurityObject(model, object));
  if (report.steps.front().result == Result::passed) {
    report.steps.push_back(verifySignature(object));
    report.steps.push_back(verifyChain(object, certificates));
    compareGroups(model, object, report);
  } else {
    const auto notChecked = [&report](std::string_view step) {
      report.steps.push_back({std::string(step), Result::notChecked, "no_sod", "There is nothing to check it with."});
    };
    notChecked("signature");
    notChecked("chain");
    for (const auto& [id, group] : model.dataGroupsRead()) {
      if (id != DataGroupId::COM && id != DataGroupId::SOD) notChecked(name(id));
    }
  }
  ERR_clear_error();
  return report;
}

}  // namespace tavlo::reader
