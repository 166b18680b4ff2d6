// What the PNG encoder writes gives the same pixels back. The input chooses the sides, the channels and the pixels.
#include <UIKit/UIImage.hpp>
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <random>

using namespace tavlo;
using uikit::UIImage;

namespace {

UIImage roundTrip(const UIImage& image) {
  const auto png = UIImagePNGRepresentation(image);
  if (!png) std::abort();
  return UIImage::decode(*png);
}

/// Grey pixels come back with one channel, whatever they went in with.
bool areSame(const UIImage& went, const UIImage& came) {
  if (came.width() != went.width() || came.height() != went.height()) return false;
  if (came.channels() == went.channels()) return std::ranges::equal(came.pixels(), went.pixels());
  if (came.channels() != 1 || went.channels() != 3) return false;
  for (std::size_t i = 0; i < went.pixels().size(); ++i) {
    if (went.pixels()[i] != came.pixels()[i / 3]) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  FuzzedDataProvider input(bytes, size);
  const auto width = input.ConsumeIntegralInRange<std::size_t>(1, 256);
  const auto height = input.ConsumeIntegralInRange<std::size_t>(1, 256);
  const auto format = input.ConsumeBool() ? uikit::PixelFormat::rgba : uikit::PixelFormat::rgb;
  const std::size_t channels = format == uikit::PixelFormat::rgba ? 4 : 3;
  const std::size_t repeats = input.ConsumeBool() ? channels : 1;  // of each byte; all channels alike are grey
  const auto noise = input.ConsumeIntegral<std::uint8_t>();        // the bits that differ from pixel to pixel
  auto pattern = input.ConsumeRemainingBytes<std::uint8_t>();
  if (pattern.empty()) pattern = {0};

  foundation::Data pixels(width * height * channels);
  std::minstd_rand random(noise);  // the same for the same input
  std::uint8_t byte = 0;
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    if (i % repeats == 0) byte = static_cast<std::uint8_t>(pattern[i / repeats % pattern.size()] ^ (random() & noise));
    pixels[i] = byte;
  }
  const auto image = UIImage::fromPixels(pixels, width, height, width * channels, format);
  const UIImage came = roundTrip(image);
  if (!areSame(image, came) || !areSame(came, roundTrip(came))) std::abort();
  return 0;
}
