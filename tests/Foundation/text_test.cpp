#include <Foundation/Hex.hpp>
#include <Foundation/Print.hpp>
#include <Foundation/UTF8.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <thread>

namespace tavlo::foundation {

TEST(Text, UTF8IsCheckedAndMended) {
  const std::pair<std::string, std::string> rows[] = {
      {"plain text, \xC3\xA5\xE2\x82\xAC\xF0\x9D\x84\x9E\xF4\x8F\xBF\xBF",
       "plain text, \xC3\xA5\xE2\x82\xAC\xF0\x9D\x84\x9E\xF4\x8F\xBF\xBF"},
      {"1234567\xC3", "1234567\xEF\xBF\xBD"},
      {"a\xFFz\xC0\x80|\xE2\x82z", "a\xEF\xBF\xBDz\xEF\xBF\xBD\xEF\xBF\xBD|\xEF\xBF\xBDz"},
      {"\xED\xA0\x80\xF4\x90\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"\xE0\x9F\xBF|\xF0\x8F", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD|\xEF\xBF\xBD\xEF\xBF\xBD"}};
  for (const auto& [text, valid] : rows) {
    EXPECT_EQ(isValidUTF8(text), text == valid) << valid;
    EXPECT_EQ(makeValidUTF8(text), valid);
    EXPECT_TRUE(isValidUTF8(valid));
  }
}

TEST(Text, HexIsLowerCaseAndReadInBothCases) {
  Data all(40'001);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i * 7 / 3);
  const std::string hex = toHexString(all);
  EXPECT_EQ(hex.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(dataFromHex(hex), all);
  EXPECT_EQ(dataFromHex("0aFf"), (Data{0x0A, 0xFF}));
  for (const char* text : {"0", "0g", " 0", "0x"}) EXPECT_EQ(dataFromHex(text), std::nullopt);
}

TEST(Text, PrintGoesInWholeLinesToStandardOutput) {
  testing::internal::CaptureStdout();
  std::vector<std::jthread> threads;
  for (const char c : {'a', 'b'}) {
    threads.emplace_back([c] {
      for (int i = 0; i < 200; ++i) print(std::string(5000, c));
    });
  }
  threads.clear();
  std::istringstream output(testing::internal::GetCapturedStdout());
  std::size_t count = 0;
  for (std::string line; std::getline(output, line); ++count) ASSERT_EQ(line, std::string(5000, line.front()));
  EXPECT_EQ(count, 400U);
}

}  // namespace tavlo::foundation
