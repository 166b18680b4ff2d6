#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/NFCPassportModel.hpp>

#include <string>
#include <vector>

namespace tavlo::reader {

/// The outcome of one step of passive authentication (ICAO Doc 9303-11).
struct AuthenticationStep {
  enum class Result { passed, failed, notChecked };
  std::string name;    ///< machine-readable, such as "signature" or "DG1"
  Result result = Result::notChecked;
  std::string reason;  ///< machine-readable, such as "hash_mismatch"
  std::string text;    ///< one sentence for a person, without personal data
};

/// All steps in their fixed order.
struct AuthenticationReport {
  std::vector<AuthenticationStep> steps;
  /// Whether every required step ran and passed.
  [[nodiscard]] bool isTrusted() const;
};

/// The certificates of the country signing authorities (CSCA) that are trusted, each in DER or PEM.
using TrustAnchors = std::vector<foundation::Data>;

}  // namespace tavlo::reader
