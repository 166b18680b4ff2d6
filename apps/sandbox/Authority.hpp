#pragma once

#include <ctime>
#include <filesystem>

namespace tavlo::sandbox {

/// The files of the sandbox's own certificate authority; all in PEM.
struct Authority {
  std::filesystem::path certificate;     ///< what an app trusts; no secret
  std::filesystem::path serverIdentity;  ///< key and certificate of the server

  /// Makes the authority in `folder` when it is not there yet, and the server's certificate when it is missing,
  /// damaged, of another authority or about to expire. The authority itself lasts ten years and may only sign for this
  /// machine's loopback names, so that trusting it opens no other door. The folder gets mode 0700 when it is made.
  ///
  /// Throws std::system_error, and std::runtime_error for an authority that is damaged or expired: it is left as it is.
  [[nodiscard]] static Authority prepare(const std::filesystem::path& folder, std::time_t now = std::time(nullptr));
};

}  // namespace tavlo::sandbox
