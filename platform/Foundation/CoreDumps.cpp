#include <Foundation/CoreDumps.hpp>

#include <sys/prctl.h>
#include <sys/resource.h>

namespace tavlo::foundation {

void forbidCoreDumps() noexcept {
  const rlimit none{};
  setrlimit(RLIMIT_CORE, &none);
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);  // a limit alone does not hold for a program that core_pattern names
}

}  // namespace tavlo::foundation
