#pragma once

#include <TavloCommon/TavloCommon.hpp>

#include <atomic>
#include <filesystem>
#include <utility>

namespace tavlo::common {

/// Keeps each image as a PNG file of mode 0600 under a random name. Any thread, any number of processes.
class FileImageStore final : public ImageStore {
 public:
  /// Keeps its files in `folder`, which is made with mode 0700 when the first image is. What killed processes have left
  /// half-written there is removed then.
  explicit FileImageStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

  /// As declared; throws std::system_error.
  [[nodiscard]] std::optional<std::string> persist(const uikit::UIImage& image) override;
  /// As declared; throws std::system_error or uikit::ImageError. A name never reaches outside the folder: one with a
  /// slash, one that stands for the folder itself or the one above, and a symbolic link give no image.
  [[nodiscard]] std::optional<uikit::UIImage> load(std::string_view name) override;

 private:
  std::filesystem::path folder_;
  std::atomic<bool> isSwept_ = false;
};

}  // namespace tavlo::common
