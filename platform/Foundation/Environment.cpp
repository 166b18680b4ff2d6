#include <Foundation/Environment.hpp>

#ifdef __linux__
#include <sys/auxv.h>
#else
#include <unistd.h>
#endif

#include <cstdlib>

namespace tavlo::foundation {
namespace {

bool hasRaisedPrivileges() {
#ifdef __linux__
  return ::getauxval(AT_SECURE) != 0;
#else
  return ::issetugid() != 0;
#endif
}

}  // namespace

std::optional<std::string> environmentValue(const char* name) {
  const char* const value = hasRaisedPrivileges() ? nullptr : std::getenv(name);
  return value != nullptr && *value != '\0' ? std::optional<std::string>(value) : std::nullopt;
}

}  // namespace tavlo::foundation
