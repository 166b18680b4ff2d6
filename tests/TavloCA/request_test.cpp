#include <TavloCA/TavloCA.hpp>
#include <TavloCA/TavloCA.internal.hpp>

#include <Foundation/Hex.hpp>
#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <gtest/gtest.h>

#include "support/Documents.hpp"
#include "support/Printed.hpp"
#include "support/StandIns.hpp"

#include <cmath>

namespace tavlo {
namespace {

using namespace foundation;

struct SecretKey final : security::SecKey {
  [[nodiscard]] Data data() const override { throw security::SecurityError("not given out"); }
};

uikit::UIImage smallPicture() {
  const Data pixels{255, 0, 0, 0, 255, 0};
  return uikit::UIImage::fromPixels(pixels, 2, 1, 6, uikit::PixelFormat::rgb);
}

class Request : public testing::Test {
 protected:
  JSONObject build(const DataGroups& groups, const uikit::UIImage& selfie, const security::SecKey& key) {
    const auto body = TavloCA::verificationObject(groups, selfie, key);
    EXPECT_TRUE(body);
    body_ = body.value_or(Data{});
    return toJSON(textOf(body_)).value_or(JSONObject{});
  }

  StandIn<uikit::UIDevice> device_{std::make_shared<test::FakeDevice>("12.1", "Kiosk 7")};
  test::Printed printed_;
  test::Logged logged_;
  Data body_;
};

TEST_F(Request, HoldsWhatWasReadUnderItsName) {
  const std::pair<Data, const char*> rows[] = {{test::com(Data{0x61, 0x75}), "COM"},
                                               {test::dataGroup1(), "DG1"},
                                               {test::dataGroup2(*UIImagePNGRepresentation(smallPicture())), "DG2"},
                                               {test::opaqueGroup(0x63), nullptr},
                                               {test::opaqueGroup(0x76), nullptr},
                                               {test::dataGroup7(*UIImagePNGRepresentation(smallPicture())), "DG7"},
                                               {test::opaqueGroup(0x6E), "DG14"},
                                               {test::opaqueGroup(0x6F), "DG15"},
                                               {test::opaqueGroup(0x77), "SOD"}};
  DataGroups groups;
  JSONObject doc;
  for (const auto& [file, key] : rows) {
    groups.push_back(reader::DataGroup::parse(file));
    if (key != nullptr) doc[key] = toHexString(file);
  }
  EXPECT_EQ(build(groups, smallPicture(), test::FakeKey()),
            (JSONObject{
                {"version", "1.0"},
                {"doc", doc},
                {"biometry", JSONObject{{"selfie", common::base64UrlEncodedPNG(smallPicture()).value()}}},
                {"signing", JSONObject{{"mdlPublicKey", "04ab"}}},
                {"device",
                 JSONObject{{"os", "iOS"}, {"os_version", "12.1"}, {"manufacturer", "Apple"}, {"model", "Kiosk 7"}}},
                {"performance", JSONObject{}},
            }));
  EXPECT_EQ(printed_.lines(), (std::vector<std::string>{toHexString(rows[0].first), std::string(textOf(body_))}));
  EXPECT_EQ(logged_.take(),
            (std::vector<std::string>{"error: DataGroup not supported", "error: DataGroup not supported"}));
}

/// Groups that an app derives, which give other bytes than the file.
struct EmptyDataGroup1 final : reader::DataGroup1 {
  EmptyDataGroup1() : DataGroup1(test::dataGroup1()) {}
  [[nodiscard]] const Data& data() const override { return nothing_; }

 private:
  Data nothing_;
};

TEST_F(Request, LastGroupOfAClassWinsAndAnEmptyOneIsPresent) {
  const auto first = reader::DataGroup::parse(test::dataGroup1());
  const auto second = std::make_shared<EmptyDataGroup1>();
  EXPECT_EQ(*build({second, first}, {}, test::FakeKey()).at("doc").member("DG1"),
            JSONValue(toHexString(first->data())));
  EXPECT_EQ(*build({first, second}, {}, test::FakeKey()).at("doc").member("DG1"), JSONValue(""));
}

TEST_F(Request, LeavesOutWhatHasNoForm) {
  const StandIn<uikit::UIDevice> unknown(std::make_shared<test::FakeDevice>("12"));
  EXPECT_EQ(build({}, uikit::UIImage(), SecretKey()),
            (JSONObject{{"version", "1.0"},
                        {"doc", JSONObject{}},
                        {"biometry", JSONObject{}},
                        {"signing", JSONObject{}},
                        {"device", JSONObject{{"os", "iOS"}, {"os_version", "12"}, {"manufacturer", "Apple"}}},
                        {"performance", JSONObject{}}}));
}

/// The JSON of a record that was read from `json`.
template <class Record>
std::string again(std::string_view json) {
  return std::string(textOf(JSONEncoder().encode(JSONDecoder().decode<Record>(dataOf(json)))));
}

TEST_F(Request, RecordsAreReadBackByTheirRules) {
  const std::string empty = R"({"doc":{},"biometry":{},"signing":{},"device":{},"performance":{}})";
  EXPECT_EQ(again<Verification>(empty), empty);
  for (const char* key : {"doc", "biometry", "signing", "device", "performance"}) {
    JSONObject without = *toJSON(empty);
    without.erase(key);
    const auto json = JSONEncoder().encode(JSONValue(without));
    EXPECT_THROW(again<Verification>(textOf(json)), DecodingError) << key;
  }
  const std::string timed = R"({"dgreadtime":{"COM":0.25,"SOD":2},"instrumentation":"x"})";
  EXPECT_EQ(again<Performance>(timed), timed);
  EXPECT_EQ(again<Document>(R"({"COM":null,"DG17":1})"), "{}");
  EXPECT_THROW(again<Document>(R"({"DG7":7})"), DecodingError);

  EXPECT_EQ(again<DocumentMeta>(R"({"gender":"F","nationality":null,"other":1})"), R"({"gender":"F"})");
  EXPECT_THROW(again<DocumentMeta>(R"({"nationality":1})"), DecodingError);
  for (const char* json : {"{}", R"({"data":"x"})"}) EXPECT_EQ(again<Instrumentation>(json), json);
  for (const char* json : {"{}", R"({"meta":{}})"}) EXPECT_EQ(again<APDU>(json), json);
  APDU envelope{"1", "2", "3", Document(), DocumentMeta("5", "6", "7", "8", "9", "10"), "11"};
  envelope.passport->DG1 = "4";
  const std::string full =
      R"({"type":"1","version":"2","selfie":"3","passport":{"DG1":"4"},"meta":{"documentType":"5",)"
      R"("documentSubType":"6","documentExpiryDate":"7","dateOfBirth":"8","gender":"9","nationality":"10"},"csr":"11"})";
  EXPECT_EQ(textOf(JSONEncoder().encode(envelope)), full);
  EXPECT_EQ(again<APDU>(full), full);

  Performance unwritable;
  unwritable.dgreadtime.emplace().DG2 = NAN;
  EXPECT_THROW((void)JSONEncoder().encode(unwritable), EncodingError);
}

template <class T>
constexpr bool isPlainShape = std::is_aggregate_v<T> && !HasMembers<T> && !EncodesItself<T>;
static_assert(isPlainShape<VerificationResponse> && isPlainShape<VerificationStatus> && isPlainShape<Signature>);

}  // namespace
}  // namespace tavlo
