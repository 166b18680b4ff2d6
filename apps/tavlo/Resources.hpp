#pragma once

#include <Foundation/Bundle.hpp>

#include <memory>

namespace tavlo::app {

/// The pictures of this program, compiled in: its main bundle.
[[nodiscard]] std::shared_ptr<foundation::Bundle> compiledResources();

}  // namespace tavlo::app
