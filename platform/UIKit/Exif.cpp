#include <UIKit/ImageCodecs.hpp>

#include <utility>

namespace tavlo::uikit {

using foundation::DataView;

int exifOrientation(DataView segment) noexcept {
  constexpr std::size_t headerSize = 6;  // "Exif", two zero bytes; a TIFF file follows
  constexpr unsigned orientationTag = 0x0112;
  constexpr unsigned shortType = 3;
  constexpr std::size_t entrySize = 12;
  if (segment.size() < headerSize + 8) return 1;
  const DataView tiff = segment.subspan(headerSize);
  const bool littleEndian = tiff[0] == 'I';
  const auto number = [&](std::size_t at, std::size_t size) {
    std::size_t value = 0;
    if (at + size > tiff.size()) return value;  // 0 is no count, tag or type
    for (std::size_t i = 0; i < size; ++i) {
      value = value << 8U | tiff[at + (littleEndian ? size - 1 - i : i)];
    }
    return value;
  };
  const std::size_t directory = number(4, 4);
  const std::size_t count = number(directory, 2);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t entry = directory + 2 + i * entrySize;
    if (number(entry, 2) != orientationTag || number(entry + 2, 2) != shortType) continue;
    const std::size_t value = number(entry + 8, 2);
    return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
  }
  return 1;
}

Raster upright(Raster picture, int orientation) {
  if (orientation == 1) return picture;
  const bool swapSides = orientation >= 5;
  const bool fromRight = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool fromBottom = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;

  Raster turned = swapSides ? makeRaster(picture.height, picture.width, picture.channels)
                            : makeRaster(picture.width, picture.height, picture.channels);
  std::uint8_t* to = turned.pixels.data();
  for (std::size_t y = 0; y < turned.height; ++y) {
    for (std::size_t x = 0; x < turned.width; ++x) {
      const auto [column, line] = swapSides ? std::pair(y, x) : std::pair(x, y);
      const std::size_t fromX = fromRight ? picture.width - 1 - column : column;
      const std::size_t fromY = fromBottom ? picture.height - 1 - line : line;
      const std::uint8_t* const from = picture.row(fromY) + fromX * picture.channels;
      for (std::size_t channel = 0; channel < picture.channels; ++channel) *to++ = from[channel];
    }
  }
  return turned;
}

}  // namespace tavlo::uikit
