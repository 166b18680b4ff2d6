#include <TavloCA/CAError.hpp>
#include <TavloCA/CredentialDocument.hpp>

#include <Foundation/Bundle.hpp>
#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <gtest/gtest.h>

#include "support/Documents.hpp"
#include "support/StandIns.hpp"
#include "support/TemporaryFolder.hpp"

#include <set>
#include <string>
#include <tuple>

namespace tavlo {
namespace {

using namespace foundation;

std::string jsonOf(const CredentialDocument& document) {
  return std::string(textOf(JSONEncoder().encode(document)));
}

template <class T>
std::shared_ptr<T> documentFrom(std::string_view json) {
  return JSONDecoder().decode<std::shared_ptr<T>>(dataOf(json));
}

Data greyPNG(std::uint8_t level) {
  return *UIImagePNGRepresentation(uikit::UIImage::fromPixels(Data(3, level), 1, 1, 3, uikit::PixelFormat::rgb));
}

class Document : public testing::Test {
 protected:
  std::shared_ptr<test::FakeImageStore> images_ = std::make_shared<test::FakeImageStore>();
  StandIn<common::ImageStore> imagesStandIn_{images_};
  test::Logged logged_;
};

constexpr std::string_view placeholderJSON =
    R"({"documentType":"P","documentNumber":"","nationality":"","lastName":"Dannqvist","firstName":"Brenu",)"
    R"("dateOfBirth":"700101","gender":"M","documentExpiryDate":"","children":[]})";

constexpr std::string_view fullJSON =
    R"({"documentType":"A","documentNumber":"1","nationality":"2","lastName":"3","firstName":"4","dateOfBirth":"5",)"
    R"("gender":"6","documentExpiryDate":"7","portraitFilename":"8","signatureFilename":"9",)"
    R"("certificateSigningRequest":"10","children":[{"documentNumber":"c","nationality":"","lastName":"","firstName":"",)"
    R"("dateOfBirth":"","gender":"","documentExpiryDate":"","children":[]}]})";

TEST_F(Document, CodesItsTwelveMembersInOrder) {
  EXPECT_EQ(jsonOf(*make<CredentialDocument>()), placeholderJSON);
  for (const std::string_view json : {placeholderJSON, fullJSON}) {
    EXPECT_EQ(jsonOf(*documentFrom<CredentialDocument>(json)), json);
    EXPECT_EQ(jsonOf(*documentFrom<Passport>(json)), json) << "no marker of the subclass";
  }
}

TEST_F(Document, DecodingTellsRequiredFromOptionalMembers) {
  const std::set<std::string> optional{"documentType", "portraitFilename", "signatureFilename",
                                       "certificateSigningRequest"};
  const auto isAccepted = [](JSONObject members) {
    try {
      return JSONDecoder().decode<std::shared_ptr<Passport>>(JSONEncoder().encode(JSONValue(std::move(members)))) !=
             nullptr;
    } catch (const DecodingError&) {
      return false;
    }
  };
  const JSONObject full = *toJSON(fullJSON);
  for (const auto& [key, value] : full) {
    JSONObject members = full;
    for (const JSONValue& other : {JSONValue(1), JSONValue("X"), JSONValue()}) {
      members[key] = other;
      const bool isText = other == JSONValue("X") && key != "documentType" && key != "children";
      EXPECT_EQ(isAccepted(members), isText || (other.isNull() && optional.contains(key))) << key;
    }
    members.erase(key);
    EXPECT_EQ(isAccepted(members), optional.contains(key)) << key;
  }
}

TEST_F(Document, ChildrenComeBackAsBaseRecords) {
  const auto parent = make<CredentialDocument>();
  parent->modifyChildren([](auto& children) { children.push_back(make<Passport>()); });
  const auto again = documentFrom<Passport>(jsonOf(*parent));
  ASSERT_EQ(again->children().size(), 1U);
  EXPECT_EQ(dynamic_cast<Passport*>(again->children().front().get()), nullptr);
  EXPECT_EQ(jsonOf(*again->children().front()), placeholderJSON);

  EXPECT_EQ(parent->json()->at("children"), (JSONArray{*toJSON(placeholderJSON)}));
}

TEST_F(Document, ACycleOrMalformedTextGivesNoJSON) {
  const auto document = make<CredentialDocument>();
  document->setChildren({document});
  EXPECT_THROW((void)JSONEncoder().encode(*document), EncodingError);
  EXPECT_EQ(document->json(), std::nullopt);
  document->setChildren({});
  document->setGender("\xFF");
  EXPECT_EQ(document->json(), std::nullopt);
}

TEST_F(Document, DescribesItselfInOneLine) {
  const auto document = make<CredentialDocument>();
  EXPECT_EQ(document->description(),
            "CredentialDocument: documentType Optional(TavloCA.DocumentType.P) documentNumber  nationality  lastName "
            "Dannqvist firstName Brenu dateOfBirth 700101 gender M documentExpiryDate  portraitFilename nil "
            "signatureFilename nil certificateSigningRequest nil children [] ");
  document->setDocumentType(std::nullopt);
  document->setPortraitFilename("abc.png");
  document->setCertificateSigningRequest(std::string("\"\\\n\r\t\0\x05\x7F'\xC3\xA5", 11));
  const auto inner = document->description();
  EXPECT_NE(inner.find("documentType nil "), std::string::npos);
  EXPECT_NE(inner.find("portraitFilename Optional(\"abc.png\") "), std::string::npos);
  EXPECT_NE(inner.find("Request Optional(\"\\\"\\\\\\n\\r\\t\\0\\u{05}\\u{7F}'\xC3\xA5\") "), std::string::npos);

  const auto parent = make<Passport>();
  parent->setChildren({document, document});
  EXPECT_TRUE(parent->description().ends_with(" children [" + inner + ", " + inner + "] "));
}

/// Writes down each step that goes through an accessor of its own as "field value|".
struct Recorder : Passport {
  using Passport::Passport;
  std::string steps;

