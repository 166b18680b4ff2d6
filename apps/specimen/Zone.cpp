#include <specimen/Zone.hpp>

#include <Foundation/UTF8.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace tavlo::specimen {

using reader::MRZ;

namespace {

constexpr char filler = '<';

bool isLetter(char c) {
  return c >= 'A' && c <= 'Z';
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

void require(bool condition, const std::string& text) {
  if (!condition) throw std::invalid_argument(text);
}

/// Characters in a row that are written alike.
struct Letters {
  std::uint32_t first;
  std::uint32_t last;
  std::string_view text;
};

/// Beyond A to Z, by their code points; the two cases of a letter are neighbours from U+0100 on.
constexpr std::array latinLetters{
    Letters{0x00C0, 0x00C3, "A"},  Letters{0x00C4, 0x00C4, "AE"}, Letters{0x00C5, 0x00C5, "AA"},
    Letters{0x00C6, 0x00C6, "AE"}, Letters{0x00C7, 0x00C7, "C"},  Letters{0x00C8, 0x00CB, "E"},
    Letters{0x00CC, 0x00CF, "I"},  Letters{0x00D0, 0x00D0, "D"},  Letters{0x00D1, 0x00D1, "N"},
    Letters{0x00D2, 0x00D5, "O"},  Letters{0x00D6, 0x00D6, "OE"}, Letters{0x00D8, 0x00D8, "OE"},
    Letters{0x00D9, 0x00DB, "U"},  Letters{0x00DC, 0x00DC, "UE"}, Letters{0x00DD, 0x00DD, "Y"},
    Letters{0x00DE, 0x00DE, "TH"}, Letters{0x00DF, 0x00DF, "SS"}, Letters{0x00FF, 0x00FF, "Y"},
    Letters{0x0100, 0x0105, "A"},  Letters{0x0106, 0x010D, "C"},  Letters{0x010E, 0x0111, "D"},
    Letters{0x0112, 0x011B, "E"},  Letters{0x011C, 0x0123, "G"},  Letters{0x0124, 0x0127, "H"},
    Letters{0x0128, 0x0131, "I"},  Letters{0x0132, 0x0133, "IJ"}, Letters{0x0134, 0x0135, "J"},
    Letters{0x0136, 0x0137, "K"},  Letters{0x0139, 0x0142, "L"},  Letters{0x0143, 0x014B, "N"},
    Letters{0x014C, 0x0151, "O"},  Letters{0x0152, 0x0153, "OE"}, Letters{0x0154, 0x0159, "R"},
    Letters{0x015A, 0x0161, "S"},  Letters{0x0162, 0x0167, "T"},  Letters{0x0168, 0x0173, "U"},
    Letters{0x0174, 0x0175, "W"},  Letters{0x0176, 0x0178, "Y"},  Letters{0x0179, 0x017E, "Z"},
    Letters{0x1E9E, 0x1E9E, "SS"},
};

/// What stands between the parts of a name, and what is left out.
constexpr std::string_view separators = " -<,";
constexpr std::string_view silent = "'.";

/// Takes one character off the front of well-formed UTF-8.
std::uint32_t takeCharacter(std::string_view& text) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::size_t size = byte(0) < 0x80 ? 1 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
  std::uint32_t character = size == 1 ? byte(0) : byte(0) & (0xFFU >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) character = character << 6 | (byte(i) & 0x3FU);
  text.remove_prefix(size);
  return character;
}

/// `text` with fillers behind it; it must not be longer than the field.
std::string padded(std::string text, std::size_t size, const std::string& what) {
  require(text.size() <= size, what + " is longer than the " + std::to_string(size) + " characters of its field");
  text.resize(size, filler);
  return text;
}

std::string nameField(const PrintedData& data, std::size_t size) {
  const std::string last = transliterated(data.lastName);
  const std::string first = transliterated(data.firstName);
  require(!last.empty(), "the last name has no letters");
  // A first letter of the other names is kept, however long the last one is.
  const std::string names = first.empty() ? last : last.substr(0, size - 3) + "<<" + first;
  return padded(names.substr(0, size), size, "the name");
}

/// `field` and its check digit.
std::string checked(const std::string& field) {
  constexpr std::array factors{7, 3, 1};
  int sum = 0;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const char c = field[i];
    const int value = isDigit(c) ? c - '0' : isLetter(c) ? c - 'A' + 10 : 0;
    sum += value * factors[i % factors.size()];
  }
  return field + static_cast<char>('0' + sum % 10);
}

/// The number with its check digit, and the optional data in a field of `size`: a number that is too long goes on in
/// that field, and a filler takes the place of the check digit.
std::string numberAndOptionalData(const PrintedData& data, std::size_t size) {
  constexpr std::size_t numberSize = 9;
  const std::string& number = data.documentNumber;
  if (number.size() <= numberSize) {
    return checked(padded(number, numberSize, "the document number")) +
           padded(data.optionalData, size, "the optional data");
  }
  std::string rest = number.substr(numberSize) + checked(number).back() + filler;
  return number.substr(0, numberSize) + filler +
         padded(rest + data.optionalData, size, "the document number with the optional data");
}

