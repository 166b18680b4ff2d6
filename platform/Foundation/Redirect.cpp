#include <Foundation/Redirect.hpp>

#include <Foundation/URLError.hpp>

#include <strings.h>

#include <string>
#include <utility>

namespace tavlo::foundation {
namespace {

bool isSecure(const URL& url) {
  return url.scheme() == "https";
}

bool haveSameOrigin(const URL& a, const URL& b) {
  const auto port = [](const URL& url) { return url.port().value_or(isSecure(url) ? 443 : 80); };
  return isSecure(a) == isSecure(b) && port(a) == port(b) && strcasecmp(a.host()->c_str(), b.host()->c_str()) == 0;
}

}  // namespace

void requireSendable(const URL& url) {
  if (url.scheme() != "http" && !isSecure(url)) throw URLError(URLError::Code::unsupportedURL);
  if (!url.host() || url.port() > 65535U) throw URLError(URLError::Code::badURL);
}

bool redirect(URLRequest& request, int statusCode, std::string_view location) {
  const bool dropsBody = statusCode == 301 || statusCode == 302 || statusCode == 303;
  if (location.empty() || (!dropsBody && statusCode != 307 && statusCode != 308)) return false;
  auto target = URL::parse(location, request.url);
  if (!target) throw URLError(URLError::Code::badURL);
  requireSendable(*target);
  if (isSecure(request.url) && !isSecure(*target)) {
    throw URLError(URLError::Code::appTransportSecurityRequiresSecureConnection);
  }
  if (dropsBody) {
    request.httpMethod = "GET";
    wipe(request.httpBody);
  } else if (!haveSameOrigin(request.url, *target)) {
    throw URLError(URLError::Code::redirectToNonExistentLocation);
  }
  request.url = *std::move(target);
  return true;
}

}  // namespace tavlo::foundation
