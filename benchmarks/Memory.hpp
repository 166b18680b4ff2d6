#pragma once

#include <cstddef>

namespace tavlo::bench {

// malloc and its kin are this program's own while it counts, so that what libraries allocate counts as well.

void startCounting();
/// The most bytes that were allocated at once since `startCounting`, in all threads, beyond those allocated then.
[[nodiscard]] std::size_t stopCounting();

/// That peak over one call of `action`.
template <class Action>
[[nodiscard]] std::size_t peakMemory(Action action) {
  startCounting();
  action();
  return stopCounting();
}

}  // namespace tavlo::bench
