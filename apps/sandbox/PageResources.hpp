#pragma once

#include <Foundation/Bundle.hpp>

#include <memory>

namespace tavlo::sandbox {

/// The files in the folder "page", compiled in.
[[nodiscard]] std::shared_ptr<foundation::Bundle> pageResources();

}  // namespace tavlo::sandbox
