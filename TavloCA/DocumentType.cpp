#include <TavloCA/DocumentType.hpp>

#include <array>
#include <string>

namespace tavlo {

namespace {

struct Row {
  DocumentType type;
  std::string_view rawValue;
  std::string_view title;
};

// In the order of the enumeration.
constexpr std::array rows{
    Row{DocumentType::P, "P", "Passport"},
    Row{DocumentType::A, "A", "Residence Card"},
    Row{DocumentType::I, "I", "National Identity Card"},
    Row{DocumentType::H, "H", "Corona Certificate"},
};

const Row& rowOf(DocumentType type) {
  return rows.at(static_cast<std::size_t>(type));
}

}  // namespace

std::string_view rawValue(DocumentType type) {
  return rowOf(type).rawValue;
}

std::string_view title(DocumentType type) {
  return rowOf(type).title;
}

std::optional<DocumentType> documentTypeFrom(std::string_view rawValue) {
  for (const Row& row : rows) {
    if (row.rawValue == rawValue) return row.type;
  }
  return std::nullopt;
}

}  // namespace tavlo

namespace tavlo::foundation {

void Coding<DocumentType>::encode(DocumentType type, Encoder& encoder) {
  encoder.singleValueContainer().encodeString(rawValue(type));
}

DocumentType Coding<DocumentType>::decode(Decoder& decoder) {
  const std::string text = decoder.singleValueContainer().decodeString();
  if (const auto type = documentTypeFrom(text)) return *type;
  throw DecodingError(DecodingError::Kind::dataCorrupted, decoder.codingPath(), "the text is no document type");
}

}  // namespace tavlo::foundation
