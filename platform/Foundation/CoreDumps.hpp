#pragma once

namespace tavlo::foundation {

/// Sees to it that this process leaves no copy of its memory, and of the personal data in it, when it crashes: neither
/// in a core file nor with a program that collects crashes. No other process of the same user can then look into it,
/// either, unless it starts it, as a debugger does. For the first line of main.
void forbidCoreDumps() noexcept;

}  // namespace tavlo::foundation
