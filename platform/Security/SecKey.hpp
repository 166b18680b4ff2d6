#pragma once

#include <Foundation/Data.hpp>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>

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
  std::shared_ptr<const SecKey> privateKey;  ///< may be absent where it never leaves hardware
  std::shared_ptr<const SecKey> publicKey;   ///< what a verification sends
};

/// A new pair from the system's random source. Throws SecurityError.
[[nodiscard]] SecKeyPair generateKeyPair(SecKeyType type);

/// The public key whose external representation `data` is. Throws SecurityError when it is none of `type`: another
/// length or size of key, a point off the curve, bytes left over.
[[nodiscard]] std::shared_ptr<const SecKey> publicKeyFromData(foundation::DataView data, SecKeyType type);

/// Secret bytes, overwritten when they go out of scope; moved, never copied.
class SecretData {
 public:
  /// Takes the bytes over.
  explicit SecretData(foundation::Data&& bytes) noexcept : bytes_(std::move(bytes)) {}
  /// Leaves the other one empty.
  SecretData(SecretData&&) noexcept = default;
  SecretData& operator=(SecretData&&) = delete;
  ~SecretData();

  /// A view that lives as long as this.
  [[nodiscard]] foundation::DataView bytes() const noexcept { return bytes_; }

 private:
  foundation::Data bytes_;
};

/// The private key of `pair` as PKCS#8 in DER (RFC 5958), not encrypted; the public half can be derived from it.
/// Throws SecurityError when the pair was made by none of these functions, such as one that lives in hardware.
[[nodiscard]] SecretData pkcs8Of(const SecKeyPair& pair);

/// The pair whose private key is `pkcs8`, as `pkcs8Of` writes it. Throws SecurityError when it is none of `type` or
/// unsound: a half that does not fit the other, another curve or size of key, bytes left over.
[[nodiscard]] SecKeyPair keyPairFromPKCS8(foundation::DataView pkcs8, SecKeyType type);

}  // namespace tavlo::security
