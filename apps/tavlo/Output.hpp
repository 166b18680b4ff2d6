#pragma once

#include <Foundation/Data.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tavlo::app {

/// Writes `bytes`, and nothing else, to `file` (mode 0600) or else to standard output. Throws Failure.
void deliver(foundation::DataView bytes, const std::optional<std::string>& file = std::nullopt);

/// Writes one line to standard error, fit for a terminal.
void tell(std::string_view line);

/// `text` with its control characters written out as "\x1B": texts of chips and names of files must not steer a
/// terminal. Malformed UTF-8 becomes U+FFFD.
[[nodiscard]] std::string printable(std::string_view text);

}  // namespace tavlo::app
