#pragma once

#include <TavloReader/OpenSSL.internal.hpp>
#include <TavloReader/PassiveAuthentication.hpp>
#include <TavloReader/SecurityObject.internal.hpp>

#include <ctime>
#include <vector>

#pragma GCC visibility push(hidden)

namespace tavlo::reader {

/// The certificates of all anchors. Throws ReaderError when an anchor is no certificate.
[[nodiscard]] std::vector<Certificate> readAnchors(const TrustAnchors& anchors);

/// The steps "chain", "validity" and "validity_today" for an object whose signer was found.
[[nodiscard]] std::vector<AuthenticationStep> verifyChain(const SecurityObject& object,
                                                          const std::vector<Certificate>& anchors, std::time_t now);

}  // namespace tavlo::reader

#pragma GCC visibility pop
