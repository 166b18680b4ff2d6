#pragma once

#include <Foundation/Coding.hpp>
#include <Foundation/Data.hpp>
#include <Security/SecKey.hpp>
#include <TavloCA/CAError.hpp>
#include <TavloCA/CredentialDocument.hpp>
#include <TavloReader/DataGroup.hpp>
#include <TavloReader/NFCPassportModel.hpp>
#include <UIKit/UIImage.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace tavlo {

/// Takes the outcome of a request, exactly once: (data, none) for an answer, (none, error) for a failure, and (none,
/// none) when the network layer gave neither, which a caller must take for a failure of its own.
///
/// It runs either on the caller's thread before the call returns (a local step failed) or on the network layer's
/// callback thread, one completion at a time; never on a thread of the caller's choosing: hop from there yourself. An
/// exception out of a completion on the callback thread ends the process.
using Completion = std::function<void(std::optional<foundation::Data> data, std::exception_ptr error)>;

/// The data groups of a document, in any order.
using DataGroups = std::vector<std::shared_ptr<const reader::DataGroup>>;

/// What an app may tell of a document in texts of its own, such as a kind that is none of DocumentType. Nothing is
/// checked or reformatted. Coded by the members' names, absent ones left out; other members are ignored.
struct DocumentMeta {
  /// All absent.
  DocumentMeta() = default;
  /// The six texts as they are.
  // NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): in the definition they would hide the fields
  DocumentMeta(std::optional<std::string> documentType, std::optional<std::string> documentSubType,
               std::optional<std::string> documentExpiryDate, std::optional<std::string> dateOfBirth,
               std::optional<std::string> gender, std::optional<std::string> nationality);

  std::optional<std::string> documentType;        ///< the app's own name of the kind
  std::optional<std::string> documentSubType;     ///< the app's own name of a kind within it
  std::optional<std::string> documentExpiryDate;  ///< in whatever form the app uses
  std::optional<std::string> dateOfBirth;         ///< in whatever form the app uses
  std::optional<std::string> gender;              ///< in whatever form the app uses
  std::optional<std::string> nationality;         ///< in whatever form the app uses

  /// The table that every encoder and decoder goes by.
  static constexpr auto members() {
    using foundation::member;
    return std::tuple{member("documentType", &DocumentMeta::documentType),
                      member("documentSubType", &DocumentMeta::documentSubType),
                      member("documentExpiryDate", &DocumentMeta::documentExpiryDate),
                      member("dateOfBirth", &DocumentMeta::dateOfBirth),
                      member("gender", &DocumentMeta::gender),
                      member("nationality", &DocumentMeta::nationality)};
  }
};

/// Verifies identity documents with the verification service. Holds no state; every operation may be called from any
/// thread, several at once. By default the operations print what they send, personal data included, to standard output:
/// foundation::setPrintHandler routes or silences it.
class TavloCA {
 public:
  /// Sends a passport that was read and a selfie to the verification service and hands its answer back as it came.
  ///
  /// Makes or finds the key pair under the document number of `passport`, builds the request around its public key, and
  /// posts it to the service's /verify; the answer's status and content are not looked at. All but the network exchange
  /// is done on the caller's thread before this returns; the arguments are not kept. The key store's own error is
  /// passed on; no pair gives CAError "Could not create keypair", a request that cannot be built "Could not create
  /// verification object", and everything after that is as with `post`.
  static void verify(const reader::NFCPassportModel& model, const Passport& passport, const uikit::UIImage& selfie,
                     Completion completion);

  /// The body of a verification request as JSON in UTF-8; absent when it cannot be encoded.
  ///
  /// Groups go out as lower-case hexadecimal text under their names, of two of the same class the last; those that the
  /// service does not take are dropped with a line in the reader's log. The selfie goes out as PNG in base64url, the
  /// key as hexadecimal text; each is left out where it has no such form. Takes memory of about twice the body's size
  /// beside the arguments, and that of the pixels as well when the selfie is no photograph.
  [[nodiscard]] static std::optional<foundation::Data> verificationObject(const DataGroups& datagroups,
                                                                          const uikit::UIImage& selfie,
                                                                          const security::SecKey& publicKey);

  /// Posts `data` to `urlString` over HTTP or HTTPS and hands over the answer's body, whatever its status.
  ///
  /// No header is set beyond what HTTP itself asks for, nothing is sent twice, and 60 seconds without any movement end
  /// the exchange. A text that is no URI reference by RFC 3986 gives CAError "Empty URL" at once; any other failure is
  /// the network layer's own error, a foundation::URLError unless the host app brought its own session.
  static void post(foundation::Data data, std::string_view urlString, Completion completion);
};

}  // namespace tavlo
