#include <TavloCA/CAError.hpp>
#include <TavloCA/CredentialDocument.hpp>

#include <Foundation/Bundle.hpp>
#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <gtest/gtest.h>

#include "support/Documents.hpp"
#include "support/StandIns.hpp"
#include "support/TemporaryFolder.hpp"

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
  const test::TemporaryFolder folder_;
};

TEST_F(Document, ChildrenComeBackAsBaseRecordsAndACycleOrMalformedTextGivesNoJSON) {
  const std::string placeholder =
      R"({"documentType":"P","documentNumber":"","nationality":"","lastName":"Dannqvist","firstName":"Brenu",)"
      R"("dateOfBirth":"700101","gender":"M","documentExpiryDate":"","children":[]})";
  const auto parent = make<Passport>();
  parent->setChildren({make<Passport>()});
  EXPECT_EQ(parent->json()->at("children"), (JSONArray{*toJSON(placeholder)}));
  const auto again = documentFrom<Passport>(jsonOf(*parent))->children();
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(dynamic_cast<Passport*>(again.front().get()), nullptr);
  EXPECT_EQ(jsonOf(*again.front()), placeholder);

  parent->setChildren({parent});
  EXPECT_THROW((void)JSONEncoder().encode(*parent), EncodingError);
  EXPECT_EQ(parent->json(), std::nullopt);
  parent->setChildren({});
  parent->setGender("\xFF");
  EXPECT_EQ(parent->json(), std::nullopt);
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
  for (const auto* part : {"documentType nil ", "portraitFilename Optional(\"abc.png\") ",
                           R"(Request Optional("\"\\\n\r\t\0\u{05}\u{7F}'å") )"}) {
    EXPECT_NE(inner.find(part), std::string::npos) << inner;
  }

  const auto parent = make<Passport>();
  parent->setChildren({document, document});
  EXPECT_TRUE(parent->description().ends_with(" children [" + inner + ", " + inner + "] "));
}

/// Writes down each step that goes through an accessor of its own as "field value|".
template <class Base>
struct Recorder : Base {
  using Base::Base;
  using Text = std::optional<std::string>;
  std::string steps;
  void setDocumentType(std::optional<DocumentType> value) override { note("type", value ? rawValue(*value) : "nil"); }
  void setDocumentNumber(std::string value) override { note("number", value); }
  void setNationality(std::string value) override { note("nationality", value); }
  void setLastName(std::string value) override { note("last", value); }
  void setFirstName(std::string value) override { note("first", value); }
  void setDateOfBirth(std::string value) override { note("birth", value); }
  void setGender(std::string value) override { note("gender", value); }
  void setDocumentExpiryDate(std::string value) override { note("expiry", value); }
  void setPortraitFilename(Text value) override { note("portrait", value.value_or("nil")); }
  void setSignatureFilename(Text value) override { note("signature", value.value_or("nil")); }
  void setChildren(CredentialDocument::Children value) override { note("children", std::to_string(value.size())); }
  [[nodiscard]] std::string gender() const override { return "own"; }
  void note(std::string_view field, std::string_view value) { steps.append(field).append(" ").append(value) += '|'; }
};

constexpr auto placeholderSteps =
    "portrait nil|signature nil|first Brenu|last Dannqvist|type P|number |nationality |birth 700101|gender M|expiry |";

TEST_F(Document, InitialisersWriteThroughTheAccessorsInOrder) {
  EXPECT_EQ(make<Recorder<Passport>>()->steps, placeholderSteps);
  for (const bool flag : {true, false}) {
    images_->images.clear();
    EXPECT_EQ(make<Recorder<Passport>>(IsDemo{flag})->steps,
              "portrait image-1|signature image-2|first Sven|last Svensson|type P|number 12345678|nationality SWE|"
              "birth 700101|gender M|expiry 200101|");
  }
  const auto decoded = documentFrom<Recorder<Passport>>(jsonOf(*make<Passport>(IsDemo{})));
  decoded->modifyGender([](std::string& gender) { gender += "!"; });
  EXPECT_EQ(decoded->steps,
            "type P|number 12345678|nationality SWE|last Svensson|first Sven|birth 700101|gender M|expiry 200101|"
            "portrait image-3|signature image-4|children 0|gender own!|");
  EXPECT_EQ(decoded->json()->at("gender"), JSONValue("own")) << "encoding reads through the accessors";
  EXPECT_NE(decoded->description().find("gender own "), std::string::npos);
  const auto demo = make<Passport>(IsDemo{}), other = make<Passport>(IsDemo{});
  EXPECT_TRUE(demo->isSigned() && demo->isLocked() && demo->isValid() && !demo->isExpired() && !demo->isBlocked());
  EXPECT_TRUE(*demo == *demo && demo->hash() == demo->hash() && !(*demo == *other));
}

TEST_F(Document, FromAModelTakesTextsKindAndPictures) {
  const auto modelOf = [](std::initializer_list<Data> files) {
    reader::NFCPassportModel model;
    for (const Data& file : files) model.add(reader::DataGroup::parse(file));
    return model;
  };
  const auto stepsOf = [](const auto& model) { return make<Recorder<Passport>>(model)->steps; };
  const std::string texts = "|nationality UTO|last ERIKSSON|first ANNA MARIA|birth 740812|expiry 120415|gender F|type ";
  std::string twoLetters(test::exampleTD3);
  twoLetters[1] = 'P';
  EXPECT_EQ(stepsOf(modelOf({test::dataGroup1()})), "number L898902C3" + texts + "P|");
  EXPECT_EQ(stepsOf(modelOf({test::dataGroup1(twoLetters)})), "number L898902C3" + texts + "nil|");

  const auto model =
      modelOf({test::dataGroup1(test::exampleTD1), test::dataGroup2(greyPNG(10)), test::dataGroup7(greyPNG(20))});
  EXPECT_EQ(stepsOf(model), "number D23145890" + texts + "I|portrait image-1|signature image-2|");
  const auto passport = make<Passport>(model);
  EXPECT_EQ(passport->image().value().pixels()[0], 10);
  EXPECT_EQ(passport->signature().value().pixels()[0], 20);
  images_->broken = true;
  EXPECT_EQ(stepsOf(model), "number D23145890" + texts + "I|portrait nil|signature nil|");
}

