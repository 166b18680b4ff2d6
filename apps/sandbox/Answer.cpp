#include "Answer.hpp"

#include <string_view>
#include <utility>

namespace tavlo::sandbox {

namespace {

std::string_view name(Result result) {
  switch (result) {
    case Result::passed:
      return "passed";
    case Result::failed:
      return "failed";
    case Result::notChecked:
      break;
  }
  return "not checked";
}

std::string named(Result result, bool coloured) {
  const std::string text(name(result));
  if (!coloured || result == Result::notChecked) return text;
  return (result == Result::passed ? "\033[32m" : "\033[31m") + text + "\033[0m";
}

}  // namespace

Answer refusal(std::string error) {
  Answer answer;
  answer.error = std::move(error);
  return answer;
}

std::string consoleText(const Answer& answer, bool coloured) {
  if (answer.error) return "refused: " + *answer.error;
  std::string lines = "verification " + named(answer.status, coloured);
  for (const Reason& reason : answer.reasons) {
    lines += "\n  " + reason.check + " " + named(reason.result, coloured) + ", " + reason.reason + ": " + reason.text;
  }
  return lines;
}

}  // namespace tavlo::sandbox
