#pragma once

#include <Foundation/Bundle.hpp>

#include <memory>

#pragma GCC visibility push(hidden)

namespace tavlo {

/// The library's own images, compiled in.
[[nodiscard]] std::shared_ptr<foundation::Bundle> compiledResources();

}  // namespace tavlo

#pragma GCC visibility pop
