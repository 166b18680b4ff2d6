#pragma once

#include <Foundation/Data.hpp>

#include <cstddef>
#include <filesystem>
#include <mutex>
#include <string_view>

namespace tavlo::sandbox {

/// Remembers which public key each document came with, in a file without personal data: of a document and of a key it
/// holds a keyed hash (HMAC-SHA-256, RFC 2104), with a random secret that is kept beside them. Any thread.
class History {
 public:
  /// The most documents; beyond them the one that came first is forgotten.
  static constexpr std::size_t maximumDocuments = 4096;

  /// Goes on with the file "history" in `folder`. Throws std::system_error, and std::runtime_error when it is damaged.
  explicit History(const std::filesystem::path& folder);

  enum class Finding { first, sameKey, otherKey };
  /// How `publicKey` relates to the key that the document came with at first; writes that down, if it is the first, so
  /// that a crash loses nothing. Throws std::system_error when it cannot be written.
  Finding record(std::string_view issuingState, std::string_view documentNumber, foundation::DataView publicKey);

 private:
  [[nodiscard]] foundation::Data hash(std::string_view use, foundation::DataView bytes) const;

  std::mutex mutex_;
  std::filesystem::path file_;
  foundation::Data content_;  ///< the secret, then for each document its hash and its key's
};

}  // namespace tavlo::sandbox
