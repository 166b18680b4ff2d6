#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tavlo::reader {

/// A machine readable zone, taken apart (ICAO Doc 9303-4, -5 and -6).
///
/// Texts are without fillers and valid UTF-8. Wrong check digits, unknown letters and dates that are none are kept as
/// they were printed: the zone states what the document says, and passive authentication whether that is genuine.
struct MRZ {
  /// Three lines of 30 characters, two of 36, two of 44.
  enum class Format { TD1, TD2, TD3 };

  /// A check digit and whether it fits its field.
  struct CheckDigit {
    std::string_view field;  ///< "number", "birth", "expiry", "optional" (TD3 only) or "composite"
    bool correct = false;    ///< whether it fits
  };

  Format format = Format::TD3;  ///< told by the length of the zone
  std::string documentCode;     ///< one or two letters, such as "P" or "PO"
  std::string issuingState;     ///< one to three letters, such as "UTO" or "D"
  std::string documentNumber;   ///< whole, also where a TD1 or TD2 carries it on in its optional data
  std::string nationality;      ///< as issuingState
  std::string lastName;         ///< primary identifier, its parts separated by blanks
  std::string firstName;        ///< secondary identifier, likewise; empty when there is none
  bool namesFillField = false;  ///< whether the names reach the end of their field, so that they may be cut short
  std::string dateOfBirth;      ///< YYMMDD with its fillers: parts may be unknown
  std::string gender;           ///< "M", "F" or empty
  std::string dateOfExpiry;     ///< YYMMDD with its fillers
  std::string optionalData;     ///< what the issuer chose to add; inner fillers stay
  std::string optionalData2;    ///< the second such field, TD1 only
  std::vector<CheckDigit> checkDigits;  ///< in the order of the zone
  bool foreignCharacters = false;       ///< whether characters other than A-Z, 0-9 and the filler are there

  /// Takes a zone apart, its lines run together: 90 characters for TD1, 72 for TD2, 88 for TD3.
  /// Throws ReaderError for any other length.
  [[nodiscard]] static MRZ parse(std::string_view zone);
};

/// "TD1", "TD2" or "TD3".
[[nodiscard]] std::string_view name(MRZ::Format format);

}  // namespace tavlo::reader
