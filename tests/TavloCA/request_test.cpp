#include <TavloCA/TavloCA.internal.hpp>

#include <Foundation/Hex.hpp>
#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "support/Documents.hpp"
#include "support/Errors.hpp"
#include "support/StandIns.hpp"

namespace tavlo {
namespace {

using namespace foundation;
using Lines = std::vector<std::string>;

struct SecretKey final : security::SecKey {
  [[nodiscard]] Data data() const override { throw security::SecurityError("not given out"); }
};

class Request : public testing::Test {
 protected:
  JSONObject build(const DataGroups& groups, const uikit::UIImage& selfie, const security::SecKey& key) {
    body_ = TavloCA::verificationObject(groups, selfie, key).value();
    return toJSON(textOf(body_)).value();
  }

  StandIn<uikit::UIDevice> device_{std::make_shared<test::FakeDevice>("12.1", "Kiosk 7")};
  test::Printed printed_;
  test::Logged logged_;
  Data body_;
};

TEST_F(Request, HoldsWhatWasReadUnderItsName) {
  const std::pair<Data, const char*> rows[] = {
      {test::com(Data{0x61, 0x75}), "COM"}, {test::dataGroup1(), "DG1"},        {test::dataGroup2(Data{1}), "DG2"},
      {test::opaqueGroup(0x63), nullptr},   {test::opaqueGroup(0x76), nullptr}, {test::dataGroup7(Data{2}), "DG7"},
      {test::opaqueGroup(0x6E), "DG14"},    {test::opaqueGroup(0x6F), "DG15"},  {test::opaqueGroup(0x77), "SOD"}};
  DataGroups groups;
  JSONObject doc;
  for (const auto& [file, key] : rows) {
    groups.push_back(reader::DataGroup::parse(file));
    if (key != nullptr) doc[key] = toHexString(file);
  }
  const auto selfie = uikit::UIImage::fromPixels(Data{255, 0, 0, 0, 255, 0}, 2, 1, 6, uikit::PixelFormat::rgb);
  auto expected = *toJSON(R"({"version":"1.0","signing":{"mdlPublicKey":"04ab"},"performance":{},"device":)"
                          R"({"os":"iOS","os_version":"12.1","manufacturer":"Apple","model":"Kiosk 7"}})");
  expected["doc"] = doc;
  expected["biometry"] = JSONObject{{"selfie", common::base64UrlEncodedPNG(selfie).value()}};
  EXPECT_EQ(build(groups, selfie, test::FakeKey()), expected);
  EXPECT_EQ(printed_.lines(), (Lines{toHexString(rows[0].first), std::string(textOf(body_))}));
  EXPECT_EQ(logged_.lines(), Lines(2, "error: DataGroup not supported"));
}

/// A group that an app derives, which gives other bytes than the file.
struct EmptyDataGroup1 final : reader::DataGroup1 {
  using DataGroup1::DataGroup1;
  [[nodiscard]] const Data& data() const override { return nothing; }
  const Data nothing{};
};

TEST_F(Request, TakesTheLastGroupOfAClassAndLeavesOutWhatHasNoForm) {
  const auto first = reader::DataGroup::parse(test::dataGroup1());
  const auto second = std::make_shared<EmptyDataGroup1>(test::dataGroup1());
  const StandIn<uikit::UIDevice> unknown(std::make_shared<test::FakeDevice>("12"));
  EXPECT_EQ(build({second, first}, {}, SecretKey()).at("doc"), (JSONObject{{"DG1", toHexString(first->data())}}));
  EXPECT_EQ(build({first, second}, {}, SecretKey()).at("doc"), (JSONObject{{"DG1", ""}}));
  (void)build({}, {}, SecretKey());
  EXPECT_EQ(textOf(body_), R"({"version":"1.0","doc":{},"biometry":{},"signing":{},)"
                           R"("device":{"os":"iOS","os_version":"12","manufacturer":"Apple"},"performance":{}})");
}

/// The JSON of a record that was read from `json`.
template <class Record>
std::string again(std::string_view json) {
  return std::string(textOf(JSONEncoder().encode(JSONDecoder().decode<Record>(dataOf(json)))));
}

/// Expects that a record has just the members of `json`, that it can be without each that is not `required` and takes
/// null for its absence, and that it takes no other kind of value.
template <class Record>
void expectRules(const std::string& json, const std::set<std::string>& required = {}) {
  EXPECT_EQ(again<Record>(json), json);
  const JSONObject full = *toJSON(json);
  for (const auto& [key, value] : full) {
    const JSONValue wrong = value.template getIf<std::string>() == nullptr ? JSONValue("7") : JSONValue(7);
    for (const auto& other : {std::optional<JSONValue>(), {JSONValue()}, {wrong}}) {
      JSONObject members = full;
      members.erase(key);
      if (other) members[key] = *other;
      const Data text = JSONEncoder().encode(JSONValue(members));
      const auto error = test::errorOf<DecodingError>([&] { return again<Record>(textOf(text)); });
      EXPECT_EQ(error.has_value(), other == wrong || required.contains(key)) << textOf(text);
    }
  }
}

TEST(Records, AreWrittenInTheirOrderAndReadByTheirRules) {
  expectRules<Verification>(R"({"version":"1","doc":{},"biometry":{},"signing":{},"device":{},"performance":{}})",
                            {"doc", "biometry", "signing", "device", "performance"});
  expectRules<Performance>(R"({"dgreadtime":{"COM":0.25,"SOD":2},"instrumentation":"x"})");
  expectRules<Instrumentation>(R"({"data":"x"})");
  const std::string groups =
      R"({"COM":"0","DG1":"1","DG2":"2","DG3":"3","DG4":"4","DG5":"5","DG6":"6","DG7":"7","DG8":"8","DG9":"9",)"
      R"("DG10":"10","DG11":"11","DG12":"12","DG13":"13","DG14":"14","DG15":"15","DG16":"16","SOD":"17"})";
  const std::string meta = R"({"documentType":"5","documentSubType":"6","documentExpiryDate":"7","dateOfBirth":"8",)"
                           R"("gender":"9","nationality":"10"})";
  expectRules<Document>(groups);
  expectRules<DocumentMeta>(meta);
  EXPECT_EQ(textOf(JSONEncoder().encode(DocumentMeta("5", "6", "7", "8", "9", "10"))), meta);
  expectRules<APDU>(R"({"type":"1","version":"2","selfie":"3","passport":{"DG1":"4"},"meta":)" + meta +
                    R"(,"csr":"11"})");
  expectRules<std::shared_ptr<Passport>>(
      R"({"documentType":"A","documentNumber":"1","nationality":"2","lastName":"3","firstName":"4","dateOfBirth":"5",)"
      R"("gender":"6","documentExpiryDate":"7","portraitFilename":"8","signatureFilename":"9",)"
      R"("certificateSigningRequest":"10","children":[]})",
      {"documentNumber", "nationality", "lastName", "firstName", "dateOfBirth", "gender", "documentExpiryDate",
       "children"});

  Performance unwritable;
  unwritable.dgreadtime.emplace().DG2 = NAN;
  EXPECT_THROW((void)JSONEncoder().encode(unwritable), EncodingError);
}

template <class T>
constexpr bool isPlainShape = std::is_aggregate_v<T> && !HasMembers<T> && !EncodesItself<T>;
static_assert(isPlainShape<VerificationResponse> && isPlainShape<VerificationStatus> && isPlainShape<Signature>);

}  // namespace
}  // namespace tavlo
