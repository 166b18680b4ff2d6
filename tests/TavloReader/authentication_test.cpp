#include <TavloReader/DocumentSource.hpp>
#include <TavloReader/OpenSSL.internal.hpp>
#include <TavloReader/PassiveAuthentication.hpp>

#include <gtest/gtest.h>
#include <openssl/cms.h>

#include "support/Documents.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestCertificate.hpp"

namespace tavlo::reader {
namespace {

using namespace test;

const std::filesystem::path samples = TAVLO_SAMPLES_DIR;
const Data sha512{0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03};
const Data ecdsaWithSHA256{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
const Data rsaEncryption{0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
const Data listsDG1{0x02, 0x01, 0x01, 0x04, 0x20};

Data securityObjectOf(const char* folder) {
  return foundation::contentsOf(samples / folder / "EF_SOD.bin");
}

/// `bytes` with the last occurrence of `part` ending in another byte.
Data altered(Data bytes, const Data& part, std::uint8_t last) {
  const auto found = std::find_end(bytes.begin(), bytes.end(), part.begin(), part.end());
  bytes.at(static_cast<std::size_t>(found - bytes.begin()) + part.size() - 1) = last;
  return bytes;
}

/// The steps that do not pass with another security object in a sample, after the whole: failed ones with "!" and
/// unchecked ones with "?" before them. Steps for which an earlier one left nothing to check are left out.
std::string verdict(const char* folder, const Data& securityObject, const TrustAnchors& anchors, int daysAhead = 0) {
  NFCPassportModel model;
  for (const auto whole = readDocument(samples / folder); const auto& [id, group] : whole.model.dataGroupsRead()) {
    model.add(id == DataGroupId::SOD ? DataGroup::parse(id, securityObject) : group);
  }
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
    EXPECT_EQ(verdict(folder, altered(securityObjectOf(folder), part, last), anchors), expected)
        << "row " << &row - rows;
  }
  EXPECT_FALSE(AuthenticationReport{}.isTrusted());

  Data file = securityObjectOf("td3-jpeg");
  // The steps miss the few bytes that nothing relies on, such as versions.
  for (std::size_t i = 4; i < file.size(); i += 17) {
    file[i] ^= 0x10;
    EXPECT_EQ(verdict("td3-jpeg", file, anchors).substr(0, 9), "untrusted") << "byte " << i;
    file[i] ^= 0x10;
  }
}

using Holder = TestCertificate;

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
  const Holder::Extensions signing{{NID_key_usage, "critical,digitalSignature"}};
  const Holder::Extensions issuing{{NID_key_usage, "critical,keyCertSign"},
                                   {NID_basic_constraints, "critical,CA:TRUE,pathlen:0"}};
  const auto curve = "brainpoolP256r1";
  const Holder::Key nextKey(EVP_RSA_gen(2048), EVP_PKEY_free), key = Holder::newKey(curve);
  const Holder csca("CSCA", Holder::newKey(curve), nullptr, issuing), next("CSCA", nextKey, nullptr, issuing);
  const Holder link("CSCA", nextKey, &csca, issuing), endedLink("CSCA", nextKey, &csca, issuing, -60);
  const Holder noAuthority("CSCA", nextKey, nullptr, {issuing[0], {NID_basic_constraints, "CA:FALSE"}});
  const Holder noIssuer("CSCA", nextKey, nullptr, {signing[0], issuing[1]});
  const Holder signer("DS", key, &csca, signing), nextSigner("DS", key, &next, signing);
  const Holder selfSigned("DS", key, nullptr, signing);
  std::vector<Holder> many;
  while (many.size() < 16) many.emplace_back("Other", key, &csca, signing);
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
      {sign(Holder("DS", Holder::newKey(curve), &signer, signing), {signer}), {csca}, barred},
      {sign(Holder("DS", key, &csca, {})), {csca}, "trusted"},
      {sign(Holder("DS", key, &csca, {issuing[0]})), {csca}, purpose},
      {sign(Holder("DS", key, &csca, {signing[0], issuing[1]})), {csca}, purpose},
      {sign(Holder("DS", key, &csca, {signing[0], {NID_ext_key_usage, "serverAuth"}})), {csca}, purpose},
      {sign(Holder("DS", key, &next, {}, 3600, EVP_md5())), {next}, "untrusted !chain=algorithm_refused"},
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
    EXPECT_EQ(verdict("td3-jpeg", file, anchors), expected) << "row " << &row - rows;
    if (&row != rows) continue;
    EXPECT_EQ(verdict("td3-jpeg", file, anchors, 100), "trusted !validity_today=expired");
    EXPECT_EQ(verdict("td3-jpeg", file, anchors, -100), "trusted !validity_today=not_yet_valid");
  }
  for (const Data& anchor : {Data{}, Data{1, 2, 3}}) EXPECT_THROW((void)authenticate({}, {anchor}), ReaderError);
  EXPECT_THROW((void)trustAnchorsIn(TemporaryFolder().path()), ReaderError);
  EXPECT_EQ(ERR_peek_error(), 0U);
}

}  // namespace
}  // namespace tavlo::reader
