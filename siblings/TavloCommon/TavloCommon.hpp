#pragma once

#include <Foundation/Data.hpp>
#include <UIKit/UIDevice.hpp>
#include <UIKit/UIImage.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tavlo::common {

/// Options of base64url text; the empty set is the one form there is.
enum class Base64Options : std::uint8_t { none = 0 };

/// `bytes` as base64url text without padding (RFC 4648 section 5); absent only when there is no memory for it.
[[nodiscard]] std::optional<std::string> base64UrlEncodedString(foundation::DataView bytes,
                                                                Base64Options options = Base64Options::none);

/// As `base64UrlEncodedString` of the PNG encoding of `image`, which is never held whole for a photograph; absent also
/// when there is no picture.
[[nodiscard]] std::optional<std::string> base64UrlEncodedPNG(const uikit::UIImage& image,
                                                             Base64Options options = Base64Options::none);

/// The bytes of a base64url text, with or without its padding. Absent when a character is outside the alphabet, the
/// length or the padding is impossible, or bits beyond the last byte are set.
[[nodiscard]] std::optional<foundation::Data> dataFromBase64Url(std::string_view text);

/// The model of `device` for people to read; absent when unknown or when its maker left a placeholder there.
[[nodiscard]] std::optional<std::string> modelName(const uikit::UIDevice& device);

/// Keeps images in files under names of its own. A host app may put its own in. Any thread.
class ImageStore {
 public:
  virtual ~ImageStore() = default;
  /// Writes `image` to a new file and gives its name, which `load` accepts; absent when the image has no PNG form.
  /// May throw a std::exception that says why it cannot be written.
  [[nodiscard]] virtual std::optional<std::string> persist(const uikit::UIImage& image) = 0;
  /// The image kept under `name`; absent when there is none. May throw a std::exception that says why it cannot be
  /// read.
  [[nodiscard]] virtual std::optional<uikit::UIImage> load(std::string_view name) = 0;

  /// The store in force; by default a FileImageStore in the folder "images" of
  /// `foundation::applicationSupportFolder()`. Throws as that does.
  [[nodiscard]] static std::shared_ptr<ImageStore> shared();
  /// Puts the host app's store in; none brings the default back. Gives back the previous one.
  static std::shared_ptr<ImageStore> install(std::shared_ptr<ImageStore> store);
};

/// Keeps `image` in the store in force and gives its file's name; absent when it could not, for whatever reason.
[[nodiscard]] std::optional<std::string> persist(const uikit::UIImage& image);
/// The image that the store in force keeps under `name`; absent when it has none or cannot read it.
[[nodiscard]] std::optional<uikit::UIImage> fromURL(std::string_view name);

}  // namespace tavlo::common
