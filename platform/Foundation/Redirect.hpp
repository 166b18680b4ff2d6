#pragma once

#include <Foundation/URLRequest.hpp>

#include <string_view>

#pragma GCC visibility push(hidden)

namespace tavlo::foundation {

/// Throws URLError when a session has no way to send a request to `url`: a scheme other than HTTP and HTTPS, no host,
/// or a port beyond 65535.
void requireSendable(const URL& url);

/// Turns `request` into the one that the answer of status `statusCode` with the field Location `location` (may be
/// empty) asks for, and says whether there is one. 301, 302 and 303 ask for a GET without a body; 307 and 308 for the
/// same again. Throws URLError when it must not be sent: from HTTPS to HTTP, the body to another server, or a bad
/// location.
[[nodiscard]] bool redirect(URLRequest& request, int statusCode, std::string_view location);

}  // namespace tavlo::foundation

#pragma GCC visibility pop
