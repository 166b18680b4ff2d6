#include "Answer.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace tavlo::sandbox {

Answer refusal(std::string error) {
  Answer answer;
  answer.error = std::move(error);
  return answer;
}

void conclude(Answer& answer) {
  const auto of = [&](std::string_view check) {
    const auto any = [&](Result result) {
      return std::ranges::any_of(answer.reasons,
                                 [&](const Reason& r) { return r.check == check && r.result == result; });
    };
    if (any(Result::failed)) return Result::failed;
    return any(Result::passed) ? Result::passed : Result::notChecked;
  };
  answer.verification = {of("biometry"), of("certificate"), of("integrity"), of("registration"), of("validity")};
  const auto& all = answer.verification;
  const std::array results{all.biometry, all.certificate, all.integrity, all.registration, all.validity};
  const auto any = [&](Result result) { return std::ranges::find(results, result) != results.end(); };
  answer.status = any(Result::failed) ? Result::failed : any(Result::notChecked) ? Result::notChecked : Result::passed;
}

std::string_view name(Result result) {
  switch (result) {
    case Result::passed:
      return "passed";
    case Result::failed:
      return "failed";
    case Result::notChecked:
      break;
  }
  return "not-checked";
}

std::string noteOf(const Answer& answer) {
  std::string why = answer.error.value_or("");
  std::ranges::replace(why, '"', '\'');
  if (!answer.error) {
    for (const Reason& reason : answer.reasons) {
      // Groups that were not sent are nothing to worry about in a request that passed.
      if (reason.result == Result::passed || answer.status == Result::passed) continue;
      const std::string part = reason.check + ":" + reason.reason;
      if (why.find(part) == why.npos) why += (why.empty() ? "" : ",") + part;
    }
  }
  return "verdict=" + std::string(answer.error ? "refused" : name(answer.status)) +
         (why.empty() ? "" : " why=\"" + why + "\"");
}

}  // namespace tavlo::sandbox
