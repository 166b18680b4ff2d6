#include <TavloReader/MRZ.hpp>

#include <Foundation/UTF8.hpp>
#include <TavloReader/DataGroup.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace tavlo::reader {

namespace {

constexpr char filler = '<';

struct Field {
  std::size_t offset;
  std::size_t size;

  [[nodiscard]] std::string_view of(std::string_view zone) const { return zone.substr(offset, size); }
  /// The check digit right after the field.
  [[nodiscard]] char checkDigit(std::string_view zone) const { return zone[offset + size]; }
};

/// Where things are when the lines of a zone are run together.
struct Layout {
  MRZ::Format format;
  std::string_view name;
  std::size_t length;
  Field names, number, nationality, birth, expiry;
  std::size_t gender;
  Field optional, optional2;
  std::array<Field, 4> composite;  ///< what the composite check digit is made of
  std::size_t compositeDigit;
};

constexpr Field codeField = {0, 2};
constexpr Field stateField = {2, 3};

constexpr std::array layouts = {
    Layout{.format = MRZ::Format::TD1,
           .name = "TD1",
           .length = 90,
           .names = {60, 30},
           .number = {5, 9},
           .nationality = {45, 3},
           .birth = {30, 6},
           .expiry = {38, 6},
           .gender = 37,
           .optional = {15, 15},
           .optional2 = {48, 11},
           .composite = {{{5, 25}, {30, 7}, {38, 7}, {48, 11}}},
           .compositeDigit = 59},
    Layout{.format = MRZ::Format::TD2,
           .name = "TD2",
           .length = 72,
           .names = {5, 31},
           .number = {36, 9},
           .nationality = {46, 3},
           .birth = {49, 6},
           .expiry = {57, 6},
           .gender = 56,
           .optional = {64, 7},
           .optional2 = {},
           .composite = {{{36, 10}, {49, 7}, {57, 14}}},
           .compositeDigit = 71},
    Layout{.format = MRZ::Format::TD3,
           .name = "TD3",
           .length = 88,
           .names = {5, 39},
           .number = {44, 9},
           .nationality = {54, 3},
           .birth = {57, 6},
           .expiry = {65, 6},
           .gender = 64,
           .optional = {72, 14},
           .optional2 = {},
           .composite = {{{44, 10}, {57, 7}, {65, 22}}},
           .compositeDigit = 87},
};

bool isBlank(std::string_view field) {
  return field.find_first_not_of(filler) == std::string_view::npos;
}

/// The field without fillers at its ends.
std::string_view trimmed(std::string_view field) {
  if (isBlank(field)) return {};
  const std::size_t begin = field.find_first_not_of(filler);
  return field.substr(begin, field.find_last_not_of(filler) + 1 - begin);
}

std::string text(std::string_view field) {
  return foundation::makeValidUTF8(trimmed(field));
}

/// A name with one blank for each run of fillers.
std::string nameText(std::string_view field) {
  std::string words;
  for (const char c : trimmed(field)) {
    if (c == filler && words.back() == ' ') continue;
    words += c == filler ? ' ' : c;
  }
  return foundation::makeValidUTF8(words);
}

/// What a character counts in a check digit; absent when it is none of a zone's.
std::optional<int> weight(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  if (c == filler) return 0;
  return std::nullopt;
}

bool fits(char digit, std::string_view field) {
  constexpr std::array factors = {7, 3, 1};
  int sum = 0;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const auto value = weight(field[i]);
    if (!value) return false;
    sum += *value * factors[i % factors.size()];
  }
  return digit == '0' + sum % 10 || (digit == filler && isBlank(field));
}

}  // namespace

MRZ MRZ::parse(std::string_view zone) {
  const auto layout = std::ranges::find(layouts, zone.size(), &Layout::length);
  if (layout == layouts.end()) {
    throw ReaderError("DG1: a machine readable zone of " + std::to_string(zone.size()) +
                      " characters; 90, 72 or 88 are expected");
  }

  MRZ mrz;
  mrz.format = layout->format;
  mrz.foreignCharacters = !std::ranges::all_of(zone, [](char c) { return weight(c).has_value(); });
  mrz.documentCode = text(codeField.of(zone));
  mrz.issuingState = text(stateField.of(zone));
  mrz.nationality = text(layout->nationality.of(zone));
  mrz.dateOfBirth = foundation::makeValidUTF8(layout->birth.of(zone));
  mrz.dateOfExpiry = foundation::makeValidUTF8(layout->expiry.of(zone));
  const char gender = zone[layout->gender];
  if (gender == 'M' || gender == 'F') mrz.gender = gender;

  const std::string_view names = layout->names.of(zone);
  const std::size_t separator = names.find("<<");
  mrz.lastName = nameText(names.substr(0, separator));
  if (separator != std::string_view::npos) mrz.firstName = nameText(names.substr(separator));
  mrz.namesFillField = names.back() != filler;

  // A number too long for its field has a filler as check digit and goes on, digit last, in the optional data.
  std::string number(layout->number.of(zone));
  char numberDigit = layout->number.checkDigit(zone);
  std::string_view optional = layout->optional.of(zone);
  const bool goesOn = mrz.format != Format::TD3 && number.back() != filler && numberDigit == filler;
  if (goesOn && optional.front() != filler) {
    const std::string_view rest = optional.substr(0, optional.find(filler));
    number += rest.substr(0, rest.size() - 1);
    numberDigit = rest.back();
    optional.remove_prefix(rest.size());
  }
  mrz.documentNumber = text(number);
  mrz.optionalData = text(optional);
  mrz.optionalData2 = text(layout->optional2.of(zone));

  mrz.checkDigits = {{"number", fits(numberDigit, number)},
                     {"birth", fits(layout->birth.checkDigit(zone), layout->birth.of(zone))},
                     {"expiry", fits(layout->expiry.checkDigit(zone), layout->expiry.of(zone))}};
  if (mrz.format == Format::TD3) {
    mrz.checkDigits.push_back({"optional", fits(layout->optional.checkDigit(zone), optional)});
  }
  std::string composite;
  for (const Field& part : layout->composite) composite += part.of(zone);
  mrz.checkDigits.push_back({"composite", fits(zone[layout->compositeDigit], composite)});
  return mrz;
}

std::string_view name(MRZ::Format format) {
  return std::ranges::find(layouts, format, &Layout::format)->name;
}

}  // namespace tavlo::reader
