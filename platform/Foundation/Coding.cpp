#include <Foundation/Coding.hpp>

namespace tavlo::foundation {

namespace {

std::string textOf(const CodingPath& path, const std::string& message) {
  return path.empty() ? message : describe(path) + ": " + message;
}

}  // namespace

std::string describe(const CodingPath& path) {
  std::string text;
  for (const CodingKey& key : path) {
    if (const auto* index = std::get_if<std::size_t>(&key)) {
      text += "[" + std::to_string(*index) + "]";
    } else {
      text += (text.empty() ? "" : ".") + std::get<std::string>(key);
    }
  }
  return text;
}

DecodingError::DecodingError(Kind kind, CodingPath path, const std::string& message)
    : kind_(kind), path_(std::move(path)), text_(textOf(path_, message)) {}

EncodingError::EncodingError(CodingPath path, const std::string& message)
    : path_(std::move(path)), text_(textOf(path_, message)) {}

}  // namespace tavlo::foundation
