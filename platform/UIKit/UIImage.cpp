#include <UIKit/ImageCodecs.hpp>
#include <UIKit/UIImage.hpp>

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

namespace tavlo::uikit {

using foundation::DataView;

namespace {

using namespace std::string_view_literals;

struct Signature {
  ImageFormat format;
  std::string_view name;
  std::string_view firstBytes;
};

constexpr Signature signatures[] = {
    {ImageFormat::png, "PNG", "\x89PNG\r\n\x1A\n"sv},
    {ImageFormat::jpeg, "JPEG", "\xFF\xD8\xFF"sv},
    {ImageFormat::jp2, "JPEG 2000 (JP2)", "\0\0\0\x0CjP  \r\n\x87\n"sv},
    {ImageFormat::j2k, "JPEG 2000 (code stream)", "\xFF\x4F\xFF\x51"sv},
};

}  // namespace

std::string_view name(ImageFormat format) {
  return std::ranges::find(signatures, format, &Signature::format)->name;
}

std::optional<ImageFormat> imageFormat(DataView bytes) {
  for (const Signature& signature : signatures) {
    if (foundation::textOf(bytes).starts_with(signature.firstBytes)) return signature.format;
  }
  return std::nullopt;
}

void checkSides(std::uint64_t width, std::uint64_t height) {
  if (width == 0 || height == 0) throw ImageError("The picture is empty");
  if (width > maximumImageSide || height > maximumImageSide || width * height > maximumImagePixels) {
    throw ImageError("The picture is too large: " + std::to_string(width) + " x " + std::to_string(height) + " pixels");
  }
}

Raster makeRaster(std::uint64_t width, std::uint64_t height, std::size_t channels) {
  checkSides(width, height);
  return {width, height, channels, foundation::Data(width * height * channels)};
}

UIImage::UIImage(Raster raster) : raster_(std::make_shared<const Raster>(std::move(raster))) {}

UIImage UIImage::decode(DataView bytes) {
  const auto format = imageFormat(bytes);
  if (!format) throw ImageError("The bytes are neither PNG nor JPEG nor JPEG 2000");
  switch (*format) {
    case ImageFormat::png:
      return UIImage(decodePNG(bytes));
    case ImageFormat::jpeg:
      return UIImage(decodeJPEG(bytes));
    default:
      return UIImage(decodeJPEG2000(bytes, *format));
  }
}

std::optional<UIImage> UIImage::fromData(DataView bytes) {
  try {
    return decode(bytes);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

UIImage UIImage::fromPixels(DataView pixels, std::size_t width, std::size_t height, std::size_t stride,
                            PixelFormat format) {
  checkSides(width, height);
  const std::size_t channels = format == PixelFormat::rgb ? 3 : 4;
  const std::size_t row = width * channels;
  if (stride < row) throw ImageError("The stride of the frame is shorter than a row");
  if (pixels.size() < row || (pixels.size() - row) / stride < height - 1) throw ImageError("The frame is cut short");

  Raster raster = makeRaster(width, height, channels);
  for (std::size_t y = 0; y < height; ++y) std::ranges::copy(pixels.subspan(y * stride, row), raster.row(y));
  return UIImage(std::move(raster));
}

std::optional<UIImage> UIImage::named(std::string_view name, const foundation::Bundle& bundle) {
  const auto bytes = bundle.resource(std::string(name) + ".png");
  return bytes ? fromData(*bytes) : std::nullopt;
}

std::optional<UIImage> UIImage::named(std::string_view name) {
  return named(name, *foundation::Bundle::main());
}

std::size_t UIImage::width() const noexcept {
  return raster_ ? raster_->width : 0;
}

std::size_t UIImage::height() const noexcept {
  return raster_ ? raster_->height : 0;
}

std::size_t UIImage::channels() const noexcept {
  return raster_ ? raster_->channels : 0;
}

DataView UIImage::pixels() const noexcept {
  return raster_ ? DataView(raster_->pixels) : DataView();
}

}  // namespace tavlo::uikit
