#pragma once

#include <UIKit/UIDevice.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#pragma GCC visibility push(hidden)

namespace tavlo::uikit {

/// The Linux machine that the program runs on. Any thread.
class LinuxDevice final : public UIDevice {
 public:
  /// Reads the system's files below `root`.
  explicit LinuxDevice(std::filesystem::path root = "/") : root_(std::move(root)) {}

  /// VERSION_ID of os-release, else the kernel's release.
  [[nodiscard]] std::string systemVersion() const override;
  /// What the firmware says: the product name of DMI, else the model of the device tree.
  [[nodiscard]] std::optional<std::string> model() const override;

 private:
  std::filesystem::path root_;
};

}  // namespace tavlo::uikit

#pragma GCC visibility pop
