#include "Checks.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::sandbox {

using std::chrono::year_month_day;

namespace {

Result resultOf(reader::AuthenticationStep::Result result) {
  switch (result) {
    case reader::AuthenticationStep::Result::passed:
      return Result::passed;
    case reader::AuthenticationStep::Result::failed:
      return Result::failed;
    case reader::AuthenticationStep::Result::notChecked:
      break;
  }
  return Result::notChecked;
}

void authenticateDocument(Answer& answer, const Request& request, const reader::TrustAnchors& anchors,
                          year_month_day today) {
  for (const auto& step : reader::authenticate(request.model, anchors, std::chrono::sys_days(today)).steps) {
    const bool isGroup = step.name.starts_with("DG");
    Result result = resultOf(step.result);
    if (!step.required && result == Result::failed) result = Result::notChecked;  // it only informs
    answer.reasons.push_back({isGroup ? "integrity" : "certificate", result, step.reason, step.text});
  }
}

Reason checkValidity(const Request& request, year_month_day today) {
  if (!request.model.dataGroupsRead().contains(reader::DataGroupId::DG1)) {
    return {"validity", Result::notChecked, "not_sent", "DG1, which states the date of expiry, was not sent."};
  }
  const auto expiry = expiryDate(request.model.documentExpiryDate(), today);
  if (!expiry) return {"validity", Result::notChecked, "no_date", "The date of expiry is no date."};
  if (*expiry < today) return {"validity", Result::failed, "expired", "The document has expired, as its DG1 says."};
  return {"validity", Result::passed, "not_expired", "The document has not expired, as its DG1 says."};
}

Reason checkSelfie(const Request& request) {
  if (!request.hasSelfie) return {"biometry", Result::notChecked, "not_sent", "No selfie was sent."};
  return {"biometry", Result::passed, "picture", "The selfie is a picture; no faces were looked for or compared."};
}

Reason checkPublicKey(const Request& request) {
  if (!request.hasPublicKey) return {"registration", Result::notChecked, "not_sent", "No public key was sent."};
  return {"registration", Result::passed, "point", "The public key is a point on P-256; it was registered nowhere."};
}

/// Failed where anything failed, else passed where anything passed: groups that were not sent do no harm.
Result resultOf(const std::vector<Reason>& reasons, std::string_view check) {
  const auto any = [&](Result result) {
    return std::ranges::any_of(reasons, [&](const Reason& r) { return r.check == check && r.result == result; });
  };
  if (any(Result::failed)) return Result::failed;
  return any(Result::passed) ? Result::passed : Result::notChecked;
}

}  // namespace

std::optional<year_month_day> expiryDate(std::string_view digits, year_month_day today) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (digits.size() != 6 || !std::ranges::all_of(digits, isDigit)) return std::nullopt;
  const auto pair = [&](std::size_t at) { return (digits[at] - '0') * 10 + (digits[at + 1] - '0'); };

  int year = static_cast<int>(today.year()) / 100 * 100 + pair(0);
  if (year > static_cast<int>(today.year()) + 50) year -= 100;
  if (year < static_cast<int>(today.year()) - 50) year += 100;
  const year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(pair(2))),
                            std::chrono::day(static_cast<unsigned>(pair(4)))};
  return date.ok() ? std::optional(date) : std::nullopt;
}

Answer check(const Request& request, const reader::TrustAnchors& anchors, year_month_day today) {
  Answer answer;
  authenticateDocument(answer, request, anchors, today);
  answer.reasons.push_back(checkValidity(request, today));
  answer.reasons.push_back(checkSelfie(request));
  answer.reasons.push_back(checkPublicKey(request));

  const auto of = [&](std::string_view name) { return resultOf(answer.reasons, name); };
  answer.verification = {of("biometry"), of("certificate"), of("integrity"), of("registration"), of("validity")};
  const auto& all = answer.verification;
  const std::array results{all.biometry, all.certificate, all.integrity, all.registration, all.validity};
  const auto any = [&](Result result) { return std::ranges::find(results, result) != results.end(); };
  answer.status = any(Result::failed) ? Result::failed : any(Result::notChecked) ? Result::notChecked : Result::passed;
  return answer;
}

}  // namespace tavlo::sandbox
