#pragma once

#include <Foundation/Data.hpp>
#include <UIKit/UIImage.hpp>

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(hidden)

namespace tavlo::uikit {

/// The pixels that a decoder fills, laid out as those of UIImage.
struct Raster {
  std::size_t width = 0;
  std::size_t height = 0;
  std::size_t channels = 0;
  foundation::Data pixels;

  [[nodiscard]] std::uint8_t* row(std::size_t y) { return pixels.data() + y * width * channels; }
};

/// Refuses a picture that is empty or over the limits with ImageError; asked before any memory is.
void checkSides(std::uint64_t width, std::uint64_t height);

/// A black picture. Throws ImageError as `checkSides` does.
[[nodiscard]] Raster makeRaster(std::uint64_t width, std::uint64_t height, std::size_t channels);

// Each decoder throws ImageError when the picture is damaged, cut short, over the limits or of an unusual kind. Damage
// is never papered over: half a portrait must not pass for a whole one.

[[nodiscard]] Raster decodePNG(foundation::DataView bytes);
[[nodiscard]] Raster decodeJPEG(foundation::DataView bytes);
/// `format` is ImageFormat::jp2 or ImageFormat::j2k.
[[nodiscard]] Raster decodeJPEG2000(foundation::DataView bytes, ImageFormat format);

/// Reads the headers of a JPEG 2000 picture (ISO/IEC 15444-1, Annexes A and I) and throws ImageError when decoding it
/// could ask for more than some 300 MB, which a few bytes of tiny tiles, precincts or code-blocks are enough for.
void checkJPEG2000Headers(foundation::DataView bytes, ImageFormat format);

/// How a camera was held: the Orientation (1 to 8) of an Exif APP1 segment's contents; 1, upright, when it has none.
[[nodiscard]] int exifOrientation(foundation::DataView segment) noexcept;

/// `picture`, taken with that Exif orientation, turned and mirrored upright.
[[nodiscard]] Raster upright(Raster picture, int orientation);

}  // namespace tavlo::uikit

#pragma GCC visibility pop