/// YYMMDD with a check digit.
std::string birthField(const std::string& digits) {
  require(digits.size() == 8 && std::ranges::all_of(digits, isDigit), "the date of birth is not YYYYMMDD");
  std::string field = digits.substr(2);
  for (const std::size_t part : {2U, 4U}) {
    if (field.compare(part, 2, "00") == 0) field.replace(part, 2, 2, filler);
  }
  return checked(field);
}

void checkCharacters(const PrintedData& data) {
  const auto all = [](const std::string& text, auto isFit) { return std::ranges::all_of(text, isFit); };
  const bool isPassport = data.format == MRZ::Format::TD3;
  const std::string_view initials = isPassport ? "P" : "ACI";
  require(!data.documentCode.empty() && data.documentCode.size() <= 2 && all(data.documentCode, isLetter) &&
              initials.find(data.documentCode.front()) != std::string_view::npos,
          std::string("the document code is no P with a second letter or without, as TD3 has it; TD1 and TD2 have ") +
              "A, C or I");
  require(!data.documentNumber.empty() && all(data.documentNumber, [](char c) { return isLetter(c) || isDigit(c); }),
          "the document number is not made of A to Z and 0 to 9");
  require(!data.nationality.empty() && all(data.nationality, isLetter), "the nationality is not made of A to Z");
  require(all(data.optionalData, [](char c) { return isLetter(c) || isDigit(c) || c == filler; }),
          "the optional data is not made of A to Z, 0 to 9 and fillers");
  require(std::string_view("FMX").find(data.gender) != std::string_view::npos, "the gender is none of F, M and X");
}

}  // namespace

std::string transliterated(std::string_view name) {
  require(foundation::isValidUTF8(name), "a name is not in UTF-8");
  std::string text;
  while (!name.empty()) {
    std::uint32_t character = takeCharacter(name);
    const bool isLowerLatin1 = character >= 0xE0 && character <= 0xFE;
    if ((character >= 'a' && character <= 'z') || isLowerLatin1) character -= 0x20;

    const auto fits = [character](const Letters& row) { return row.first <= character && character <= row.last; };
    if (const auto* row = std::ranges::find_if(latinLetters, fits); row != latinLetters.end()) {
      text += row->text;
      continue;
    }
    const char c = character < 0x80 ? static_cast<char>(character) : '\0';
    if (isLetter(c)) {
      text += c;
    } else if (separators.find(c) != std::string_view::npos) {
      if (!text.empty() && text.back() != filler) text += filler;
    } else {
      require(silent.find(c) != std::string_view::npos || character == 0x2019,  // a typographic apostrophe
              "a name has characters that have no place in a machine readable zone; give it in Latin letters");
    }
  }
  if (text.ends_with(filler)) text.pop_back();
  return text;
}

std::string digitsOf(std::chrono::year_month_day day) {
  const int year = static_cast<int>(day.year());
  require(day.ok() && year >= 1000 && year <= 9999, "a date is no day of a year with four digits");
  return std::to_string(static_cast<unsigned>(year) * 10'000 + static_cast<unsigned>(day.month()) * 100 +
                        static_cast<unsigned>(day.day()));
}

std::string zone(const PrintedData& data) {
  checkCharacters(data);
  const std::string begin = padded(data.documentCode, 2, "the document code") + std::string(utopia);
  const std::string nationality = padded(data.nationality, 3, "the nationality");
  const std::string birth = birthField(data.dateOfBirth);
  const std::string genderAndExpiry =
      (data.gender == 'X' ? filler : data.gender) + checked(digitsOf(data.dateOfExpiry).substr(2));
  const std::string expiry = genderAndExpiry.substr(1);

  if (data.format == MRZ::Format::TD1) {
    const std::string first = begin + numberAndOptionalData(data, 15);
    const std::string second = birth + genderAndExpiry + nationality + std::string(11, filler);
    const char composite = checked(first.substr(5) + birth + expiry + std::string(11, filler)).back();
    return first + second + composite + nameField(data, 30);
  }
  if (data.format == MRZ::Format::TD2) {
    const std::string numbers = numberAndOptionalData(data, 7);
    const std::string number = numbers.substr(0, 10);
    const std::string optional = numbers.substr(10);
    const char composite = checked(number + birth + expiry + optional).back();
    return begin + nameField(data, 31) + number + nationality + birth + genderAndExpiry + optional + composite;
  }
  const std::string number = checked(padded(data.documentNumber, 9, "the document number of a TD3"));
  const std::string optional = checked(padded(data.optionalData, 14, "the optional data"));
  const char composite = checked(number + birth + expiry + optional).back();
  return begin + nameField(data, 39) + number + nationality + birth + genderAndExpiry + optional + composite;
}

}  // namespace tavlo::specimen
