#pragma once

#include <Foundation/Data.hpp>
#include <Foundation/Owned.hpp>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

namespace tavlo::specimen {

using foundation::Owned;

/// Each step of making keys, certificates and signatures succeeds, or std::runtime_error ends it.
void require(bool success);

/// What `write` writes.
[[nodiscard]] foundation::Data written(const std::function<bool(BIO*)>& write);

/// A private key and the certificate of its public half.
struct Identity {
  Owned<EVP_PKEY, EVP_PKEY_free> key;
  Owned<X509, X509_free> certificate;
};

/// A new key: "RSA-" with a size in bits, or a curve that the C library knows, such as "P-256" or "brainpoolP256r1",
/// its parameters written out or named. Throws std::invalid_argument for any other name.
[[nodiscard]] Owned<EVP_PKEY, EVP_PKEY_free> newKey(const std::string& kind, bool explicitParameters = false);

/// The SubjectPublicKeyInfo (RFC 5480) of the key on P-256 whose private half is the SHA-256 hash of `name`.
[[nodiscard]] foundation::Data derivedPublicKey(std::string_view name);

/// What a certificate says.
struct CertificateContent {
  std::string name;  ///< the common name
  std::chrono::year_month_day begin;
  std::chrono::year_month_day end;
  std::string extensions;  ///< as lines of OpenSSL's configuration
};

/// A certificate of Utopia for `key`, signed by `issuer` or, without one, by itself (ICAO Doc 9303-12).
[[nodiscard]] Identity certified(Owned<EVP_PKEY, EVP_PKEY_free> key, const CertificateContent& content,
                                 const Identity* issuer = nullptr);

/// Midnight (UTC) of a day.
[[nodiscard]] std::time_t midnight(std::chrono::year_month_day day);

}  // namespace tavlo::specimen
