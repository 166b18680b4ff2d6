#pragma once

#include <Foundation/Owned.hpp>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <optional>

// What the parts of passive authentication need of the C library.

namespace tavlo::reader {

using foundation::Owned;
using Certificate = Owned<X509, X509_free>;

/// Leaves this thread no errors of the C library, which would be taken for those of its next user.
struct CleanErrorQueue {
  CleanErrorQueue() { ERR_clear_error(); }
  ~CleanErrorQueue() { ERR_clear_error(); }
  CleanErrorQueue(const CleanErrorQueue&) = delete;
  CleanErrorQueue& operator=(const CleanErrorQueue&) = delete;
};

/// The hash function with the C library's number `nid`; none when it is not one that documents may be signed with,
/// SHA-1 to SHA-512 (ICAO Doc 9303-12, 4.4).
[[nodiscard]] inline const EVP_MD* acceptedDigest(int nid) {
  constexpr std::array accepted = {NID_sha1, NID_sha224, NID_sha256, NID_sha384, NID_sha512};
  return std::ranges::find(accepted, nid) == accepted.end() ? nullptr : EVP_get_digestbynid(nid);
}

/// `time` in seconds since 1970; absent when it is malformed.
[[nodiscard]] inline std::optional<std::time_t> secondsOf(const ASN1_TIME* time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
  return timegm(&parts);
}

}  // namespace tavlo::reader
