#include <Foundation/Hex.hpp>

#include <cstddef>
#include <cstdint>

namespace tavlo::foundation {

namespace {

/// The value of a hexadecimal digit, or 16 for any other character.
constexpr unsigned valueOf(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<unsigned>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<unsigned>(digit - 'a') + 10;
  if (digit >= 'A' && digit <= 'F') return static_cast<unsigned>(digit - 'A') + 10;
  return 16;
}

}  // namespace

std::string toHexString(DataView bytes) {
  static constexpr std::string_view digits = "0123456789abcdef";
  std::string text(bytes.size() * 2, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    text[2 * i] = digits[bytes[i] >> 4U];
    text[2 * i + 1] = digits[bytes[i] & 15U];
  }
  return text;
}

std::optional<Data> dataFromHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  Data bytes(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const unsigned high = valueOf(text[2 * i]);
    const unsigned low = valueOf(text[2 * i + 1]);
    if (high > 15 || low > 15) return std::nullopt;
    bytes[i] = static_cast<std::uint8_t>(high << 4U | low);
  }
  return bytes;
}

}  // namespace tavlo::foundation
