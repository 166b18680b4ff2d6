#include <TavloReader/DocumentSource.hpp>
#include <TavloReader/PassiveAuthentication.hpp>
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/core_names.h>

#include "support/Documents.hpp"
#include "support/TestCertificate.hpp"

namespace tavlo::reader {
namespace {

using test::Data;
using test::joined;
using test::tlv;

const std::filesystem::path samples = TAVLO_SAMPLES_DIR;
const Data csca = foundation::contentsOf(samples / "trust/csca.pem");

/// The steps in one line, failed ones with "!" and unchecked ones with "?" before them.
std::string summary(const AuthenticationReport& report) {
  std::string text = report.isTrusted() ? "trusted" : "not trusted";
  for (const auto& step : report.steps) {
    static constexpr const char* marks[] = {" ", " !", " ?"};
    text += marks[static_cast<std::size_t>(step.result)] + step.name + "=" + step.reason;
    EXPECT_FALSE(step.text.empty());
  }
  return text;
}

/// A sample without one of its groups.
NFCPassportModel sample(const char* folder, std::optional<DataGroupId> left = {}) {
  const DocumentReading whole = readDocument(samples / folder);
  NFCPassportModel model;
  for (const auto& [id, group] : whole.model.dataGroupsRead()) {
    if (id != left) model.add(group);
  }
  return model;
}

TEST(Authentication, TellsSamplesApart) {
  const std::string sound = " sod=read signature=valid chain=trusted";
  const std::string others = " DG7=hash_match DG11=hash_match DG12=hash_match DG14=hash_match DG15=hash_match";
  EXPECT_EQ(summary(authenticate(sample("td3-jpeg"), {csca})),
            "trusted" + sound + " DG1=hash_match DG2=hash_match" + others);
  EXPECT_EQ(summary(authenticate(sample("bad-dg1-flipped"), {csca})),
            "not trusted" + sound + " !DG1=hash_mismatch DG2=hash_match" + others);
  EXPECT_EQ(summary(authenticate(sample("td3-jpeg", DataGroupId::DG1), {csca})),
            "not trusted" + sound + " ?DG1=not_sent DG2=hash_match" + others);

  NFCPassportModel other = sample("td3-jpeg", DataGroupId::DG2);
  EXPECT_EQ(summary(authenticate(other, {csca})), "trusted" + sound + " DG1=hash_match ?DG2=not_sent" + others);
  other.add(DataGroup::parse(tlv(0x63, tlv(0x7F61, tlv(0x02, Data{0})))));
  EXPECT_EQ(summary(authenticate(other, {csca})),
            "not trusted" + sound + " DG1=hash_match ?DG2=not_sent !DG3=not_in_sod" + others);

  EXPECT_NE(summary(authenticate(sample("td3-jpeg"), {})).find("!chain=no_trust_anchors"), std::string::npos);
  EXPECT_EQ(summary(authenticate({}, {csca})), "not trusted !sod=not_sent ?signature=no_sod ?chain=no_sod");
  for (const Data& anchor : {Data{}, Data{1, 2, 3}}) {
    EXPECT_THROW(static_cast<void>(authenticate({}, {csca, anchor})), ReaderError);
  }
}

TEST(Authentication, NoAlteredSecurityObjectIsTrusted) {
  const NFCPassportModel rest = sample("td3-jpeg", DataGroupId::SOD);
  Data file = foundation::contentsOf(samples / "td3-jpeg/EF_SOD.bin");
  // The steps miss the few bytes that nothing relies on: versions, and the name of the signature algorithm.
  for (std::size_t i = 4; i < file.size(); i += 17) {
    NFCPassportModel model = rest;
    file[i] ^= 0x10;
    model.add(DataGroup::parse(DataGroupId::SOD, file));
    file[i] ^= 0x10;
    EXPECT_FALSE(authenticate(model, {csca}).isTrusted()) << "byte " << i;
  }
}

struct Kind {
  const char* curve;  ///< none for RSA
  bool explicitCurve, pss, indefiniteLengths;
  const char* digest;
};

template <class T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

/// A SOD over `group`, signed in the way of `kind`.
Data signedObject(const Data& group, X509* signer, EVP_PKEY* key, const Kind& kind) {
  const EVP_MD* digest = EVP_get_digestbyname(kind.digest);
  Data hash(static_cast<std::size_t>(EVP_MD_get_size(digest)));
  EVP_Digest(group.data(), group.size(), hash.data(), nullptr, digest, nullptr);
  const ASN1_OBJECT* identifier = OBJ_nid2obj(EVP_MD_get_type(digest));
  const Data algorithm = tlv(0x30, tlv(0x06, test::DataView(OBJ_get0_data(identifier), OBJ_length(identifier))));
  const Data hashes = tlv(0x30, tlv(0x30, joined({tlv(0x02, Data{1}), tlv(0x04, hash)})));
  const Data content = tlv(0x30, joined({tlv(0x02, Data{0}), algorithm, hashes}));

  const unsigned int flags =
      CMS_BINARY | CMS_PARTIAL | (kind.indefiniteLengths ? CMS_STREAM : 0U) | (kind.pss ? CMS_KEY_PARAM : 0U);
  const Owned<BIO> in(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())), BIO_free_all);
  const Owned<BIO> out(BIO_new(BIO_s_mem()), BIO_free_all);
  const Owned<CMS_ContentInfo> message(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags), CMS_ContentInfo_free);
  auto* info = CMS_add1_signer(message.get(), signer, key, digest, flags);
  if (kind.pss) EVP_PKEY_CTX_set_rsa_padding(CMS_SignerInfo_get0_pkey_ctx(info), RSA_PKCS1_PSS_PADDING);
  CMS_set1_eContentType(message.get(), Owned<ASN1_OBJECT>(OBJ_txt2obj("2.23.136.1.1.1", 1), ASN1_OBJECT_free).get());
  if (!kind.indefiniteLengths) CMS_final(message.get(), in.get(), nullptr, flags);
  i2d_CMS_bio_stream(out.get(), message.get(), in.get(), static_cast<int>(flags));
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(out.get(), &bytes);
  return tlv(0x77, std::string_view(bytes, static_cast<std::size_t>(size)));
}

