#pragma once

#include <cerrno>

namespace tavlo::foundation {

/// Calls `call`, which sets errno, again as long as a signal interrupts it.
template <class Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace tavlo::foundation
