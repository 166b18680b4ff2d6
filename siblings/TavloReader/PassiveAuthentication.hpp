#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/NFCPassportModel.hpp>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace tavlo::reader {

/// The outcome of one step of passive authentication (ICAO Doc 9303-11, 5.1).
///
/// | name             | passed             | failed                                  | notChecked            |
/// |------------------|--------------------|-----------------------------------------|-----------------------|
/// | "sod"            | "read"             | "not_sent", "malformed",                |                       |
/// |                  |                    | "algorithm_refused"                     |                       |
/// | "signer"         | "found"            | "not_found"                             | "no_sod"              |
/// | "signature"      | "valid"            | "invalid", "algorithm_refused",         | "no_sod", "no_signer" |
/// |                  |                    | "algorithm_mismatch"                    |                       |
/// | "chain"          | "trusted"          | "signer_not_allowed",                   | "no_sod", "no_signer" |
/// |                  |                    | "no_trust_anchors", "issuer_unknown",   |                       |
/// |                  |                    | "issuer_not_allowed",                   |                       |
/// |                  |                    | "algorithm_refused", "refused"          |                       |
/// | "validity"       | "valid",           | "outside_validity"                      | "no_sod",             |
/// |                  | "time_not_stated"  |                                         | "no_signer",          |
/// |                  |                    |                                         | "no_chain"            |
/// | "validity_today" | "valid"            | "expired", "not_yet_valid"              | as above              |
/// | "DG1" ...        | "hash_match"       | "hash_mismatch", "not_in_sod"           | "no_sod", "not_sent"  |
struct AuthenticationStep {
  /// How a step went; notChecked when what it needs was not there.
  enum class Result { passed, failed, notChecked };
  std::string name;                    ///< machine-readable, such as "signature" or "DG1"
  Result result = Result::notChecked;  ///< how it went
  std::string reason;                  ///< machine-readable, such as "hash_mismatch"
  std::string text;                    ///< one sentence for a person, without personal data
  bool required = true;                ///< whether the document is only trusted when this step passed
};

/// All steps in the order of the table, those that could not be taken as well; then one step for DG1 and for each group
/// that is listed in the SOD or was sent. EF.COM is not signed, so nothing is said of it.
///
/// Required is every step but two. "validity_today" only informs: documents outlive the certificates behind them.
/// Groups that are listed in the SOD but were not sent do no harm, except DG1: some never leave the chip, or only for a
/// terminal of the state.
struct AuthenticationReport {
  std::vector<AuthenticationStep> steps;  ///< in the order of the table
  /// Whether every required step passed.
  [[nodiscard]] bool isTrusted() const;
};

/// The certificates of the country signing authorities (CSCA), each in DER or PEM. Those that are self-signed are
/// trusted. Others may only link a document signer to one of these, as when a trusted authority vouches for the next.
using TrustAnchors = std::vector<foundation::Data>;

/// The certificates in the files of `folder`, hidden files and subfolders left aside. Throws ReaderError when there is
/// none, and for a file that is no certificate: left out in silence, it would turn sound documents untrusted;
/// std::system_error when the folder or a file cannot be read or all together take more than 64 MiB.
[[nodiscard]] TrustAnchors trustAnchorsIn(const std::filesystem::path& folder);

/// Checks that the groups are what the issuing state signed: reads the security object in the SOD, up to 64 KiB with
/// 16 certificates; verifies its signature (RFC 5652) with the document signer's certificate in it, and that
/// certificate's chain up to one of `anchors` (RFC 5280), over links in the SOD or among the anchors; and compares the
/// hash of each group.
///
/// Signatures are RSA (PKCS#1 v1.5 or PSS) or ECDSA on any curve, by name or with its parameters written out, with
/// SHA-1 to SHA-512: the algorithm is the one that the SOD states, and must be that of its hash and key. A signer must
/// be no authority, and its key usage, where stated, must allow signatures; it may have no extended one (ICAO Doc
/// 9303-12). Issuers must be authorities, and their key usage, where stated, must allow to sign certificates.
///
/// Certificates must all have been valid at the signing time that the SOD states, or else when the signer's own
/// validity began. Whether they still are at `now` only informs.
///
/// This does not prove that the groups come from the chip that the state issued, since a copy of all files passes as
/// well; nor that whoever shows them is the holder; nor that no certificate was revoked, since no revocation list is
/// read. Nor does the stated signing time bind whoever has stolen a signer's key.
///
/// Any thread. Throws ReaderError when an anchor is no certificate; what is wrong with the document is in the report.
[[nodiscard]] AuthenticationReport authenticate(
    const NFCPassportModel& model, const TrustAnchors& anchors,
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

}  // namespace tavlo::reader
