// What the PNG encoder writes gives the same pixels back. The input chooses the sides, the channels and the pixels.
#include <random>

#include "fuzz.hpp"

void tavlo::fuzz::run(DataView input) {
  Input parts{input};
  const std::size_t width = parts.number() + 1, height = parts.number() + 1, kind = parts.number();
  const std::size_t channels = kind % 2 == 1 ? 4 : 3;
  const std::size_t repeats = kind % 4 >= 2 ? channels : 1;  // of each byte; all channels alike are grey
  const std::size_t noise = parts.number();                  // the bits that differ from pixel to pixel

  Data pixels(width * height * channels);
  std::minstd_rand random(static_cast<unsigned>(noise));  // the same for the same input
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    const auto byte = parts.rest.empty() ? std::uint8_t{0} : parts.rest[i / repeats % parts.rest.size()];
    pixels[i] = i % repeats == 0 ? static_cast<std::uint8_t>(byte ^ (random() & noise)) : pixels[i - 1];
  }
  within(16 * pixels.size() + (8 << 20), [&] {
    const auto format = channels == 4 ? uikit::PixelFormat::rgba : uikit::PixelFormat::rgb;
    roundTrip(roundTrip(uikit::UIImage::fromPixels(pixels, width, height, width * channels, format)));
  });
}
