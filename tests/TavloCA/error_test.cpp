#include <TavloCA/CAError.hpp>
#include <TavloCA/DocumentType.hpp>

#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <gtest/gtest.h>

namespace tavlo {

using namespace foundation;

TEST(Texts, OfErrorsHaveAPrefixForEachConstruction) {
  CAError error(CAError("x").message);
  EXPECT_EQ(error.message, "CAError: CAError: x");
  error.message = "y";
  EXPECT_EQ(error.description() + error.what(), "yy");
}

TEST(Texts, ToJSONGivesTheMembersOfAnObjectOnly) {
  EXPECT_EQ(toJSON(R"({"a":[1,{"b":null}],"a":2,"c":true})"),
            (JSONObject{{"a", JSONArray{1, JSONObject{{"b", {}}}}}, {"c", true}}));
  EXPECT_EQ(toJSON("{}"), JSONObject{});
  for (const char* text : {"", "[]", "3", "\"a\"", "null", "not JSON", "{\"a\":\"\xC3\"}", "{} x"}) {
    EXPECT_EQ(toJSON(text), std::nullopt) << text;
  }
}

TEST(Texts, AppendStringMendsWhatIsNoUTF8) {
  NSMutableData data = dataOf("a");
  for (const char* text : {"", "\xC3\xA5", "\xFF"}) appendString(data, text);
  EXPECT_EQ(textOf(data), "a\xC3\xA5\xEF\xBF\xBD");
}

TEST(DocumentType, CodesTitlesAndJSONBelongTogether) {
  using enum DocumentType;
  const std::tuple<DocumentType, std::string, std::string> rows[] = {{P, "P", "Passport"},
                                                                     {A, "A", "Residence Card"},
                                                                     {I, "I", "National Identity Card"},
                                                                     {H, "H", "Corona Certificate"}};
  for (const auto& [type, code, shown] : rows) {
    EXPECT_EQ(type, std::get<0>(rows[static_cast<std::size_t>(type)]));
    EXPECT_EQ(rawValue(type), code);
    EXPECT_EQ(title(type), shown);
    EXPECT_EQ(documentTypeFrom(code), type);
    const Data json = JSONEncoder().encode(type);
    EXPECT_EQ(textOf(json), "\"" + code + "\"");
    EXPECT_EQ(JSONDecoder().decode<DocumentType>(json), type);
  }
  for (const char* other : {"p", "X", "PA", "P ", " P", ""}) EXPECT_EQ(documentTypeFrom(other), std::nullopt) << other;
  EXPECT_THROW((void)JSONDecoder().decode<DocumentType>(dataOf("1")), DecodingError);
}

}  // namespace tavlo
