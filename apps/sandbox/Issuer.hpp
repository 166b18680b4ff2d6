#pragma once

#include <Foundation/Data.hpp>

#include <ctime>
#include <filesystem>
#include <string>

#include "Certificates.hpp"

namespace tavlo::sandbox {

/// Issues the certificates of verified keys. Its authority is the sandbox's own and another one than the server's, so
/// that nobody who trusts the server trusts these certificates. Any thread.
class Issuer {
 public:
  /// Goes on with the authority in `folder`, or makes one that lasts ten years: "issuer.pem" holds its key and
  /// certificate, "issuer-ca.pem" the certificate alone. Throws std::system_error, and std::runtime_error when it is
  /// damaged or expired.
  explicit Issuer(const std::filesystem::path& folder, std::time_t now = std::time(nullptr));

  /// A certificate in PEM (RFC 7468) for `publicKey`, a point on P-256 or an RSAPublicKey, that is valid for a day. It
  /// says nothing of a person. Throws std::runtime_error when that is no key.
  [[nodiscard]] std::string issue(foundation::DataView publicKey, std::time_t now = std::time(nullptr)) const;

 private:
  Identity authority_;
};

}  // namespace tavlo::sandbox
