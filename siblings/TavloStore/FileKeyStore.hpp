#pragma once

#include <TavloStore/Util.hpp>

#include <atomic>
#include <filesystem>
#include <optional>
#include <string_view>

namespace tavlo::store {

/// Keeps each pair as a PKCS#8 file (RFC 5958, DER, not encrypted) of mode 0600. Any thread, any number of processes.
class FileKeyStore final : public KeyStore {
 public:
  /// Keeps its files in `folder`, which is made with mode 0700 when the first pair is. What killed processes have left
  /// half-written there is removed then.
  explicit FileKeyStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

  /// As declared. What is thrown over an existing file names the file, what is wrong and what to do about it.
  [[nodiscard]] std::optional<security::SecKeyPair> createKeypair(std::string_view keyAlias, security::SecKeyType type,
                                                                  bool ephemeral) override;

  /// Where the pair of `keyAlias` is kept, or would be: remove that file to give up the pair. Its name is the SHA-256
  /// hash of the alias, so that any alias makes a safe name of its own and a listing of the folder shows no document
  /// number. The hash is no secret keeping: whoever can guess the number can find its file.
  [[nodiscard]] std::filesystem::path file(std::string_view keyAlias) const;

 private:
  [[nodiscard]] static std::optional<security::SecKeyPair> load(const std::filesystem::path& file,
                                                                security::SecKeyType type);
  std::filesystem::path folder_;
  std::atomic<bool> isSwept_ = false;
};

}  // namespace tavlo::store
