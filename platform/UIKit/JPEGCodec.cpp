#include <UIKit/ImageCodecs.hpp>

#include <csetjmp>
#include <cstdio>
#include <string>
#include <utility>

#include <jerror.h>
#include <jpeglib.h>  // needs <cstdio> before it

namespace tavlo::uikit {

using foundation::DataView;

namespace {

/// Scans are passes over the whole picture, so each of a progressive file's thousands costs time and no bytes. Encoders
/// write about ten.
constexpr int maximumScans = 100;

/// libjpeg, its errors turned into ImageError.
class JPEGReader {
 public:
  JPEGReader() {
    info_.err = jpeg_std_error(&errors_);
    errors_.error_exit = fail;
    errors_.emit_message = judgeWarning;
    info_.client_data = this;
    progress_.progress_monitor = countScans;
  }
  ~JPEGReader() { jpeg_destroy_decompress(&info_); }
  JPEGReader(const JPEGReader&) = delete;
  JPEGReader& operator=(const JPEGReader&) = delete;

  /// Runs `calls(info)`, which must own nothing: an error of libjpeg jumps out of it.
  template <class Calls>
  void run(Calls calls) {
    // NOLINTNEXTLINE(cert-err52-cpp): no exception may pass through libjpeg
    if (setjmp(jump_) != 0) throw ImageError(std::string("JPEG: ") + message_);
    calls(info_);
  }

  void readHeader(DataView bytes) {
    run([&](jpeg_decompress_struct& info) {
      jpeg_create_decompress(&info);
      info.progress = &progress_;
      jpeg_mem_src(&info, bytes.data(), static_cast<unsigned long>(bytes.size()));
      jpeg_save_markers(&info, JPEG_APP0 + 1, 0xFFFF);
      jpeg_read_header(&info, TRUE);
    });
  }

  [[nodiscard]] jpeg_decompress_struct& info() { return info_; }

 private:
  // NOLINTNEXTLINE(cert-err52-cpp): see run
  [[noreturn]] void escape() { std::longjmp(jump_, 1); }

  [[noreturn]] static void fail(j_common_ptr common) {
    auto* self = static_cast<JPEGReader*>(common->client_data);
    common->err->format_message(common, self->message_);
    self->escape();
  }
  /// Cameras leave stray bytes between segments; any other warning means that part of the picture is lost.
  static void judgeWarning(j_common_ptr common, int level) {
    const int code = common->err->msg_code;
    if (level < 0 && code != JWRN_EXTRANEOUS_DATA && code != JWRN_JFIF_MAJOR && code != JWRN_ADOBE_XFORM) fail(common);
  }
  static void countScans(j_common_ptr common) {
    if (reinterpret_cast<j_decompress_ptr>(common)->input_scan_number <= maximumScans) return;
    auto* self = static_cast<JPEGReader*>(common->client_data);
    std::snprintf(self->message_, sizeof self->message_, "more than %d scans", maximumScans);
    self->escape();
  }

  jpeg_decompress_struct info_{};
  jpeg_error_mgr errors_{};
  jpeg_progress_mgr progress_{};
  std::jmp_buf jump_{};
  char message_[JMSG_LENGTH_MAX] = "";
};

int orientation(const jpeg_decompress_struct& info) {
  for (auto* marker = info.marker_list; marker != nullptr; marker = marker->next) {
    const DataView segment(marker->data, marker->data_length);
    if (foundation::textOf(segment).starts_with("Exif")) return exifOrientation(segment);
  }
  return 1;
}

/// Sets the way out for the picture's colours and gives the number of channels that come out.
std::size_t chooseColours(jpeg_decompress_struct& info) {
  switch (info.jpeg_color_space) {
    case JCS_GRAYSCALE:
      info.out_color_space = JCS_GRAYSCALE;
      return 1;
    case JCS_RGB:
    case JCS_YCbCr:
      info.out_color_space = JCS_RGB;
      return 3;
    case JCS_CMYK:
    case JCS_YCCK:
      info.out_color_space = JCS_CMYK;
      return 4;
    default:
      throw ImageError("JPEG: unknown colours in " + std::to_string(info.num_components) + " components");
  }
}

/// Ink to light; Adobe's programs store the light that is left over, the others store the ink.
void convertCMYK(DataView cmyk, bool adobe, std::uint8_t* rgb) {
  const int flip = adobe ? 0 : 255;
  for (std::size_t i = 0; i < cmyk.size(); i += 4) {
    const int black = cmyk[i + 3] ^ flip;
    for (std::size_t c = 0; c < 3; ++c) *rgb++ = static_cast<std::uint8_t>(((cmyk[i + c] ^ flip) * black + 127) / 255);
  }
}

}  // namespace

Raster decodeJPEG(DataView bytes) {
  JPEGReader reader;
  reader.readHeader(bytes);
  const int turn = orientation(reader.info());  // the markers go away with the last row
  const std::size_t channels = chooseColours(reader.info());
  Raster raster = makeRaster(reader.info().image_width, reader.info().image_height, channels == 4 ? 3 : channels);
  foundation::Data cmyk(channels == 4 ? 4 * raster.width : 0);
  reader.run([&](jpeg_decompress_struct& info) {
    jpeg_start_decompress(&info);
    while (info.output_scanline < info.output_height) {
      std::uint8_t* const row = raster.row(info.output_scanline);
      JSAMPROW to = cmyk.empty() ? row : cmyk.data();
      jpeg_read_scanlines(&info, &to, 1);
      if (!cmyk.empty()) convertCMYK(cmyk, info.saw_Adobe_marker != 0, row);
    }
    jpeg_finish_decompress(&info);
  });
  return upright(std::move(raster), turn);
}

}  // namespace tavlo::uikit
