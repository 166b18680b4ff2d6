#pragma once

#include <Foundation/Data.hpp>
#include <TavloCA/TavloCA.hpp>

#include <exception>
#include <functional>

#include "Failure.hpp"

namespace tavlo::app {

/// Calls `start` with a completion, waits until that is called, and gives the answer's body. Shows the time that passes
/// where standard error is a terminal. Throws Failure for every other outcome.
[[nodiscard]] foundation::Data awaitAnswer(const std::function<void(Completion)>& start);

/// What an error of the library, its key store or its network layer means for the program.
[[nodiscard]] Failure failureOf(const std::exception_ptr& error);

}  // namespace tavlo::app
