#pragma once

namespace tavlo::foundation {

/// Sees to it that this process leaves no copy of its memory, and of the personal data in it, when it crashes: neither
/// in a core file nor with a program that collects crashes. On Linux no process of the same user can then look into it,
/// either; a debugger must start it. For the first lines of main. With sanitizers, whose leak check has to look into
/// the process, only core files are off.
void forbidCoreDumps() noexcept;

}  // namespace tavlo::foundation
