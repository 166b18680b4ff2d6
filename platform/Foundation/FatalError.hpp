#pragma once

#include <string_view>

namespace tavlo::foundation {

/// Ends the process by abort() after one line on standard error: "Fatal error: <message>: file <file>".
/// For programming errors only; `file` is a bare source name, never a build path.
[[noreturn]] void fatalError(std::string_view message, std::string_view file);

}  // namespace tavlo::foundation
