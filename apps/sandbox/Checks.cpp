#include "Checks.hpp"

#include <Security/SecKey.hpp>

#include <algorithm>
#include <string_view>

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
  constexpr std::size_t smallestSide = 100;  // pixels
  constexpr std::size_t longestShape = 3;    // times the shorter side
  const auto failed = [](const char* reason, const char* text) {
    return Reason{"biometry", Result::failed, reason, text};
  };
  if (!request.selfie) return {"biometry", Result::notChecked, "not_sent", "No selfie was sent."};
  const auto [shorter, longer] = std::minmax(request.selfie->width, request.selfie->height);
  if (shorter < smallestSide) return failed("too_small", "A side of the selfie is shorter than 100 pixels.");
  if (longer > longestShape * shorter) return failed("odd_shape", "The selfie is over three times as long as wide.");
  if (request.selfie->isFlat) return failed("one_colour", "The selfie shows nothing but one colour.");
  return {"biometry", Result::passed, "picture",
          "The selfie is a plausible picture; no face was looked for or compared."};
}

bool isPublicKey(foundation::DataView bytes) {
  using security::SecKeyType;
  constexpr std::size_t uncompressedPointSize = 65;
  try {
    const auto type = bytes.size() == uncompressedPointSize ? SecKeyType::ellipticCurve : SecKeyType::rsa;
    (void)security::publicKeyFromData(bytes, type);
    return true;
  } catch (const security::SecurityError&) {
    return false;
  }
}

/// A document that is not known to be genuine must not take the place of the one that it imitates.
Reason checkPublicKey(const Request& request, bool isGenuine, History* history) {
  const auto reason = [](Result result, const char* name, const char* text) {
    return Reason{"registration", result, name, text};
  };
  if (!request.publicKey) return reason(Result::notChecked, "not_sent", "No public key was sent.");
  if (!isPublicKey(*request.publicKey)) {
    return reason(Result::failed, "no_key", "The public key is neither a point on P-256 nor an RSA key of 3072 bits.");
  }
  const auto* zone = request.model.find<reader::DataGroup1>();
  if (!isGenuine || zone == nullptr || history == nullptr) {
    return reason(Result::passed, "key",
                  "The public key is one; it is not kept, since the document may not be genuine.");
  }
  switch (history->record(zone->mrz().issuingState, zone->mrz().documentNumber, *request.publicKey)) {
    case History::Finding::otherKey:
      return reason(Result::failed, "other_key", "The document came with another public key before.");
    case History::Finding::sameKey:
      return reason(Result::passed, "same_key", "The document came with the same public key before.");
    case History::Finding::first:
      break;
  }
  return reason(Result::passed, "first_key", "The public key is the first that the document came with.");
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

Answer check(const Request& request, const reader::TrustAnchors& anchors, year_month_day today, History* history) {
  Answer answer;
  authenticateDocument(answer, request, anchors, today);
  conclude(answer);
  const bool isGenuine =
      answer.verification.certificate == Result::passed && answer.verification.integrity == Result::passed;
  answer.reasons.push_back(checkValidity(request, today));
  answer.reasons.push_back(checkSelfie(request));
  answer.reasons.push_back(checkPublicKey(request, isGenuine, history));
  conclude(answer);
  return answer;
}

}  // namespace tavlo::sandbox
