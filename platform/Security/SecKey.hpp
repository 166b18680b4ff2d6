#pragma once

#include <Foundation/Data.hpp>

#include <cstdint>
#include <memory>
#include <stdexcept>

namespace tavlo::security {

/// Why a key operation failed, in words for a person.
class SecurityError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The kinds of key. The second case, index 1, is what a key store makes unless told otherwise.
enum class SecKeyType : std::uint8_t {
  rsa,            ///< RSA, 3072 bits
  ellipticCurve,  ///< NIST P-256 (FIPS 186-4)
};

/// One half of a key pair. Shared by reference and never changed; any thread. A host app whose keys live in hardware
/// derives its own: all that a verification needs is `data()` of the public half.
class SecKey {
 public:
  virtual ~SecKey() = default;
  /// The external representation of a public key: for P-256 the 65-byte uncompressed point (ANSI X9.63: 04, x, y), for
  /// RSA the PKCS#1 RSAPublicKey in DER (RFC 8017). Throws SecurityError for a private key, which is not given out.
  [[nodiscard]] virtual foundation::Data data() const = 0;
};

/// Both halves of one key.
struct SecKeyPair {
  std::shared_ptr<const SecKey> privateKey;
  std::shared_ptr<const SecKey> publicKey;
};

}  // namespace tavlo::security
