#include <Foundation/FatalError.hpp>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tavlo::foundation {

void fatalError(std::string_view message, std::string_view file) {
  const std::string line = "Fatal error: " + std::string(message) + ": file " + std::string(file) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace tavlo::foundation
