#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace tavlo::foundation {
namespace {

std::string written(const auto& value) {
  return std::string(textOf(JSONEncoder().encode(value)));
}

JSONValue read(std::string_view text) {
  return JSONSerialization::jsonObject(dataOf(text), JSONReadingOptions::fragmentsAllowed);
}

TEST(JSON, WritesCompactTextInTheShortestForm) {
  const std::pair<JSONValue, std::string> rows[] = {
      {JSONValue(), "null"},
      {true, "true"},
      {-7, "-7"},
      {18446744073709551615U, "18446744073709551615"},
      {1.5, "1.5"},
      {-1.0, "-1"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      {0.000001, "1e-06"},
      {"\"\\/\b\f\n\r\t\x1b\x7f\xC3\xA9'", "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u001b\x7f\xC3\xA9'\""},
      {std::string("a\0b", 3), "\"a\\u0000b\""},
      {JSONArray{1, JSONArray{}, JSONObject{}}, "[1,[],{}]"},
      {JSONObject{{"k", 1}, {"m\n", JSONArray{"x"}}}, "{\"k\":1,\"m\\n\":[\"x\"]}"}};
  for (const auto& [value, text] : rows) {
    EXPECT_EQ(written(value), text);
    EXPECT_EQ(written(read(text)), text);
  }
}

TEST(JSON, WritesLongTextsWithAnyCharacterAnywhere) {
  const std::pair<const char*, const char*> characters[] = {{"\"", "\\\""},
                                                            {"\x1f", "\\u001f"},
                                                            {"\\", "\\\\"},
                                                            {"\xC3\xA9", "\xC3\xA9"},
                                                            {"\x7f\xF0\x9D\x84\x9E", "\x7f\xF0\x9D\x84\x9E"}};
  for (std::size_t at = 0; at < 200; ++at) {
    const std::string before(at + 16'300, 'b'), after(200 - at, '~');
    for (const auto& [character, text] : characters) {
      EXPECT_EQ(written(before + character + after), '"' + before + text + after + '"') << at;
    }
    for (const char* malformed : {"\xC3", "\x80", "\xE2\x82"}) {
      EXPECT_THROW((void)JSONEncoder().encode(before + malformed + after), EncodingError) << at;
    }
  }
  const auto body = JSONEncoder().encode(std::string(1 << 20, 'x'));
  EXPECT_LE(body.capacity(), body.size() + 8192);
}

TEST(JSON, RefusesToWriteWhatJSONCannotHold) {
  for (const JSONValue& value : JSONArray{NAN, INFINITY, "\xC3", "\xED\xA0\x80", JSONObject{{"\xFF", 1}}}) {
    EXPECT_THROW((void)JSONEncoder().encode(JSONValue(JSONArray{value})), EncodingError);
  }
}

TEST(JSON, KeepsNumbersExactlyAndTheFirstOfTwoEqualKeys) {
  EXPECT_EQ(read(R"({"k":"first","j":0,"k":"second"})"), JSONValue(JSONObject{{"k", "first"}, {"j", 0}}));
  EXPECT_EQ(read("[6032314514195021674,9223372036854775808,-0.5e1]"),
            JSONValue(JSONArray{6032314514195021674, 9223372036854775808U, -5.0}));
  ASSERT_NE(read("123456789012345678901234567890").getIf<double>(), nullptr);
}

TEST(JSON, RefusesMalformedTextAndFragmentsWhereNoneIsAllowed) {
  for (const char* text : {"3", "\"s\"", "null", "true"}) {
    EXPECT_THROW((void)JSONSerialization::jsonObject(dataOf(text)), DecodingError) << text;
  }
  std::istringstream rows(
      R"(| |[1,]|{"a":0,}|{"a":1} x|[NaN]|[0x42]|[1.e2]|[-.1]|[+1]|[01]|['a']|["\h"]|["\uD834"]|["\uDD1E\uD834"]|[1e400])"
      R"(|[2.01e-1234]|{|["foo|nul|/**/[]|{1:2})"
      "|[\x01]|[\"\x1f\"]|[\"\xC0\x80\"]|[\"\xED\xA0\x80\"]|[\"\xF4\x90\x80\x80\"]|\xEF\xBB\xBF{}");
  for (std::string row; std::getline(rows, row, '|');) EXPECT_THROW((void)read(row), DecodingError) << row;
  using namespace std::string_literals;
  for (const auto& row : {"[1\0]"s, "[\"\0\"]"s, "\0[]"s, "[]\0"s, "\xFE\xFF\0{\0}"s, "{\0}\0"s}) {
    EXPECT_THROW((void)read(row), DecodingError) << row;
  }
}

TEST(JSON, DepthIsBoundedBothWays) {
  JSONValue nested = JSONArray{};
  std::string objects = "{}";
  for (int i = 1; i < 512; ++i) {
    nested = JSONArray{std::move(nested)};
    objects = "{\"a\":" + objects + "}";
  }
  EXPECT_NO_THROW((void)read(objects));
  EXPECT_THROW((void)read("[" + objects + "]"), DecodingError);
  EXPECT_THROW((void)read(std::string(100'000, '[')), DecodingError);
  EXPECT_TRUE(read(written(nested)) == nested);
  EXPECT_THROW((void)read("[" + written(nested) + "]"), DecodingError);
  EXPECT_THROW((void)JSONEncoder().encode(JSONValue(JSONArray{std::move(nested)})), EncodingError);
}

template <class T>
void expectRefused(DecodingError::Kind kind, std::initializer_list<const char*> texts) {
  for (const char* text : texts) {
    try {
      (void)JSONDecoder().decode<T>(dataOf(text));
      ADD_FAILURE() << "accepted: " << text;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), kind) << text;
    }
  }
}

TEST(JSON, DecodesPlainValuesWithoutConverting) {
  using Kind = DecodingError::Kind;
  EXPECT_EQ(JSONDecoder().decode<double>(dataOf("1e3 ")), 1000);
  EXPECT_EQ(JSONDecoder().decode<double>(dataOf("12")), 12);
  EXPECT_EQ(JSONDecoder().decode<std::string>(dataOf(R"("\uD834\uDD1E\/\u000b")")), "\xF0\x9D\x84\x9E/\x0b");
  EXPECT_EQ(JSONDecoder().decode<std::vector<bool>>(dataOf("[true,false]")), (std::vector<bool>{true, false}));
  EXPECT_EQ(JSONDecoder().decode<std::uint8_t>(dataOf("-0")), 0);
  EXPECT_EQ(JSONDecoder().decode<std::uint64_t>(dataOf("18446744073709551615")), 18446744073709551615U);
  expectRefused<std::vector<bool>>(Kind::typeMismatch, {"[1]", "{}", "true"});
  expectRefused<int>(Kind::typeMismatch, {"false", "\"1\""});
  expectRefused<std::string>(Kind::typeMismatch, {"1", "[]"});
  expectRefused<std::string>(Kind::valueNotFound, {"null"});
  expectRefused<std::int8_t>(Kind::dataCorrupted, {"128", "-129", "1.5"});
  expectRefused<std::uint8_t>(Kind::dataCorrupted, {"-1", "256"});
  expectRefused<std::int64_t>(Kind::dataCorrupted, {"9223372036854775808"});
}

}  // namespace
}  // namespace tavlo::foundation
