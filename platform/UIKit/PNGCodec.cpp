#include <UIKit/ImageCodecs.hpp>

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <new>
#include <string>

namespace tavlo::uikit {

using foundation::DataView;

namespace {

/// libpng reading from memory, its errors turned into ImageError.
class PNGReader {
 public:
  explicit PNGReader(DataView bytes) : rest_(bytes) {
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, fail, ignoreWarning);
    if (png_ != nullptr) info_ = png_create_info_struct(png_);
    if (info_ == nullptr) {
      png_destroy_read_struct(&png_, nullptr, nullptr);
      throw std::bad_alloc();
    }
    png_set_read_fn(png_, this, read);
  }
  ~PNGReader() { png_destroy_read_struct(&png_, &info_, nullptr); }
  PNGReader(const PNGReader&) = delete;
  PNGReader& operator=(const PNGReader&) = delete;

  /// Runs `calls(png, info)`, which must own nothing: an error of libpng jumps out of it.
  template <class Calls>
  void run(Calls calls) {
    // NOLINTNEXTLINE(cert-err52-cpp): no exception may pass through libpng
    if (setjmp(png_jmpbuf(png_)) != 0) throw ImageError(std::string("PNG: ") + message_);
    calls(png_, info_);
  }

 private:
  [[noreturn]] static void fail(png_structp png, png_const_charp message) {
    auto* self = static_cast<PNGReader*>(png_get_error_ptr(png));
    std::string_view(message).copy(self->message_, sizeof self->message_ - 1);
    png_longjmp(png, 1);
  }
  static void ignoreWarning(png_structp /*png*/, png_const_charp /*message*/) {}
  static void read(png_structp png, png_bytep to, std::size_t count) {
    auto* self = static_cast<PNGReader*>(png_get_io_ptr(png));
    if (count > self->rest_.size()) png_error(png, "the file is cut short");
    std::copy_n(self->rest_.begin(), count, to);
    self->rest_ = self->rest_.subspan(count);
  }

  DataView rest_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  char message_[200] = "";
};

}  // namespace

Raster decodePNG(DataView bytes) {
  PNGReader reader(bytes);
  reader.run([](png_structp png, png_infop info) {
    // Texts and profiles would only be dropped again, and can unpack to gigabytes.
    png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
    png_read_info(png, info);
  });
  Raster raster;
  int passes = 0;
  reader.run([&](png_structp png, png_infop info) {
    png_set_scale_16(png);
    png_set_expand(png);
    const bool alpha = (png_get_color_type(png, info) & PNG_COLOR_MASK_ALPHA) != 0;
    if (alpha || png_get_valid(png, info, PNG_INFO_tRNS) != 0) png_set_gray_to_rgb(png);
    passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    raster.width = png_get_image_width(png, info);
    raster.height = png_get_image_height(png, info);
    raster.channels = png_get_channels(png, info);
  });
  raster = makeRaster(raster.width, raster.height, raster.channels);
  reader.run([&](png_structp png, png_infop) {
    for (int pass = 0; pass < passes; ++pass) {
      for (std::size_t y = 0; y < raster.height; ++y) png_read_row(png, raster.row(y), nullptr);
    }
    png_read_end(png, nullptr);
  });
  return raster;
}

}  // namespace tavlo::uikit