TEST_F(Document, ACertificateRestsOnWhatThePassportGives) {
  struct Holder final : Passport {
    using Passport::Passport;
    [[nodiscard]] std::string firstName() const override { return "Eva"; }
  };
  struct Certificate final : Recorder<CertificationDocument> {
    using Recorder::Recorder;
    void setIssuerLogoFilename(Text /*value*/) override { note("logo", ""); }
    void setIssuedAt(Date /*value*/) override { note("issued", ""); }
  };
  const auto passport = make<Holder>(IsDemo{});
  const std::string ownSteps =
      "signature image-2|first Eva|last Svensson|type H|number X47568723B|nationality ES|birth 700101|gender M|"
      "expiry 201121|";
  EXPECT_EQ(make<Certificate>(*passport)->steps, placeholderSteps + ("portrait image-3|" + ownSteps));

  const auto before = std::chrono::system_clock::now();
  const auto bare = make<CertificationDocument>(*passport);
  EXPECT_TRUE(before <= bare->issuedAt() && bare->issuedAt() <= std::chrono::system_clock::now());
  EXPECT_EQ(bare->issuerLogoFilename(), std::nullopt);
  EXPECT_EQ(images_->images.size(), 4U) << "a portrait for each, and no logo";
  EXPECT_TRUE(std::ranges::equal(bare->image().value().pixels(), passport->image().value().pixels()));

  writePrivately(folder_ / "corona.png", greyPNG(40));
  const auto mainBundle = Bundle::installMain(std::make_shared<FolderBundle>(folder_.path()));
  const auto certificate = make<CertificationDocument>(*passport);
  Bundle::installMain(mainBundle);
  EXPECT_EQ(certificate->issuerLogoFilename(), "image-6");
  EXPECT_EQ(certificate->icon().value().pixels()[0], 40);
  certificate->setPassport(passport);
  EXPECT_EQ(jsonOf(*certificate),
            R"({"documentType":"H","documentNumber":"X47568723B","nationality":"ES","lastName":"Svensson",)"
            R"("firstName":"Eva","dateOfBirth":"700101","gender":"M","documentExpiryDate":"201121",)"
            R"("portraitFilename":"image-5","signatureFilename":"image-2","children":[]})");
  EXPECT_EQ(documentFrom<Passport>(jsonOf(*certificate))->description(), certificate->description());
}

TEST_F(Document, ImagesFallBackToTheNameAsAPathAndTellWhatIsMissing) {
  using Messages = std::vector<std::string>;
  const Messages noName{"error: portraitFilename == nil", "warning: no signatureFilename", "error: issuerLogo == nil"};
  const Messages noData(3, "error: Could not get data");
  writePrivately(folder_ / "picture", greyPNG(30));
  writePrivately(folder_ / "text", dataOf("no image"));
  const auto document = make<CertificationDocument>(*make<Passport>());
  const std::tuple<std::optional<std::string>, bool, Messages> rows[] = {
      {std::nullopt, false, noName}, {folder_ / "picture", true, {}},
      {folder_ / "text", false, {}}, {"image-7", false, noData},
      {"", false, noData},           {folder_.path(), false, noData}};
  for (const auto& [name, isFound, messages] : rows) {
    const test::Logged logged;
    document->setPortraitFilename(name);
    document->setSignatureFilename(name);
    document->setIssuerLogoFilename(name);
    for (const auto& picture : {document->image(), document->signature(), document->icon()}) {
      EXPECT_EQ(picture.has_value(), isFound) << name.value_or("nil");
    }
    EXPECT_EQ(logged.lines(), messages);
  }
}

TEST(DocumentDeathTest, ProgrammingErrorsEndTheProcessWithAReport) {
  const auto dies = [](const std::function<void()>& statement, const std::string& message) {
    EXPECT_EXIT(statement(), testing::KilledBySignal(SIGABRT),
                "^Fatal error: " + message + ": file CredentialDocument\n");  // an emulator adds a line
  };
  using Certificate = CertificationDocument;
  const std::string unfit = "Use of unimplemented initialiser ", ofClass = " of class TavloCA.CertificationDocument";
  dies([] { (void)make<Certificate>(); }, unfit + "init\\(\\)" + ofClass);
  dies([] { (void)make<Certificate>(IsDemo{}); }, unfit + "init\\(isDemo:\\)" + ofClass);
  dies([] { (void)make<Certificate>(reader::NFCPassportModel()); }, unfit + "init\\(model:\\)" + ofClass);
  dies([] { (void)documentFrom<Certificate>("{}"); },
       "init\\(from:\\) has not been implemented by class TavloCA.CertificationDocument");

  const std::string missing = "Unexpectedly found nil while unwrapping an Optional value";
  const auto blank = make<Passport>();
  Bundle::installOfLibrary("TavloCA", std::make_shared<FolderBundle>("/nowhere"));
  dies([] { (void)make<Passport>(IsDemo{}); }, missing);
  dies([&] { (void)make<CertificationDocument>(*blank); }, missing);
  Bundle::installOfLibrary("TavloCA", nullptr);
  EXPECT_EQ(make<Passport>(IsDemo{})->firstName(), "Sven") << "the library's own pictures are back";
}

}  // namespace
}  // namespace tavlo
