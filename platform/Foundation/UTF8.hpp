#pragma once

#include <string>
#include <string_view>

namespace tavlo::foundation {

/// Whether `text` is well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF).
[[nodiscard]] bool isValidUTF8(std::string_view text) noexcept;

/// `text` with each maximal ill-formed run replaced by U+FFFD; well-formed text comes back unchanged.
[[nodiscard]] std::string makeValidUTF8(std::string_view text);

}  // namespace tavlo::foundation
