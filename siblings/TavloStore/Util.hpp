#pragma once

#include <Security/SecKey.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tavlo::store {

/// Makes and keeps key pairs under an alias. A host app with hardware-backed keys puts its own in. Any thread.
class KeyStore {
 public:
  virtual ~KeyStore() = default;

  /// The key pair of `type` under `keyAlias`, made if there is none; with `ephemeral` a new one that is kept nowhere.
  ///
  /// - A sound pair that exists under the alias is returned, never replaced. A failed call destroys nothing.
  /// - A damaged entry, or one of another type, throws and is left as it is.
  /// - The empty alias gives no pair: documents whose number was not read must not share a key.
  /// - Any other alias is possible, whatever characters it holds, and names a key of its own.
  /// - Threads or processes that create the same alias at once all get the same pair.
  ///
  /// Throws SecurityError, std::system_error or another exception that says why.
  [[nodiscard]] virtual std::optional<security::SecKeyPair> createKeypair(std::string_view keyAlias,
                                                                          security::SecKeyType type,
                                                                          bool ephemeral) = 0;

  /// The key store in force; by default PKCS#8 files (RFC 5958), mode 0600, in the folder "keys" of
  /// `foundation::applicationSupportFolder()`, itself of mode 0700.
  [[nodiscard]] static std::shared_ptr<KeyStore> shared();
  /// Puts the host app's key store in; none brings the default back. Gives back the previous one.
  static std::shared_ptr<KeyStore> install(std::shared_ptr<KeyStore> keyStore);
};

/// Key operations for apps and libraries.
class Util {
 public:
  Util() = delete;
  /// As KeyStore::createKeypair, on the key store in force.
  [[nodiscard]] static std::optional<security::SecKeyPair> createKeypair(
      std::string_view keyAlias, security::SecKeyType type = security::SecKeyType::ellipticCurve,
      bool ephemeral = false);
};

}  // namespace tavlo::store
