#include <TavloCommon/TavloCommon.hpp>

#include <algorithm>
#include <array>

namespace tavlo::common {

namespace {

/// What makers leave in the firmware in place of a name.
constexpr auto placeholders = std::to_array<std::string_view>(
    {"default string", "invalid", "n/a", "none", "not applicable", "not available", "not specified", "o.e.m.", "oem",
     "product name", "system name", "system product name", "to be filled by o.e.m.", "unknown", "undefined"});

char lowered(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

std::optional<std::string> modelName(const uikit::UIDevice& device) {
  constexpr std::string_view blanks = " \t\r\n";
  std::string name = device.model().value_or("");
  name.erase(name.find_last_not_of(blanks) + 1);
  name.erase(0, name.find_first_not_of(blanks));
  const bool placeholder = std::ranges::any_of(
      placeholders, [&](std::string_view text) { return std::ranges::equal(name, text, {}, lowered); });
  // Some makers write a row of one character, such as "0000" or "xxxx".
  if (placeholder || name.find_first_not_of(name.substr(0, 1)) == std::string::npos) return std::nullopt;
  return name;
}

}  // namespace tavlo::common
