#pragma once

#include <Foundation/Data.hpp>

#include <filesystem>
#include <memory>

namespace tavlo::specimen {

struct Identity;

/// Utopia's country signing authority (CSCA): an EC key on P-384 and its certificate. A value; copies share the key.
class Authority {
 public:
  /// A new authority that is kept nowhere. All have one name and are valid from 2020 to 2049.
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
