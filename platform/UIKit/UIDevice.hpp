#pragma once

#include <memory>
#include <optional>
#include <string>

namespace tavlo::uikit {

/// What the running machine says of itself. A host app may put its own in. Any thread.
class UIDevice {
 public:
  virtual ~UIDevice() = default;

  /// The running system's version text, such as "12" or "18.1".
  [[nodiscard]] virtual std::string systemVersion() const = 0;
  /// The machine's model as its maker wrote it; absent when unknown.
  [[nodiscard]] virtual std::optional<std::string> model() const = 0;

  /// The device in force; by default the Linux machine (os-release, DMI or device tree), its texts valid UTF-8.
  [[nodiscard]] static std::shared_ptr<UIDevice> current();
  /// Puts the host app's device in; none brings the default back. Gives back the previous one.
  static std::shared_ptr<UIDevice> install(std::shared_ptr<UIDevice> device);
};

}  // namespace tavlo::uikit
