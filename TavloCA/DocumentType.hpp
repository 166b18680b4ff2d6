#pragma once

#include <Foundation/Coding.hpp>

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

namespace tavlo {

/// The kind of an identity document. A document of another kind, or of one with a two-letter code, has none.
enum class DocumentType {
  P,  ///< passport
  A,  ///< residence card
  I,  ///< national identity card
  H,  ///< certificate
};

/// The one-letter code: "P", "A", "I" or "H".
[[nodiscard]] std::string_view rawValue(DocumentType type);

/// The English title to show: "Passport", "Residence Card", "National Identity Card" or "Corona Certificate".
[[nodiscard]] std::string_view title(DocumentType type);

/// The kind whose code is exactly `rawValue`; absent for any other text. Nothing is trimmed or folded.
[[nodiscard]] std::optional<DocumentType> documentTypeFrom(std::string_view rawValue);

}  // namespace tavlo

/// Agrees with the hash of the raw value.
template <>
struct std::hash<tavlo::DocumentType> {
  std::size_t operator()(tavlo::DocumentType type) const noexcept {
    return std::hash<std::string_view>{}(tavlo::rawValue(type));
  }
};

/// Coded as its raw value, a plain text. Decoding another text throws DecodingError of kind dataCorrupted.
template <>
struct tavlo::foundation::Coding<tavlo::DocumentType> {
  static void encode(DocumentType type, Encoder& encoder);
  static DocumentType decode(Decoder& decoder);
};
