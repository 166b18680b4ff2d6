#pragma once

#include <curl/curl.h>

#include <memory>

#pragma GCC visibility push(hidden)

namespace tavlo::foundation {

/// Whether the server has announced the end of the TLS connection that `transfer` uses (the alert close_notify, RFC
/// 8446, section 6.1): becomes true when it does. Empty when the connection is plain.
///
/// libcurl takes a cut connection for the end of an answer that has no length; without the alert it is none.
/// To be called from within a callback of the transfer once it is connected. Throws std::bad_alloc.
[[nodiscard]] std::shared_ptr<const bool> watchCloseNotice(CURL* transfer);

}  // namespace tavlo::foundation

#pragma GCC visibility pop
