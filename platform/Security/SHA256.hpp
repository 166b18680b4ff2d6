#pragma once

#include <Foundation/Data.hpp>

#include <array>
#include <cstdint>

namespace tavlo::security {

/// The SHA-256 hash of `bytes` (FIPS 180-4). Throws SecurityError.
[[nodiscard]] std::array<std::uint8_t, 32> sha256(foundation::DataView bytes);

}  // namespace tavlo::security
