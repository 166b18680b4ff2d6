#pragma once

#include <Foundation/Coding.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace tavlo::sandbox {

/// How a check went, and its number in an answer.
enum class Result : std::uint8_t { passed = 0, failed = 1, notChecked = 2 };

/// Why a check went as it did. A check may have several reasons.
struct Reason {
  std::string check;  ///< a member of VerificationStatus, such as "integrity"
  Result result = Result::notChecked;
  std::string reason;  ///< machine-readable, such as "hash_mismatch"
  std::string text;    ///< one sentence for a person, without personal data

  static constexpr auto members() {
    using foundation::member;
    return std::tuple{member("check", &Reason::check), member("result", &Reason::result),
                      member("reason", &Reason::reason), member("text", &Reason::text)};
  }
};

/// The checks in the answer's declared shape.
struct VerificationStatus {
  Result biometry = Result::notChecked;
  Result certificate = Result::notChecked;
  Result integrity = Result::notChecked;
  Result registration = Result::notChecked;
  Result validity = Result::notChecked;

  static constexpr auto members() {
    using foundation::member;
    using Status = VerificationStatus;
    return std::tuple{member("biometry", &Status::biometry), member("certificate", &Status::certificate),
                      member("integrity", &Status::integrity), member("registration", &Status::registration),
                      member("validity", &Status::validity)};
  }
};

/// What is issued to a verified key.
struct Signature {
  std::optional<std::string> cert;  ///< an X.509 certificate in PEM

  static constexpr auto members() { return std::tuple{foundation::member("cert", &Signature::cert)}; }
};

/// What the sandbox answers. "sandbox" and "reasons" are its own; the other members are those that any service answers
/// with.
struct Answer {
  std::optional<std::string> error;  ///< why there was nothing to check
  std::optional<Signature> signing;  ///< only when all checks passed
  Result status = Result::failed;
  VerificationStatus verification;
  std::string sandbox = "This is a sandbox for development: its answer proves nothing about a person or a document.";
  std::vector<Reason> reasons;

  static constexpr auto members() {
    using foundation::member;
    return std::tuple{member("error", &Answer::error),     member("signing", &Answer::signing),
                      member("status", &Answer::status),   member("verification", &Answer::verification),
                      member("sandbox", &Answer::sandbox), member("reasons", &Answer::reasons)};
  }
};

/// The answer to a request in which nothing could be checked.
[[nodiscard]] Answer refusal(std::string error);

/// Derives `verification` and `status` from the reasons. A check failed where anything failed, else passed where
/// anything passed; the whole failed if any check did, and passed if all did.
void conclude(Answer& answer);

/// "passed", "failed" or "not-checked".
[[nodiscard]] std::string_view name(Result result);

/// The answer in one line for the log, such as `verdict=failed why="validity:expired"`, without personal data.
[[nodiscard]] std::string noteOf(const Answer& answer);

}  // namespace tavlo::sandbox

template <>
struct tavlo::foundation::Coding<tavlo::sandbox::Result> {
  static void encode(tavlo::sandbox::Result value, Encoder& encoder) {
    encoder.singleValueContainer().encodeInteger(static_cast<std::int64_t>(value));
  }
};
