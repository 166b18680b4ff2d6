#pragma once

#include <Foundation/Data.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tavlo::foundation {

/// Two lower-case hexadecimal digits a byte, high nibble first, nothing between them.
[[nodiscard]] std::string toHexString(DataView bytes);

/// The bytes of such a text, in lower or upper case; absent for an odd length or any other character.
[[nodiscard]] std::optional<Data> dataFromHex(std::string_view text);

}  // namespace tavlo::foundation
