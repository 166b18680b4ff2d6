#include <Foundation/UTF8.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tavlo::foundation {

namespace {

/// What stands at the start of a text: a well-formed sequence, or the ill-formed run that one U+FFFD replaces.
struct Sequence {
  std::size_t length;
  bool wellFormed;
};

/// Looks at the first sequence of a non-empty text; the bounds of each second byte are Table 3-7 of the Unicode
/// Standard.
Sequence firstSequence(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {1, true};
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return {1, false};
  }
  for (std::size_t i = 1; i < length; ++i) {
    if (i == text.size() || byte(i) < low || byte(i) > high) return {i, false};
    low = 0x80;
    high = 0xBF;
  }
  return {length, true};
}

/// How many ASCII characters the text begins with, in steps of eight.
std::size_t asciiRun(std::string_view text) {
  constexpr std::uint64_t highBits = 0x8080808080808080U;
  std::size_t run = 0;
  for (std::uint64_t word = 0; run + sizeof word <= text.size(); run += sizeof word) {
    std::memcpy(&word, text.data() + run, sizeof word);
    if ((word & highBits) != 0) break;
  }
  return run;
}

}  // namespace

bool isValidUTF8(std::string_view text) noexcept {
  while (true) {
    text.remove_prefix(asciiRun(text));
    if (text.empty()) return true;
    const auto [length, wellFormed] = firstSequence(text);
    if (!wellFormed) return false;
    text.remove_prefix(length);
  }
}

std::string makeValidUTF8(std::string_view text) {
  if (isValidUTF8(text)) return std::string(text);
  std::string valid;
  valid.reserve(text.size() + 2);
  while (!text.empty()) {
    const auto [length, wellFormed] = firstSequence(text);
    valid += wellFormed ? text.substr(0, length) : std::string_view("\xEF\xBF\xBD");
    text.remove_prefix(length);
  }
  return valid;
}

}  // namespace tavlo::foundation
