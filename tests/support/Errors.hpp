#pragma once

#include <optional>

namespace tavlo::test {

/// The `Error` that `action` throws; absent when it throws nothing.
template <class Error>
std::optional<Error> errorOf(const auto& action) try {
  (void)action();
  return std::nullopt;
} catch (const Error& error) {
  return error;
}

}  // namespace tavlo::test
