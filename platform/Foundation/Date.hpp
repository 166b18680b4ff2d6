#pragma once

#include <chrono>

namespace tavlo::foundation {

/// A point in time by the system's clock.
using Date = std::chrono::system_clock::time_point;

}  // namespace tavlo::foundation
