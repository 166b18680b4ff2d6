#include <Foundation/CoreDumps.hpp>

#ifdef __linux__
#include <sys/prctl.h>
#endif
#include <sys/resource.h>

namespace tavlo::foundation {

void forbidCoreDumps() noexcept {
  const rlimit none{};
  setrlimit(RLIMIT_CORE, &none);
#ifdef __linux__
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);  // a limit alone does not hold for a program that core_pattern names
#endif
}

}  // namespace tavlo::foundation