  void setDocumentType(std::optional<DocumentType> value) override { note("type", value ? "set" : "nil"); }
  void setDocumentNumber(std::string value) override { note("number", value); }
  void setNationality(std::string value) override { note("nationality", value); }
  void setLastName(std::string value) override { note("last", value); }
  void setFirstName(std::string value) override { note("first", value); }
  void setDateOfBirth(std::string value) override { note("birth", value); }
  void setGender(std::string value) override { note("gender", value); }
  void setDocumentExpiryDate(std::string value) override { note("expiry", value); }
  void setPortraitFilename(std::optional<std::string> value) override { note("portrait", value.value_or("nil")); }
  void setSignatureFilename(std::optional<std::string> value) override { note("signature", value.value_or("nil")); }
  void setChildren(Children value) override { note("children", std::to_string(value.size())); }
  [[nodiscard]] std::string gender() const override { return "own"; }
  void note(const std::string& field, const std::string& value) { steps += field + " " + value + "|"; }
};

TEST_F(Document, InitialisersWriteThroughTheAccessorsInOrder) {
  EXPECT_EQ(make<Recorder>()->steps,
            "portrait nil|signature nil|first Brenu|last Dannqvist|type set|number |nationality |birth 700101|gender M|"
            "expiry |");
  for (const bool flag : {true, false}) {
    images_->images.clear();
    EXPECT_EQ(make<Recorder>(IsDemo{flag})->steps,
              "portrait image-1|signature image-2|first Sven|last Svensson|type set|number 12345678|nationality SWE|"
              "birth 700101|gender M|expiry 200101|");
  }
  reader::NFCPassportModel model;
  model.add(reader::DataGroup::parse(test::dataGroup1()));
  EXPECT_EQ(
      make<Recorder>(model)->steps,
      "number L898902C3|nationality UTO|last ERIKSSON|first ANNA MARIA|birth 740812|expiry 120415|gender F|type set|")
      << "without pictures nothing is kept";
  EXPECT_EQ(images_->images.size(), 2U);

  const auto decoded = documentFrom<Recorder>(fullJSON);
  EXPECT_EQ(
      decoded->steps,
      "type set|number 1|nationality 2|last 3|first 4|birth 5|gender 6|expiry 7|portrait 8|signature 9|children 1|");
  EXPECT_EQ(decoded->json()->at("gender"), JSONValue("own")) << "encoding reads through the accessors";
  EXPECT_NE(decoded->description().find("gender own "), std::string::npos);
}

TEST_F(Document, FromAModelTakesTheKindAndThePictures) {
  const auto modelOf = [](std::initializer_list<Data> files) {
    reader::NFCPassportModel model;
    for (const Data& file : files) model.add(reader::DataGroup::parse(file));
    return model;
  };
  const auto model =
      modelOf({test::dataGroup1(test::exampleTD1), test::dataGroup2(greyPNG(10)), test::dataGroup7(greyPNG(20))});
  const auto passport = make<Passport>(model);
  EXPECT_EQ(passport->documentType(), DocumentType::I);
  EXPECT_EQ(passport->image().value().pixels()[0], 10);
  EXPECT_EQ(passport->signature().value().pixels()[0], 20);

  images_->broken = true;
  const auto unkept = make<Passport>(model);
  EXPECT_EQ(unkept->portraitFilename(), std::nullopt);
  EXPECT_EQ(unkept->documentNumber(), "D23145890");

  std::string twoLetters(test::exampleTD3);
  twoLetters[1] = 'P';
  EXPECT_EQ(make<Passport>(modelOf({test::dataGroup1(twoLetters)}))->documentType(), std::nullopt);
}

TEST_F(Document, ImagesFallBackToTheNameAsAPathAndTellWhatIsMissing) {
  using Messages = std::vector<std::string>;
  const Messages noData{"error: Could not get data"};
  const test::TemporaryFolder folder;
  writePrivately(folder / "picture", greyPNG(30));
  writePrivately(folder / "text", dataOf("no image"));
  const auto document = make<CredentialDocument>();
  const std::tuple<std::optional<std::string>, bool, Messages, Messages> rows[] = {
      {std::nullopt, false, {"error: portraitFilename == nil"}, {"warning: no signatureFilename"}},
      {(folder / "picture").string(), true, {}, {}},
      {(folder / "text").string(), false, {}, {}},
      {"image-7", false, noData, noData},
      {"", false, noData, noData},
      {folder.path().string(), false, noData, noData},
  };
  for (const auto& [name, found, messages, signatureMessages] : rows) {
    document->setPortraitFilename(name);
    document->setSignatureFilename(name);
    EXPECT_EQ(document->image().has_value(), found) << name.value_or("nil");
    EXPECT_EQ(logged_.take(), messages);
    EXPECT_EQ(document->signature().has_value(), found) << name.value_or("nil");
    EXPECT_EQ(logged_.take(), signatureMessages);
  }
}

TEST_F(Document, FlagsAreConstantsAndEqualityIsIdentity) {
  const auto demo = make<Passport>(IsDemo{}), other = make<Passport>(IsDemo{});
  EXPECT_FALSE(demo->isExpired() || demo->isBlocked());
  EXPECT_TRUE(demo->isSigned() && demo->isLocked() && demo->isValid());
  EXPECT_TRUE(*demo == *demo && demo->hash() == demo->hash());
  EXPECT_FALSE(*demo == *other);
}

TEST(DocumentDeathTest, DemoEndsTheProcessWithoutTheLibrarysImages) {
  Bundle::installOfLibrary("TavloCA", std::make_shared<FolderBundle>("/nowhere"));
  EXPECT_EXIT((void)make<Passport>(IsDemo{}), testing::KilledBySignal(SIGABRT),
              "^Fatal error: Unexpectedly found nil while unwrapping an Optional value: file CredentialDocument");
  Bundle::installOfLibrary("TavloCA", nullptr);
}

}  // namespace
}  // namespace tavlo
