#include <Foundation/URLError.hpp>

namespace tavlo::foundation {
namespace {

std::string describe(URLError::Code code, std::string_view host) {
  using enum URLError::Code;
  switch (code) {
    case unknown:
      break;
    case cancelled:
      return "cancelled";
    case badURL:
      return "bad URL";
    case timedOut:
      return "The request timed out.";
    case unsupportedURL:
      return "unsupported URL";
    case cannotFindHost:
      return "A server with the specified hostname could not be found.";
    case cannotConnectToHost:
      return "Could not connect to the server.";
    case networkConnectionLost:
      return "The network connection was lost.";
    case httpTooManyRedirects:
      return "too many HTTP redirects";
    case notConnectedToInternet:
      return "The Internet connection appears to be offline.";
    case redirectToNonExistentLocation:
      return "The server asked to send the request to another server.";
    case badServerResponse:
      return "There was a bad response from the server.";
    case cannotParseResponse:
      return "cannot parse response";
    case appTransportSecurityRequiresSecureConnection:
      return "The resource could not be loaded because the App Transport Security policy requires the use of a secure "
             "connection.";
    case dataLengthExceedsMaximum:
      return "resource exceeds maximum size";
    case secureConnectionFailed:
      return "An SSL error has occurred and a secure connection to the server cannot be made.";
    case serverCertificateUntrusted:
      return "The certificate for this server is invalid. You might be connecting to a server that is pretending to "
             "be " +
             (host.empty() ? "another server" : "\"" + std::string(host) + "\"") +
             " which could put your confidential information at risk.";
  }
  return "unknown error";
}

}  // namespace

URLError::URLError(Code code, std::string_view host) : code_(code), description_(describe(code, host)) {}

std::string localizedDescription(const std::exception_ptr& error) {
  if (!error) return {};
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "The operation could not be completed.";
  }
}

}  // namespace tavlo::foundation
