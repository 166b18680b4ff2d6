// Pictures: what is decoded comes back from PNG with the same pixels.
#include "fuzz.hpp"

void tavlo::fuzz::run(DataView input) {
  const auto limit = decodingLimit(input);
  if (!limit) return;
  uikit::UIImage image;
  within(*limit, [&] { (void)isAccepted<uikit::ImageError>([&] { image = uikit::UIImage::decode(input); }); });
  if (image.width() > 0) roundTrip(image);
}
