#pragma once

#include <Foundation/Bundle.hpp>
#include <Foundation/Data.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tavlo::uikit {

/// Why bytes are no image, in words for a person.
class ImageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How encoded bytes hold a picture; told by content, never by a name.
enum class ImageFormat { png, jpeg, jp2, j2k };

/// "PNG", "JPEG", "JPEG 2000 (JP2)" or "JPEG 2000 (code stream)".
[[nodiscard]] std::string_view name(ImageFormat format);

/// The format that the first bytes announce, absent when it is none of ours. Nothing else is looked at.
[[nodiscard]] std::optional<ImageFormat> imageFormat(foundation::DataView bytes);

/// Limits on a picture, checked on its header before any pixel memory is asked for; decoding then takes up to 12 bytes
/// a pixel. JPEG 2000 is for portraits here, and limited to 16 million samples, all components together.
inline constexpr std::size_t maximumImageSide = 32'767;        ///< pixels
inline constexpr std::size_t maximumImagePixels = 64'000'000;  ///< width times height

/// How raw pixels lie in memory: 8 bits a channel, in this order.
enum class PixelFormat { rgb, rgba };

struct Raster;

/// A picture: upright rows of 8-bit pixels, top first. An immutable value; copies share the pixels. Any thread.
class UIImage {
 public:
  /// No picture: width and height 0, and no PNG form.
  UIImage() = default;

  /// Decodes PNG, JPEG, and JPEG 2000 as JP2 or as a raw code stream. Grey without alpha stays grey; palettes, YCC and
  /// CMYK become RGB, and all samples 8 bits. A camera's Exif orientation is applied; gamma and colour profiles are
  /// not. Throws ImageError with the reason, also when the picture is damaged or cut short, or std::bad_alloc.
  [[nodiscard]] static UIImage decode(foundation::DataView bytes);

  /// As `decode`; absent instead of an error, also when there is no memory for it.
  [[nodiscard]] static std::optional<UIImage> fromData(foundation::DataView bytes);

  /// Copies a camera frame: `height` rows of `width` pixels, each row beginning `stride` bytes after the one before.
  /// Throws ImageError when the sides are 0 or over the limits, the stride is shorter than a row, or `pixels` too
  /// short.
  [[nodiscard]] static UIImage fromPixels(foundation::DataView pixels, std::size_t width, std::size_t height,
                                          std::size_t stride, PixelFormat format);

  /// The image asset `name` (the file "`name`.png") of `bundle`; absent when it is missing or no image.
  [[nodiscard]] static std::optional<UIImage> named(std::string_view name, const foundation::Bundle& bundle);
  /// The image asset of the host app's main bundle.
  [[nodiscard]] static std::optional<UIImage> named(std::string_view name);

  [[nodiscard]] std::size_t width() const noexcept;   ///< in pixels
  [[nodiscard]] std::size_t height() const noexcept;  ///< in pixels
  /// Bytes a pixel: 1 grey, 3 RGB, 4 RGBA (alpha not premultiplied); 0 when there is no picture.
  [[nodiscard]] std::size_t channels() const noexcept;
  /// The rows without gaps, width * height * channels bytes; valid as long as any copy of this image lives.
  [[nodiscard]] foundation::DataView pixels() const noexcept;

 private:
  explicit UIImage(Raster raster);

  std::shared_ptr<const Raster> raster_;
};

/// The PNG encoding of `image`, losslessly; absent when there is no picture or no memory for it. A colour picture whose
/// pixels are all grey goes out as grey.
[[nodiscard]] std::optional<foundation::Data> UIImagePNGRepresentation(const UIImage& image);

/// Takes the next piece of a file, valid during the call, and about how many bytes will follow it.
using PNGHandler = std::function<void(foundation::DataView piece, std::size_t expectedRest)>;

/// Hands the PNG encoding of `image` to `take` as it is made, a photograph in pieces of some 100 KB. False, with
/// nothing handed over, when there is no picture. Throws std::bad_alloc, and what `take` throws.
bool writePNG(const UIImage& image, const PNGHandler& take);

}  // namespace tavlo::uikit