Data encoded(X509* certificate) {
  Data bytes(static_cast<std::size_t>(i2d_X509(certificate, nullptr)));
  std::uint8_t* position = bytes.data();
  i2d_X509(certificate, &position);
  return bytes;
}

TEST(Authentication, AcceptsWhatStatesSignWith) {
  const test::TestCertificate stranger("DNS:authority");
  const test::TestCertificate authority("DNS:authority");
  const test::TestCertificate signer("DNS:signer", &authority);
  const test::TestCertificate expired("DNS:signer", &authority, -1800);
  for (const Kind& kind :
       {Kind{"brainpoolP256r1", true, false, false, "SHA1"}, Kind{nullptr, false, false, true, "SHA224"},
        Kind{nullptr, false, true, false, "SHA512"}, Kind{"brainpoolP512r1", false, false, false, "SHA384"}}) {
    SCOPED_TRACE(kind.digest);
    const Owned<EVP_PKEY> key(kind.curve == nullptr ? EVP_RSA_gen(2048) : EVP_EC_gen(kind.curve), EVP_PKEY_free);
    if (kind.explicitCurve) EVP_PKEY_set_utf8_string_param(key.get(), OSSL_PKEY_PARAM_EC_ENCODING, "explicit");
    for (const auto* certificate : {&authority, &signer, &expired}) {
      X509_set_pubkey(certificate->certificate.get(), key.get());
      X509_sign(certificate->certificate.get(), key.get(), EVP_sha256());
    }
    const auto verdict = [&](const test::TestCertificate& by, const TrustAnchors& anchors) {
      const auto group = DataGroup::parse(test::dataGroup1());
      NFCPassportModel model;
      model.add(group);
      model.add(DataGroup::parse(signedObject(group->data(), by.certificate.get(), key.get(), kind)));
      return summary(authenticate(model, anchors));
    };
    const Data sameName = encoded(stranger.certificate.get());
    const Data right = encoded(authority.certificate.get());
    EXPECT_EQ(verdict(signer, {sameName, right}), "trusted sod=read signature=valid chain=trusted DG1=hash_match");
    EXPECT_EQ(verdict(signer, {sameName}).find("chain=trusted"), std::string::npos);
    EXPECT_EQ(verdict(expired, {right}), "not trusted sod=read signature=valid !chain=outside_validity DG1=hash_match");
  }
}

}  // namespace
}  // namespace tavlo::reader
