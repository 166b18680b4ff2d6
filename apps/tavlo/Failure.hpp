#pragma once

#include <stdexcept>
#include <string>

namespace tavlo::app {

/// The exit status of the program.
enum class ExitCode {
  done = 0,
  fault = 1,
  wrongUse = 2,
  input = 3,
  output = 4,
  keyStore = 5,
  request = 6,
  untrusted = 7,
  documents = 8,
  noCredential = 9,
  unreachable = 10,
  timeout = 11,
  tls = 12,
  badAnswer = 13,
  network = 14,
  noOutcome = 15,
};

/// Every exit status with what it means, one a line, for help texts.
[[nodiscard]] std::string exitCodeHelp();

/// Ends the program with an exit status. The text tells a person what is wrong and what to do next, and holds no
/// personal data.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  [[nodiscard]] ExitCode code() const noexcept { return code_; }

 private:
  ExitCode code_;
};

}  // namespace tavlo::app
