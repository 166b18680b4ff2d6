#include <TavloCA/CAError.hpp>

#include <Foundation/Coding.hpp>
#include <Foundation/UTF8.hpp>

#include <utility>

namespace tavlo {

CAError::CAError(std::string_view text) : message("CAError: ") {
  message += text;
}

std::optional<foundation::JSONObject> toJSON(std::string_view text) {
  try {
    auto value = foundation::JSONSerialization::jsonObject(foundation::dataOf(text),
                                                           foundation::JSONReadingOptions::mutableContainers);
    if (auto* object = value.getIf<foundation::JSONObject>()) return std::move(*object);
  } catch (const foundation::DecodingError&) {
  }
  return std::nullopt;
}

void appendString(foundation::NSMutableData& data, std::string_view text) {
  const std::string valid = foundation::makeValidUTF8(text);
  data.insert(data.end(), valid.begin(), valid.end());
}

}  // namespace tavlo
