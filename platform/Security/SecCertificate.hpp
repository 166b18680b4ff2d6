#pragma once

#include <Foundation/Data.hpp>

#include <string_view>

namespace tavlo::security {

/// The public key that a certificate (X.509, RFC 5280) in PEM (RFC 7468) was issued for, in the representation that
/// SecKey::data has. Nothing else in the certificate is looked at. Throws SecurityError when `pem` is no certificate,
/// or one for a key that has no such representation.
[[nodiscard]] foundation::Data publicKeyOfCertificate(std::string_view pem);

}  // namespace tavlo::security
