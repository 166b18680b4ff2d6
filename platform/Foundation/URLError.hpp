#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tavlo::foundation {

/// Why a request got no answer.
class URLError : public std::exception {
 public:
  /// The platform's codes. A person's remedy for each is in the guide to failures.
  enum class Code : int {
    unknown = -1,                           ///< a failure without a code of its own
    cancelled = -999,                       ///< the process is ending
    badURL = -1000,                         ///< an address without a host, or with a port that is none
    timedOut = -1001,                       ///< nothing moved for as long as the request allows
    unsupportedURL = -1002,                 ///< a scheme other than http and https
    cannotFindHost = -1003,                 ///< no address is known for the name
    cannotConnectToHost = -1004,            ///< nothing answers at that address
    networkConnectionLost = -1005,          ///< the connection ended before the answer was whole
    httpTooManyRedirects = -1007,           ///< more than 20 redirects
    notConnectedToInternet = -1009,         ///< there is no network; only from a session of the app's own
    redirectToNonExistentLocation = -1010,  ///< a redirect would have taken the body to another server
    badServerResponse = -1011,              ///< only from a session of the app's own
    cannotParseResponse = -1017,            ///< what came is no HTTP
    appTransportSecurityRequiresSecureConnection = -1022,  ///< a redirect would have left HTTPS
    dataLengthExceedsMaximum = -1103,                      ///< the answer is too long, or there is no memory for it
    secureConnectionFailed = -1200,                        ///< no TLS 1.2 or later could be agreed on
    serverCertificateUntrusted = -1202,                    ///< the server's certificate is not trusted, or not its own
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
