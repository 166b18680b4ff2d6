#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/NFCPassportModel.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace tavlo::reader {

/// The outcome of one step of passive authentication (ICAO Doc 9303-11).
///
/// | name        | passed       | failed                                           | notChecked           |
/// |-------------|--------------|--------------------------------------------------|----------------------|
/// | "sod"       | "read"       | "not_sent", "malformed", "algorithm_refused"     |                      |
/// | "signature" | "valid"      | "invalid", "signer_not_found",                   | "no_sod"             |
/// |             |              | "algorithm_refused"                              |                      |
/// | "chain"     | "trusted"    | "no_trust_anchors", "issuer_unknown",            | "no_sod",            |
/// |             |              | "outside_validity", "refused"                    | "no_signer"          |
/// | "DG1" ...   | "hash_match" | "hash_mismatch", "not_in_sod"                    | "not_sent", "no_sod" |
struct AuthenticationStep {
  enum class Result { passed, failed, notChecked };
  std::string name;  ///< machine-readable, such as "signature" or "DG1"
  Result result = Result::notChecked;
  std::string reason;  ///< machine-readable, such as "hash_mismatch"
  std::string text;    ///< one sentence for a person, without personal data
};

/// All steps in their fixed order: the security object, its signature, the signer's chain, and one step for each group
/// that is listed in the SOD or was sent. EF.COM is not signed, so nothing is said of it.
struct AuthenticationReport {
  std::vector<AuthenticationStep> steps;
  /// Whether SOD, signature, chain and DG1 passed and nothing failed. Groups listed in the SOD that were not sent do no
  /// harm: some never leave the chip, or only for a terminal of the state.
  [[nodiscard]] bool isTrusted() const;
};

/// The certificates of the country signing authorities (CSCA) that are trusted, each in DER or PEM.
using TrustAnchors = std::vector<foundation::Data>;

/// The certificates in the files of `folder`, hidden files and subfolders left aside. Throws ReaderError when there is
/// none, and for a file that is no certificate: left out in silence, it would turn sound documents untrusted;
/// std::system_error when the folder or a file cannot be read or all together take more than 64 MiB.
[[nodiscard]] TrustAnchors trustAnchorsIn(const std::filesystem::path& folder);

/// Checks that the groups are what the issuing state signed: reads the security object in the SOD, verifies its
/// signature (RFC 5652) with the document signer's certificate beside it, that certificate with one of `anchors`
/// (RFC 5280), and the hash of each group. Certificates must have been valid at the signing time that the SOD states,
/// or else when the signer's own validity began: documents outlive the certificates behind them. Any thread.
/// Throws ReaderError when an anchor is no certificate; what is wrong with the document is in the report.
[[nodiscard]] AuthenticationReport authenticate(const NFCPassportModel& model, const TrustAnchors& anchors);

}  // namespace tavlo::reader
