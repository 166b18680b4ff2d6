#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tavlo::foundation {

/// Why a request got no answer.
class URLError : public std::exception {
 public:
  /// The platform's codes.
  enum class Code : int {
    unknown = -1,
    cancelled = -999,
    badURL = -1000,
    timedOut = -1001,
    unsupportedURL = -1002,
    cannotFindHost = -1003,
    cannotConnectToHost = -1004,
    networkConnectionLost = -1005,
    httpTooManyRedirects = -1007,
    notConnectedToInternet = -1009,
    /// A redirect would have taken the body to another server.
    redirectToNonExistentLocation = -1010,
    badServerResponse = -1011,
    cannotParseResponse = -1017,
    /// A redirect would have left HTTPS for plain HTTP.
    appTransportSecurityRequiresSecureConnection = -1022,
    dataLengthExceedsMaximum = -1103,
    secureConnectionFailed = -1200,
    serverCertificateUntrusted = -1202,
  };

  /// `host` is the server's name, which the text for serverCertificateUntrusted shows.
  explicit URLError(Code code, std::string_view host = {});

  /// What kind of failure it is.
  [[nodiscard]] Code code() const noexcept { return code_; }
  /// One English sentence for people.
  [[nodiscard]] const std::string& localizedDescription() const noexcept { return description_; }
  /// The same sentence.
  [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

 private:
  Code code_;
  std::string description_;
};

/// A text for people about any error: what() of an exception derived from std::exception, else a general sentence.
/// Empty for no error.
[[nodiscard]] std::string localizedDescription(const std::exception_ptr& error);

}  // namespace tavlo::foundation
