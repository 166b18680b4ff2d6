#include <TavloCommon/TavloCommon.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>

namespace tavlo::common {

using foundation::Data;
using foundation::DataView;

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
/// The two digits of each 12 bits.
constexpr auto digitPairs = [] {
  std::array<std::array<char, 2>, 4096> pairs{};
  for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i] = {alphabet[i >> 6U], alphabet[i & 63U]};
  return pairs;
}();

constexpr std::uint8_t noDigit = 0x80;  // no value of a digit has this bit

constexpr auto digitValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(noDigit);
  for (std::size_t i = 0; i < alphabet.size(); ++i) {
    values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return values;
}();

unsigned digitValue(char digit) {
  return digitValues[static_cast<unsigned char>(digit)];
}

}  // namespace

std::optional<std::string> base64UrlEncodedString(DataView bytes, Base64Options /*options*/) {
  try {
    std::string text((bytes.size() * 4 + 2) / 3, '\0');
    auto to = text.begin();
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
      const unsigned group = unsigned{bytes[i]} << 16U | unsigned{bytes[i + 1]} << 8U | bytes[i + 2];
      to = std::ranges::copy(digitPairs[group >> 12U], to).out;
      to = std::ranges::copy(digitPairs[group & 0xFFFU], to).out;
    }
    const std::size_t left = bytes.size() - i;
    if (left > 0) {
      const unsigned group = unsigned{bytes[i]} << 8U | (left == 2 ? bytes[i + 1] : 0U);
      to = std::ranges::copy(digitPairs[group >> 4U], to).out;
      if (left == 2) *to = alphabet[group << 2U & 63U];
    }
    return text;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

std::optional<Data> dataFromBase64Url(std::string_view text) {
  if (text.size() % 4 == 0 && text.ends_with('=')) text.remove_suffix(text.ends_with("==") ? 2 : 1);
  if (text.size() % 4 == 1) return std::nullopt;
  Data bytes(text.size() * 3 / 4);
  std::uint8_t* to = bytes.data();
  unsigned wrong = 0;
  for (; text.size() >= 4; text.remove_prefix(4)) {
    unsigned group = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      const unsigned value = digitValue(text[i]);
      wrong |= value & noDigit;
      group = group << 6U | value;
    }
    for (unsigned shift : {16U, 8U, 0U}) *to++ = static_cast<std::uint8_t>(group >> shift);
  }
  unsigned bits = 0;
  unsigned group = 0;
  for (const char digit : text) {
    const unsigned value = digitValue(digit);
    wrong |= value & noDigit;
    group = group << 6U | value;
    bits += 6;
  }
  while (bits >= 8) {
    bits -= 8;
    *to++ = static_cast<std::uint8_t>(group >> bits);
  }
  wrong |= group & ((1U << bits) - 1);
  if (wrong != 0) return std::nullopt;
  return bytes;
}

}  // namespace tavlo::common
