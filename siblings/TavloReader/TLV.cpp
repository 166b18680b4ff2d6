#include <TavloReader/DataGroup.hpp>
#include <TavloReader/TLV.internal.hpp>

namespace tavlo::reader {

using foundation::DataView;

std::optional<std::uint32_t> takeTag(DataView& bytes) {
  std::uint32_t tag = 0;
  for (std::size_t size = 1; size <= sizeof tag && size <= bytes.size(); ++size) {
    const std::uint8_t byte = bytes[size - 1];
    tag = tag << 8 | byte;
    const bool last = size == 1 ? (byte & 0x1F) != 0x1F : (byte & 0x80) == 0;
    if (last) {
      bytes = bytes.subspan(size);
      return tag;
    }
  }
  return std::nullopt;
}

std::optional<std::size_t> takeLength(DataView& bytes) {
  if (bytes.empty()) return std::nullopt;
  const std::uint8_t first = bytes[0];
  const std::size_t extra = first < 0x80 ? 0 : first - 0x80U;
  const bool indefinite = first == 0x80;
  if (indefinite || extra > 4 || extra >= bytes.size()) return std::nullopt;
  std::size_t length = extra == 0 ? first : 0;
  for (const std::uint8_t byte : bytes.subspan(1, extra)) length = length << 8 | byte;
  bytes = bytes.subspan(1 + extra);
  return length;
}

std::string tagText(std::uint32_t tag) {
  static constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  do {
    text.insert(text.begin(), {digits[tag >> 4 & 0xF], digits[tag & 0xF]});
    tag >>= 8;
  } while (tag != 0);
  return text;
}

std::string byteCount(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

TLV TLVReader::next() {
  const auto tag = takeTag(rest_);
  if (!tag) fail("the file ends where a tag is expected");
  const auto length = takeLength(rest_);
  if (!length) fail("no sound length after tag " + tagText(*tag));
  if (*length > rest_.size()) {
    fail("length " + std::to_string(*length) + " after tag " + tagText(*tag) + " runs past the end, " +
         byteCount(rest_.size()) + " left");
  }
  const DataView value = rest_.first(*length);
  rest_ = rest_.subspan(*length);
  return {*tag, value};
}

DataView TLVReader::next(std::uint32_t tag) {
  const TLV element = next();
  if (element.tag != tag) fail("tag " + tagText(element.tag) + " where " + tagText(tag) + " is expected");
  return element.value;
}

std::size_t TLVReader::nextCount() {
  const DataView value = next(0x02);
  if (value.size() != 1) fail("a count of " + byteCount(value.size()));
  return value[0];
}

void TLVReader::expectEnd() const {
  if (!atEnd()) fail(byteCount(rest_.size()) + " too many inside");
}

void TLVReader::fail(const std::string& what) const {
  throw ReaderError(std::string(groupName_) + ": " + what);
}

}  // namespace tavlo::reader
