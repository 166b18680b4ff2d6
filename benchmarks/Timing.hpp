#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace tavlo::bench {

/// By what factor the last tenth of `count` calls, ten at the least, takes longer than the first, by their medians.
template <class Call>
[[nodiscard]] double lateOverEarly(std::size_t count, Call call) {
  using Clock = std::chrono::steady_clock;
  std::vector<Clock::duration> times(count);
  for (auto& time : times) {
    const auto start = Clock::now();
    call();
    time = Clock::now() - start;
  }
  const auto medianFrom = [&](std::size_t first) {
    const auto begin = times.begin() + static_cast<std::ptrdiff_t>(first);
    const auto middle = begin + static_cast<std::ptrdiff_t>(count / 20);
    std::nth_element(begin, middle, begin + static_cast<std::ptrdiff_t>(count / 10));
    return static_cast<double>(middle->count());
  };
  return medianFrom(count - count / 10) / medianFrom(0);
}

}  // namespace tavlo::bench
