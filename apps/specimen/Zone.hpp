#pragma once

#include <TavloReader/MRZ.hpp>

#include <chrono>
#include <string>
#include <string_view>

namespace tavlo::specimen {

/// The state that all documents of this library are of. It does not exist.
inline constexpr std::string_view utopia = "UTO";

/// What a machine readable zone says. Names are in UTF-8, in any case.
struct PrintedData {
  reader::MRZ::Format format = reader::MRZ::Format::TD3;
  std::string documentCode = "P";  ///< one or two letters
  std::string documentNumber;      ///< letters and digits: at most 9 for TD3, 16 for TD2 and 22 for TD1
  std::string lastName;
  std::string firstName;  ///< may be empty
  std::string nationality = std::string(utopia);
  std::string dateOfBirth;  ///< YYYYMMDD, with 00 for a month or day that is not known
  char gender = 'X';        ///< 'F', 'M' or 'X' for unspecified
  std::chrono::year_month_day dateOfExpiry{};
  std::string optionalData;  ///< letters, digits and fillers
};

/// The machine readable zone, its lines run together, with all check digits (ICAO Doc 9303-4, -5 and -6). Names too
/// long for their field are cut. Throws std::invalid_argument, without personal data, for what fits no zone.
[[nodiscard]] std::string zone(const PrintedData& data);

/// A day as YYYYMMDD. Throws std::invalid_argument when it is none, or its year has no four digits.
[[nodiscard]] std::string digitsOf(std::chrono::year_month_day day);

/// A name in the letters of a zone, its parts separated by fillers; common Latin letters as ICAO Doc 9303-3 gives them.
/// Throws std::invalid_argument when there is any other.
[[nodiscard]] std::string transliterated(std::string_view name);

}  // namespace tavlo::specimen
