#include <Foundation/CoreDumps.hpp>

#include <sys/prctl.h>
#include <sys/resource.h>

namespace tavlo::foundation {

void forbidCoreDumps() noexcept {
  const rlimit none{};
  setrlimit(RLIMIT_CORE, &none);
#ifndef TAVLO_SANITIZED
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);  // the limit alone does not hold for a program that core_pattern names
#endif
}

}  // namespace tavlo::foundation
