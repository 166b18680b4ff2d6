#include <TavloReader/DataGroups.hpp>

#include <Foundation/UTF8.hpp>
#include <TavloReader/TLV.internal.hpp>
#include <UIKit/UIImage.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tavlo::reader {

using foundation::Data;
using foundation::DataView;
using foundation::makeValidUTF8;
using foundation::textOf;

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// "0107" as "1.7", two digits a part; anything else as it is.
std::string versionText(DataView value) {
  const std::string_view digits = textOf(value);
  if (digits.size() % 2 != 0 || !std::ranges::all_of(digits, isDigit)) return makeValidUTF8(digits);
  std::string version;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    if (i > 0) version += '.';
    version += std::to_string((digits[i] - '0') * 10 + (digits[i + 1] - '0'));
  }
  return version;
}

}  // namespace

COM::COM(Data file) : DataGroup(DataGroupId::COM, std::move(file)) {
  TLVReader reader(value(), name(id()));
  ldsVersion_ = versionText(reader.next(0x5F01));
  unicodeVersion_ = versionText(reader.next(0x5F36));
  const DataView tags = reader.next(0x5C);
  reader.expectEnd();

  constexpr std::size_t maximumTags = 32;
  if (tags.size() > maximumTags) reader.fail("a list of " + std::to_string(tags.size()) + " groups");
  for (const std::uint8_t tag : tags) {
    if (const auto group = dataGroupWithTag(tag)) {
      groups_.push_back(*group);
    } else {
      addOddity("lists the unknown tag " + tagText(tag));
    }
  }
}

DataGroup1::DataGroup1(Data file) : DataGroup(DataGroupId::DG1, std::move(file)) {
  TLVReader reader(value(), name(id()));
  mrz_ = MRZ::parse(textOf(reader.next(0x5F1F)));
  reader.expectEnd();

  if (mrz_.namesFillField) addOddity("the names fill their field and may be cut short");
  if (mrz_.foreignCharacters) addOddity("characters that do not belong into a machine readable zone");
  for (const MRZ::CheckDigit& digit : mrz_.checkDigits) {
    if (!digit.correct) addOddity("wrong check digit: " + std::string(digit.field));
  }
}

DataGroup2::DataGroup2(Data file) : DataGroup(DataGroupId::DG2, std::move(file)) {
  TLVReader outer(value(), name(id()));
  TLVReader templates(outer.next(0x7F61), name(id()));
  outer.expectEnd();
  for (std::size_t count = templates.nextCount(); count > 0; --count) {
    TLVReader biometric(templates.next(0x7F60), name(id()));
    while (!biometric.atEnd()) {
      const TLV element = biometric.next();
      if (element.tag == 0x5F2E || element.tag == 0x7F2E) readFaces(element);
    }
  }
  templates.expectEnd();
}

namespace {

/// Takes big-endian numbers and runs of bytes off a record that is long enough or not.
class RecordReader {
 public:
  explicit RecordReader(DataView record) : rest_(record) {}

  DataView bytes(std::size_t size) {
    if (size > rest_.size()) {
      throw ReaderError("DG2: a face record ends " + byteCount(size - rest_.size()) + " too early");
    }
    const DataView taken = rest_.first(size);
    rest_ = rest_.subspan(size);
    return taken;
  }
  std::size_t number(std::size_t size) {
    std::size_t value = 0;
    for (const std::uint8_t byte : bytes(size)) value = value << 8 | byte;
    return value;
  }
  [[nodiscard]] DataView rest() const { return rest_; }

 private:
  DataView rest_;
};

constexpr std::string_view formatAndVersion(
    "FAC\0"
    "010\0",
    8);

/// The first element of an element's value with this tag; absent when there is none.
std::optional<DataView> find(std::uint32_t tag, DataView value) {
  TLVReader reader(value, name(DataGroupId::DG2));
  while (!reader.atEnd()) {
    const TLV element = reader.next();
    if (element.tag == tag) return element.value;
  }
  return std::nullopt;
}

}  // namespace

void DataGroup2::readFaces(const TLV& record) {
  if (textOf(record.value).starts_with(formatAndVersion)) {
    readFaceRecord(record.value);
  } else if (record.tag == 0x7F2E) {
    readFaceBlock(record.value);
  } else {
    addOddity("a face record of an unknown format");
  }
}

void DataGroup2::readFaceBlock(DataView block) {
  // Around the two fields there are one or more of: standardised data, the block's own tag, a sequence.
  constexpr std::array<std::uint32_t, 3> wrappers = {0xA1, 0x65, 0x30};
  constexpr std::uint32_t representations = 0xA1;
  for (std::size_t depth = 0; depth < wrappers.size(); ++depth) {
    TLVReader outer(block, name(id()));
    const TLV only = outer.next();
    if (!outer.atEnd() || std::ranges::find(wrappers, only.tag) == wrappers.end()) break;
    block = only.value;
  }
  const auto list = find(representations, block);
  if (!list) return addOddity("a face record of an unknown format");

  TLVReader faces(*list, name(id()));
  while (!faces.atEnd()) {
    // The representation, one of the standard's own and no extension, flat and not in space, its encoded picture.
    std::optional<DataView> face = faces.next(0x30);
    for (const std::uint32_t tag : {0xA1U, 0xA0U, 0xA0U, 0x80U}) {
      if (face) face = find(tag, *face);
    }
    if (face) {
      faces_.push_back(*face);
    } else {
      addOddity("a face without a flat picture");
    }
  }
}

