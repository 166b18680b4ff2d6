#include <Foundation/Hex.hpp>
#include <Foundation/VectorClones.hpp>

#include <algorithm>
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

TAVLO_VECTOR_CLONES
void writeDigits(const std::uint8_t* bytes, std::size_t size, char* to) {
  const auto digit = [](unsigned value) { return static_cast<char>(value + (value < 10 ? '0' : 'a' - 10)); };
  for (std::size_t i = 0; i < size; ++i) {
    to[2 * i] = digit(bytes[i] >> 4U);
    to[2 * i + 1] = digit(bytes[i] & 15U);
  }
}

}  // namespace

std::string toHexString(DataView bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  // In pieces that stay in the cache between being cleared and being written.
  for (std::size_t at = 0; at < bytes.size();) {
    const DataView piece = bytes.subspan(at, std::min<std::size_t>(bytes.size() - at, 2 << 10));
    text.resize(2 * (at + piece.size()));
    writeDigits(piece.data(), piece.size(), text.data() + 2 * at);
    at += piece.size();
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
