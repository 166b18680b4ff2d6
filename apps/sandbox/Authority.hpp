#pragma once

#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::sandbox {

/// The files of the certificate authority that vouches for the sandbox's server; all in PEM.
struct Authority {
  std::filesystem::path certificate;     ///< what an app trusts; no secret
  std::filesystem::path serverIdentity;  ///< key and certificate of the server

  struct Options {
    /// Addresses beside the loopback ones that the server is reached at.
    std::vector<std::string> addresses{};
    /// What is to be wrong with the server's certificate: "", "expired", "wrong-name" or "self-signed".
    std::string_view flaw{};
    std::time_t now = std::time(nullptr);
  };

  /// Makes the authority in `folder` when it is not there yet, and the server's certificate when it is missing,
  /// damaged, of another authority, for other addresses or about to expire. The authority itself lasts ten years and
  /// may only sign for this machine's loopback names and the addresses that it was made with, so that trusting it opens
  /// no other door. The folder gets mode 0700.
  ///
  /// Throws std::system_error, and std::runtime_error for an authority that is damaged, expired or may not sign for
  /// one of the addresses: it is left as it is.
  [[nodiscard]] static Authority prepare(const std::filesystem::path& folder, const Options& options);
  [[nodiscard]] static Authority prepare(const std::filesystem::path& folder) { return prepare(folder, Options()); }
};

}  // namespace tavlo::sandbox
