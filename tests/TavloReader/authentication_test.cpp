#include <TavloReader/DocumentSource.hpp>
#include <TavloReader/OpenSSL.internal.hpp>
#include <TavloReader/PassiveAuthentication.hpp>

#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/ec.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/Documents.hpp"
#include "support/TemporaryFolder.hpp"

namespace tavlo::reader {
namespace {

using namespace test;

const std::filesystem::path samples = TAVLO_SAMPLES_DIR;
const Data sha512{0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03};
const Data ecdsaWithSHA256{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
const Data rsaEncryption{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
const Data listsDG1{0x02, 0x01, 0x01, 0x04, 0x20};

/// A sample with another security object.
NFCPassportModel sample(const char* folder, const Data& securityObject) {
  NFCPassportModel model;
  for (const auto whole = readDocument(samples / folder); const auto& [id, group] : whole.model.dataGroupsRead()) {
    if (id != DataGroupId::SOD) model.add(group);
  }
  model.add(DataGroup::parse(DataGroupId::SOD, securityObject));
  return model;
}

Data securityObjectOf(const char* folder) {
  return foundation::contentsOf(samples / folder / "EF_SOD.bin");
}

/// `bytes` with the last occurrence of `part` ending in another byte.
Data altered(Data bytes, const Data& part, std::uint8_t last) {
  const auto found = std::find_end(bytes.begin(), bytes.end(), part.begin(), part.end());
  bytes.at(static_cast<std::size_t>(found - bytes.begin()) + part.size() - 1) = last;
  return bytes;
}

/// The steps that did not pass, after the whole: failed ones with "!" and unchecked ones with "?" before them. Steps
/// for which an earlier one left nothing to check are left out.
std::string verdict(const NFCPassportModel& model, const TrustAnchors& anchors, int daysAhead = 0) {
  const auto now = std::chrono::system_clock::now() + std::chrono::hours(24 * daysAhead);
  const AuthenticationReport report = authenticate(model, anchors, now);
  EXPECT_EQ(ERR_peek_error(), 0U);
  std::string text = report.isTrusted() ? "trusted" : "untrusted";
  for (const auto& step : report.steps) {
    const bool isLeftOut = step.result == AuthenticationStep::Result::notChecked && step.reason.starts_with("no_");
    if (isLeftOut || step.result == AuthenticationStep::Result::passed) continue;
    text += (step.result == AuthenticationStep::Result::failed ? " !" : " ?") + step.name + "=" + step.reason;
  }
  return text;
}

TEST(Authentication, JudgesSamplesByWhatTheyState) {
  const std::string refused = "untrusted !signature=algorithm_refused";
  const std::string mismatch = "untrusted !signature=algorithm_mismatch";
  const std::tuple<const char*, Data, std::uint8_t, std::string> rows[] = {
      {"td3-jpeg", ecdsaWithSHA256, 0x03, mismatch},  // ECDSA with SHA-384
      {"td3-jpeg", ecdsaWithSHA256, 0x09, refused},
      {"td3-jpeg", listsDG1, 0x21, "untrusted !sod=malformed"},
      {"rsa-sha256", rsaEncryption, 0x0B, "trusted"},  // with SHA-256
      {"rsa-sha256", rsaEncryption, 0x0D, mismatch},   // with SHA-512
      {"rsa-sha256", rsaEncryption, 0x04, refused},    // with MD5
      {"rsa-sha256", rsaEncryption, 0x0A, refused},    // PSS without parameters
      {"rsa-pss-sha512", sha512, 0x06, refused},       // SHA-512/256
      {"rsa-pss-sha512", sha512, 0x02, "untrusted !signature=invalid"}};
  const TrustAnchors anchors = trustAnchorsIn(samples / "trust");
  for (const auto& row : rows) {
    const auto& [folder, part, last, expected] = row;
    EXPECT_EQ(verdict(sample(folder, altered(securityObjectOf(folder), part, last)), anchors), expected)
        << "row " << &row - rows;
  }
  EXPECT_EQ(verdict({}, anchors), "untrusted !sod=not_sent ?DG1=not_sent");
  EXPECT_FALSE(AuthenticationReport{}.isTrusted());

  Data file = securityObjectOf("td3-jpeg");
  // The steps miss the few bytes that nothing relies on, such as versions.
  for (std::size_t i = 4; i < file.size(); i += 17) {
    file[i] ^= 0x10;
    EXPECT_EQ(verdict(sample("td3-jpeg", file), anchors).substr(0, 9), "untrusted") << "byte " << i;
    file[i] ^= 0x10;
  }
}

using Key = std::shared_ptr<EVP_PKEY>;

struct Holder {
  Key key;
  std::shared_ptr<X509> certificate;
};

struct Profile {
  const char* usage = "critical,digitalSignature";
  const char* constraints = nullptr;
  const char* purpose = nullptr;
  int lastDay = 10;
  const EVP_MD* digest = EVP_sha256();
};

Key newKey() {
  return {EVP_EC_gen("brainpoolP256r1"), EVP_PKEY_free};
}

/// A certificate from ten days ago until the last day, counted from today, by `issuer` or by itself.
Holder certify(const char* name, const Key& key, const Holder* issuer, const Profile& profile = {}) {
  static long serial = 0;
  const Holder made{key, {X509_new(), X509_free}};
  X509* const x = made.certificate.get();
  X509_set_version(x, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(x), ++serial);
  X509_time_adj_ex(X509_getm_notBefore(x), -10, 0, nullptr);
  X509_time_adj_ex(X509_getm_notAfter(x), profile.lastDay, 0, nullptr);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(x), "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name),
                             -1, -1, 0);
  if (issuer == nullptr) issuer = &made;
  X509_set_issuer_name(x, X509_get_subject_name(issuer->certificate.get()));
  X509_set_pubkey(x, key.get());
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer->certificate.get(), x, nullptr, nullptr, 0);
  for (const auto& [nid, value] : {std::pair{NID_subject_key_identifier, "hash"},
                                   {NID_authority_key_identifier, "keyid"},
                                   {NID_key_usage, profile.usage},
                                   {NID_basic_constraints, profile.constraints},
                                   {NID_ext_key_usage, profile.purpose}}) {
    if (value == nullptr) continue;
    const Owned<X509_EXTENSION, X509_EXTENSION_free> extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    X509_add_ext(x, extension.get(), -1);
  }
  X509_sign(x, issuer->key.get(), profile.digest);
  return made;
}

const int listType = OBJ_create("2.23.136.1.1.1", nullptr, nullptr);

/// What is signed in the sample td3-jpeg: it follows its type and two tags with lengths, the second of which is its
/// own.
Data listOfHashes() {
  const Data file = securityObjectOf("td3-jpeg");
  const Data type{0x06, 0x06, 0x67, 0x81, 0x08, 0x01, 0x01, 0x01};
  const auto list = std::search(file.begin(), file.end(), type.begin(), type.end()) + 16;
  return {list, list + (list[-2] << 8 | list[-1])};
}

Data sign(const Holder& signer, const std::vector<Holder>& others = {}, unsigned int flags = 0,
          const Data& content = listOfHashes(), int statedType = listType) {
  const Owned<BIO, BIO_free> stream(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
  flags |= CMS_BINARY | CMS_PARTIAL;
  const Owned<CMS_ContentInfo, CMS_ContentInfo_free> message(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
  CMS_set1_eContentType(message.get(), OBJ_nid2obj(statedType));
  CMS_add1_signer(message.get(), signer.certificate.get(), signer.key.get(), EVP_sha256(), flags);
  for (const Holder& other : others) CMS_add1_cert(message.get(), other.certificate.get());
  CMS_final(message.get(), stream.get(), nullptr, flags);
  CMS_set1_eContentType(message.get(), OBJ_nid2obj(listType));
  Data bytes(static_cast<std::size_t>(i2d_CMS_ContentInfo(message.get(), nullptr)));
  std::uint8_t* end = bytes.data();
  i2d_CMS_ContentInfo(message.get(), &end);
  return tlv(0x77, bytes);
}

TEST(Authentication, FollowsTheChainToASelfSignedAuthority) {
  const std::string unknown = "untrusted !chain=issuer_unknown";
  const std::string barred = "untrusted !chain=issuer_not_allowed";
  const std::string purpose = "untrusted !chain=signer_not_allowed";
  const Profile authority{"critical,keyCertSign", "critical,CA:TRUE,pathlen:0"};
  const Profile ended{"keyCertSign", "CA:TRUE", nullptr, -1};
  const Key nextKey(EVP_RSA_gen(2048), EVP_PKEY_free);
  const Key key = newKey();
  const Holder csca = certify("CSCA", newKey(), nullptr, authority);
  const Holder next = certify("CSCA", nextKey, nullptr, authority);
  const Holder link = certify("CSCA", nextKey, &csca, authority);
  const Holder endedLink = certify("CSCA", nextKey, &csca, ended);
  const Holder noAuthority = certify("CSCA", nextKey, nullptr, {"keyCertSign", "CA:FALSE"});
  const Holder noIssuer = certify("CSCA", nextKey, nullptr, {"digitalSignature", "CA:TRUE"});
  const Holder signer = certify("DS", key, &csca);
  const Holder nextSigner = certify("DS", key, &next);
  const Holder selfSigned = certify("DS", key, nullptr);
  std::vector<Holder> many;
  while (many.size() < 16) many.push_back(certify("Other", key, &csca));
  const std::tuple<Data, std::vector<Holder>, std::string> rows[] = {
      {sign(signer), {next, csca}, "trusted"},
      {sign(signer, {}, CMS_NOATTR), {csca}, "trusted"},
      {sign(signer), {}, "untrusted !chain=no_trust_anchors"},
      {sign(signer), {link}, "untrusted !chain=no_trust_anchors"},
      {sign(signer), {next, signer}, unknown},
      {sign(selfSigned), {selfSigned}, unknown},
      {sign(nextSigner, {next}), {csca}, unknown},
      {sign(nextSigner, {next, link}), {csca}, "trusted"},
      {sign(nextSigner), {csca, link}, "trusted"},
      {sign(nextSigner, {endedLink}), {csca}, "untrusted !validity=outside_validity !validity_today=expired"},
      {sign(nextSigner, {endedLink}), {csca, next}, "trusted"},
      {sign(nextSigner), {noAuthority}, barred},
      {sign(nextSigner), {noIssuer}, barred},
      {sign(certify("DS", newKey(), &signer), {signer}), {csca}, barred},
      {sign(certify("DS", key, &csca, {nullptr})), {csca}, "trusted"},
      {sign(certify("DS", key, &csca, {"keyCertSign"})), {csca}, purpose},
      {sign(certify("DS", key, &csca, {"digitalSignature", "CA:TRUE"})), {csca}, purpose},
      {sign(certify("DS", key, &csca, {"digitalSignature", nullptr, "serverAuth"})), {csca}, purpose},
      {sign(certify("DS", key, &next, {nullptr, nullptr, nullptr, 10, EVP_md5()})),
       {next},
       "untrusted !chain=algorithm_refused"},
      {sign(signer, {}, CMS_NOCERTS), {csca}, "untrusted !signer=not_found"},
      {sign(signer, {}, 0, listOfHashes(), NID_pkcs7_data), {csca}, "untrusted !signature=invalid"},
      {sign(signer, many), {csca}, "untrusted !sod=malformed"},
      {sign(signer, {}, 0, Data(std::size_t{64} << 10)), {csca}, "untrusted !sod=malformed"}};
  for (const auto& row : rows) {
    const auto& [file, trusted, expected] = row;
    TrustAnchors anchors;
    for (const Holder& anchor : trusted) {
      std::uint8_t* end = anchors.emplace_back(i2d_X509(anchor.certificate.get(), nullptr)).data();
      i2d_X509(anchor.certificate.get(), &end);
    }
    EXPECT_EQ(verdict(sample("td3-jpeg", file), anchors), expected) << "row " << &row - rows;
    if (&row != rows) continue;
    EXPECT_EQ(verdict(sample("td3-jpeg", file), anchors, 100), "trusted !validity_today=expired");
    EXPECT_EQ(verdict(sample("td3-jpeg", file), anchors, -100), "trusted !validity_today=not_yet_valid");
  }
  for (const Data& anchor : {Data{}, Data{1, 2, 3}}) EXPECT_THROW(verdict({}, {anchor}), ReaderError);
  EXPECT_THROW((void)trustAnchorsIn(samples / "td3-jpeg"), ReaderError);
  EXPECT_THROW((void)trustAnchorsIn(TemporaryFolder().path()), ReaderError);
  EXPECT_EQ(ERR_peek_error(), 0U);
}

}  // namespace
}  // namespace tavlo::reader
