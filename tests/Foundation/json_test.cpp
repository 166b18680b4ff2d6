#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "support/Errors.hpp"

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
      {JSONArray{{}, true, -7, 18446744073709551615U, 1.5, -1.0, 1.7976931348623157e308, 0.000001},
       "[null,true,-7,18446744073709551615,1.5,-1,1.7976931348623157e+308,1e-06]"},
      {"\"\\/\b\f\n\r\t\x1b\x7f\xC3\xA9'", "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u001b\x7f\xC3\xA9'\""},
      {std::string("a\0b", 3), "\"a\\u0000b\""},
      {JSONArray{1, JSONArray{}, JSONObject{}}, "[1,[],{}]"},
      {JSONObject{{"k", 1}, {"m\n", JSONArray{"x"}}}, "{\"k\":1,\"m\\n\":[\"x\"]}"}};
  for (const auto& [value, text] : rows) {
    EXPECT_EQ(written(value), text);
    EXPECT_EQ(written(read(text)), text);
  }
  for (const JSONValue& value : JSONArray{NAN, INFINITY, "\xC3", "\xED\xA0\x80", JSONObject{{"\xFF", 1}}}) {
    EXPECT_THROW((void)written(JSONArray{value}), EncodingError);
  }
}

TEST(JSON, WritesLongTextsWithAnyCharacterAnywhere) {
  const auto *accent = "\xC3\xA9", *clef = "\x7f\xF0\x9D\x84\x9E";
  const std::pair<const char*, const char*> characters[] = {
      {"\"", "\\\""}, {"\x1f", "\\u001f"}, {"\\", "\\\\"}, {accent, accent}, {clef, clef}};
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
  for (const auto& [open, close] : {std::pair{"[", "]"}, {"{\"a\":", "}"}}) {
    std::string text = "0";
    for (int i = 0; i < 512; ++i) text.insert(0, open).append(close);
    const JSONValue nested = read(text);
    EXPECT_EQ(written(nested), text);
    EXPECT_THROW((void)read(open + text + close), DecodingError);
    EXPECT_THROW((void)written(JSONArray{nested}), EncodingError);
  }
  EXPECT_THROW((void)read(std::string(100'000, '[')), DecodingError);
}

/// Why `text` is no `T`.
template <class T>
DecodingError::Kind refusal(const char* text) {
  return test::errorOf<DecodingError>([=] { return JSONDecoder().decode<T>(dataOf(text)); }).value().kind();
}

TEST(JSON, KeepsNumbersExactlyAndDecodesWithoutConverting) {
  using Kind = DecodingError::Kind;
  EXPECT_EQ(read(R"({"k":6032314514195021674,"j":[9223372036854775808,-0.5e1],"k":"second"})"),
            JSONValue(JSONObject{{"k", 6032314514195021674}, {"j", JSONArray{9223372036854775808U, -5.0}}}));
  ASSERT_NE(read("123456789012345678901234567890").getIf<double>(), nullptr);
  EXPECT_EQ(JSONDecoder().decode<double>(dataOf("1e3 ")), 1000);
  EXPECT_EQ(JSONDecoder().decode<std::string>(dataOf(R"("\uD834\uDD1E\/\u000b")")), "\xF0\x9D\x84\x9E/\x0b");
  EXPECT_EQ(JSONDecoder().decode<std::vector<bool>>(dataOf("[true,false]")), (std::vector<bool>{true, false}));
  EXPECT_EQ(JSONDecoder().decode<std::uint8_t>(dataOf("-0")), 0);
  EXPECT_EQ(JSONDecoder().decode<std::uint64_t>(dataOf("18446744073709551615")), 18446744073709551615U);
  for (const auto* text : {"[1]", "{}", "true"}) EXPECT_EQ(refusal<std::vector<bool>>(text), Kind::typeMismatch);
  for (const auto* text : {"false", "\"1\""}) EXPECT_EQ(refusal<int>(text), Kind::typeMismatch);
  for (const auto* text : {"128", "-129", "1.5"}) EXPECT_EQ(refusal<std::int8_t>(text), Kind::dataCorrupted);
  for (const auto* text : {"-1", "256"}) EXPECT_EQ(refusal<std::uint8_t>(text), Kind::dataCorrupted);
  EXPECT_EQ(refusal<std::int64_t>("9223372036854775808"), Kind::dataCorrupted);
}

}  // namespace
}  // namespace tavlo::foundation
