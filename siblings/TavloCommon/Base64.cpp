#include <Foundation/VectorClones.hpp>
#include <TavloCommon/TavloCommon.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

namespace tavlo::common {

using foundation::Data;
using foundation::DataView;

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

constexpr std::uint8_t noDigit = 0x80;  // no value of a digit has this bit

constexpr auto digitValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(noDigit);
  std::uint8_t value = 0;
  for (const char digit : alphabet) values[static_cast<unsigned char>(digit)] = value++;
  return values;
}();

unsigned digitValue(char digit) {
  return digitValues[static_cast<unsigned char>(digit)];
}

/// The character of a digit's value, by sums of bytes alone: compilers make vector code of a loop over it.
char digitOf(std::int8_t value) {
  const auto from = [value](int first, int step) {
    const auto isFrom = static_cast<std::int8_t>(-static_cast<std::int8_t>(value >= first));  // all bits, or none
    return static_cast<std::int8_t>(isFrom & static_cast<std::int8_t>(step));
  };
  return static_cast<char>('A' + value + from(26, 'a' - 'Z' - 1) + from(52, '0' - 'z' - 1) + from(62, '-' - '9' - 1) +
                           from(63, '_' - '-' - 1));
}

constexpr std::size_t blockSize = 96;
constexpr std::size_t blockDigits = blockSize / 3 * 4;
constexpr std::size_t blockOverread = 2;  // bytes are read by eights, of which six are used

/// Writes the digits of `count` blocks of bytes; reads, but does not use, `blockOverread` bytes more.
TAVLO_VECTOR_CLONES
void writeBlocks(const std::uint8_t* bytes, std::size_t count, char* to) {
  for (; count > 0; --count, bytes += blockSize, to += blockDigits) {
    std::array<std::uint64_t, blockSize / 6> words{};
    for (std::size_t i = 0; i < words.size(); ++i) {
      std::memcpy(&words[i], bytes + 6 * i, sizeof words[i]);
      if constexpr (std::endian::native == std::endian::little) words[i] = __builtin_bswap64(words[i]);
    }
    // The upper 48 bits go apart into halves, quarters and eight digits; the first of each two goes to the lower end.
    for (auto& word : words) {
      word = word >> 40U | (word << 16U & 0x00FFFFFF'00000000U);
      word = (word >> 12U & 0x00000FFF'00000FFFU) | (word << 16U & 0x0FFF0000'0FFF0000U);
      word = (word >> 6U & 0x003F003F'003F003FU) | (word << 8U & 0x3F003F00'3F003F00U);
      if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
    }
    const auto* values = reinterpret_cast<const char*>(words.data());
    for (std::size_t i = 0; i < blockDigits; ++i) to[i] = digitOf(static_cast<std::int8_t>(values[i]));
  }
}

/// Writes the four digits of each three of `bytes`, a multiple of three.
void writeDigits(DataView bytes, char* to) {
  if (bytes.size() >= blockSize + blockOverread) {
    const std::size_t blocks = (bytes.size() - blockOverread) / blockSize;
    writeBlocks(bytes.data(), blocks, to);
    bytes = bytes.subspan(blocks * blockSize);
    to += blocks * blockDigits;
  }
  while (!bytes.empty()) {
    std::array<std::uint8_t, blockSize + blockOverread> block{};
    std::array<char, blockDigits> digits;
    const std::size_t size = std::min(bytes.size(), blockSize);
    std::memcpy(block.data(), bytes.data(), size);
    writeBlocks(block.data(), 1, digits.data());
    std::memcpy(to, digits.data(), size / 3 * 4);
    bytes = bytes.subspan(size);
    to += size / 3 * 4;
  }
}

/// A text that grows as its bytes come in.
class TextWriter {
 public:
  /// About `expectedRest` bytes will follow `bytes`: knowing that, the text seldom has to move.
  void append(DataView bytes, std::size_t expectedRest = 0) {
    // The last group is written in full before the text is cut.
    const std::size_t size = text_.size() + digits(keptSize_ + bytes.size() + kept_.size() - 1);
    if (text_.capacity() < size) text_.reserve(size + digits(expectedRest + expectedRest / 32));
    while (keptSize_ > 0 && !bytes.empty()) {
      keep(bytes.front());
      bytes = bytes.subspan(1);
    }
    // In pieces that stay in the cache between being cleared and being written.
    constexpr std::size_t pieceSize = 6 << 10;
    while (bytes.size() >= 3) {
      const std::size_t piece = std::min(pieceSize, bytes.size() - bytes.size() % 3);
      appendGroups(bytes.first(piece));
      bytes = bytes.subspan(piece);
    }
    for (; !bytes.empty(); bytes = bytes.subspan(1)) keep(bytes.front());
  }

  /// The whole text.
  [[nodiscard]] std::string finish() {
    const std::size_t size = text_.size() + digits(keptSize_);
    while (keptSize_ > 0) keep(0);
    text_.resize(size);
    return std::move(text_);
  }

 private:
  static std::size_t digits(std::size_t bytes) { return (bytes * 4 + 2) / 3; }

  void appendGroups(DataView bytes) {
    const std::size_t at = text_.size();
    text_.resize(at + digits(bytes.size()));
    writeDigits(bytes, text_.data() + at);
  }

  /// Keeps a byte until there are three.
  void keep(std::uint8_t byte) {
    kept_[keptSize_++] = byte;
    if (keptSize_ < kept_.size()) return;
    appendGroups(kept_);
    keptSize_ = 0;
  }

  std::string text_;
  std::array<std::uint8_t, 3> kept_{};
  std::size_t keptSize_ = 0;
};

}  // namespace

std::optional<std::string> base64UrlEncodedString(DataView bytes, Base64Options /*options*/) try {
  TextWriter text;
  text.append(bytes);
  return text.finish();
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::optional<std::string> base64UrlEncodedPNG(const uikit::UIImage& image, Base64Options /*options*/) try {
  TextWriter text;
  const auto append = [&text](DataView piece, std::size_t expectedRest) { text.append(piece, expectedRest); };
  return uikit::writePNG(image, append) ? std::optional(text.finish()) : std::nullopt;
} catch (const std::bad_alloc&) {
  return std::nullopt;
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
