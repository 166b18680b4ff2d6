#pragma once

#include <optional>
#include <string>

#pragma GCC visibility push(hidden)

namespace tavlo::foundation {

/// The value of an environment variable; absent when it is empty, and all are in a program with raised privileges
/// (set-user-ID), whose environment is somebody else's.
[[nodiscard]] std::optional<std::string> environmentValue(const char* name);

}  // namespace tavlo::foundation

#pragma GCC visibility pop