void DataGroup2::readFaceRecord(DataView record) {
  constexpr std::size_t headerSize = 14;
  constexpr std::size_t personSize = 14;
  constexpr std::size_t pointSize = 8;
  constexpr std::size_t pictureSize = 12;

  RecordReader header(record);
  header.bytes(formatAndVersion.size());
  const std::size_t length = header.number(4);
  const std::size_t faceCount = header.number(2);
  if (length < headerSize) throw ReaderError("DG2: a face record of " + byteCount(length));

  RecordReader faces(header.bytes(length - headerSize));
  for (std::size_t i = 0; i < faceCount; ++i) {
    const std::size_t blockLength = faces.number(4);
    if (blockLength < 4) throw ReaderError("DG2: a face of " + byteCount(blockLength));
    RecordReader face(faces.bytes(blockLength - 4));
    const std::size_t pointCount = face.number(2);
    face.bytes(personSize + pointCount * pointSize + pictureSize);
    faces_.push_back(face.rest());
  }
}

DataGroup7::DataGroup7(Data file) : DataGroup(DataGroupId::DG7, std::move(file)) {
  TLVReader reader(value(), name(id()));
  for (std::size_t count = reader.nextCount(); count > 0; --count) images_.push_back(reader.next(0x5F43));
  reader.expectEnd();
}

namespace {

/// Fillers as a person would write them: one parts words, several part names, those at the end are none.
std::string itemText(DataView value) {
  std::string text;
  std::size_t fillers = 0;
  for (const char c : textOf(value)) {
    if (c == '<') {
      ++fillers;
      continue;
    }
    if (fillers > 0 && !text.empty()) text += fillers == 1 ? " " : ", ";
    fillers = 0;
    text += c;
  }
  return makeValidUTF8(text);
}

/// The digits of a date, which older documents pack two to a byte.
std::string dateText(DataView value) {
  const std::string_view text = textOf(value);
  if (std::ranges::all_of(text, isDigit) || value.size() > 7) return itemText(value);
  std::string digits;
  for (const std::uint8_t byte : value) digits += tagText(byte);
  return digits;
}

std::string pictureText(DataView value) {
  const auto format = uikit::imageFormat(value);
  return std::string(format ? name(*format) : "unknown format") + ", " + byteCount(value.size());
}

struct ItemKind {
  std::uint32_t tag;
  std::string_view label;
  std::string (*text)(DataView content) = itemText;
};

constexpr std::array itemKinds = {
    ItemKind{0x5F0E, "Full name"},
    ItemKind{0x5F0F, "Other name"},
    ItemKind{0x5F10, "Personal number"},
    ItemKind{0x5F2B, "Full date of birth", dateText},
    ItemKind{0x5F11, "Place of birth"},
    ItemKind{0x5F42, "Address"},
    ItemKind{0x5F12, "Telephone"},
    ItemKind{0x5F13, "Profession"},
    ItemKind{0x5F14, "Title"},
    ItemKind{0x5F15, "Personal summary"},
    ItemKind{0x5F16, "Proof of citizenship", pictureText},
    ItemKind{0x5F17, "Other travel documents"},
    ItemKind{0x5F18, "Custody"},
    ItemKind{0x5F19, "Issuing authority"},
    ItemKind{0x5F26, "Date of issue", dateText},
    ItemKind{0x5F1A, "Other person"},
    ItemKind{0x5F1B, "Endorsements and observations"},
    ItemKind{0x5F1C, "Tax and exit requirements"},
    ItemKind{0x5F1D, "Front of the document", pictureText},
    ItemKind{0x5F1E, "Rear of the document", pictureText},
    ItemKind{0x5F55, "Time of personalisation", dateText},
    ItemKind{0x5F56, "Personalisation system"},
};

}  // namespace

TextDataGroup::TextDataGroup(DataGroupId id, Data file) : DataGroup(id, std::move(file)) {
  constexpr std::uint32_t tagList = 0x5C;
  constexpr std::uint32_t several = 0xA0;
  constexpr std::uint32_t count = 0x02;
  TLVReader reader(value(), name(id));
  while (!reader.atEnd()) {
    const TLV element = reader.next();
    if (element.tag == tagList) continue;  // Some issuers leave it out or get it wrong.
    if (element.tag != several) {
      addItem(element.tag, element.value);
      continue;
    }
    TLVReader inner(element.value, name(id));
    while (!inner.atEnd()) {
      const TLV innerElement = inner.next();
      if (innerElement.tag != count) addItem(innerElement.tag, innerElement.value);
    }
  }
}

void TextDataGroup::addItem(std::uint32_t tag, DataView content) {
  constexpr std::size_t maximumItems = 256;
  if (items_.size() >= maximumItems) throw ReaderError(std::string(name(id())) + ": too many items");

  const auto kind = std::ranges::find(itemKinds, tag, &ItemKind::tag);
  if (kind == itemKinds.end()) {
    addOddity("an item of the unknown tag " + tagText(tag));
    return;
  }
  items_.push_back({kind->label, kind->text(content)});
}

}  // namespace tavlo::reader
