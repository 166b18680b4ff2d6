#pragma once

#include <Foundation/Data.hpp>

#include <chrono>
#include <filesystem>
#include <memory>
#include <utility>

namespace tavlo::specimen {

struct Identity;

/// The years in which all authorities are valid, and so all documents.
inline constexpr std::chrono::year firstYear{2000};
inline constexpr std::chrono::year lastYear{2049};

/// Utopia's country signing authority (CSCA): an EC key on P-384 and its certificate. A value; copies share the key.
class Authority {
 public:
  /// A new authority that is kept nowhere. All have one name.
  [[nodiscard]] static Authority make();

  /// The authority in `folder`, made on the first use: its key in csca-key.pem, its certificate there and in csca.pem.
  /// All are readable by their owner alone, as is the folder. Throws std::runtime_error when the files are damaged or
  /// belong to something else, which is left as it is, and std::system_error.
  [[nodiscard]] static Authority keptIn(const std::filesystem::path& folder);

  /// The certificate in PEM form.
  [[nodiscard]] foundation::Data certificate() const;

  [[nodiscard]] const Identity& identity() const noexcept { return *identity_; }

 private:
  explicit Authority(std::shared_ptr<const Identity> identity) : identity_(std::move(identity)) {}

  std::shared_ptr<const Identity> identity_;
};

}  // namespace tavlo::specimen
