#pragma once

#include <Foundation/URLSession.hpp>

#include <memory>

namespace tavlo::foundation {

/// The session that is in force until a host app installs its own.
[[nodiscard]] std::shared_ptr<URLSession> makeProcessSession();

}  // namespace tavlo::foundation
