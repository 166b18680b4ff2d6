#include <UIKit/ImageCodecs.hpp>

#include <openjpeg.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <vector>

namespace tavlo::uikit {

using foundation::Data;
using foundation::DataView;

namespace {

constexpr unsigned maximumDepth = 16;  ///< bits a sample

/// The first thing that OpenJPEG complained of, which is the cause of those that follow.
using Message = std::array<char, 200>;

void keepFirst(const char* text, void* data) {
  auto& message = *static_cast<Message*>(data);
  if (message[0] != '\0') return;
  const std::string_view line = text;
  line.substr(0, line.find('\n')).copy(message.data(), message.size() - 1);
}

/// Bytes in memory as OpenJPEG reads a file.
struct Source {
  DataView bytes;
  std::size_t position = 0;

  static OPJ_SIZE_T read(void* to, OPJ_SIZE_T count, void* data) {
    auto& self = *static_cast<Source*>(data);
    count = std::min(count, self.bytes.size() - self.position);
    if (count == 0) return static_cast<OPJ_SIZE_T>(-1);
    std::copy_n(self.bytes.data() + self.position, count, static_cast<std::uint8_t*>(to));
    self.position += count;
    return count;
  }
  static OPJ_BOOL seek(OPJ_OFF_T position, void* data) {
    auto& self = *static_cast<Source*>(data);
    if (position < 0 || static_cast<std::uint64_t>(position) > self.bytes.size()) return OPJ_FALSE;
    self.position = static_cast<std::size_t>(position);
    return OPJ_TRUE;
  }
  static OPJ_OFF_T skip(OPJ_OFF_T count, void* data) {
    const auto position = static_cast<OPJ_OFF_T>(static_cast<Source*>(data)->position);
    return seek(position + count, data) == OPJ_TRUE ? count : -1;
  }
};

template <auto destroy>
struct Destroy {
  template <class T>
  void operator()(T* object) const {
    destroy(object);
  }
};
using Stream = std::unique_ptr<opj_stream_t, Destroy<opj_stream_destroy>>;
using Codec = std::unique_ptr<opj_codec_t, Destroy<opj_destroy_codec>>;
using Image = std::unique_ptr<opj_image_t, Destroy<opj_image_destroy>>;

Image decode(DataView bytes, ImageFormat format) {
  Source source{bytes};
  Message message{};
  const Stream stream(opj_stream_default_create(OPJ_TRUE));
  const Codec codec(opj_create_decompress(format == ImageFormat::jp2 ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K));
  if (!stream || !codec) throw std::bad_alloc();
  opj_stream_set_user_data(stream.get(), &source, nullptr);
  opj_stream_set_user_data_length(stream.get(), bytes.size());
  opj_stream_set_read_function(stream.get(), Source::read);
  opj_stream_set_skip_function(stream.get(), Source::skip);
  opj_stream_set_seek_function(stream.get(), Source::seek);
  opj_set_error_handler(codec.get(), keepFirst, &message);

  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  opj_image_t* image = nullptr;
  const bool read = opj_setup_decoder(codec.get(), &parameters) != OPJ_FALSE &&
                    opj_read_header(stream.get(), codec.get(), &image) != OPJ_FALSE;
  Image owned(image);
  if (!read || opj_decode(codec.get(), stream.get(), image) == OPJ_FALSE) {
    throw ImageError(std::string("JPEG 2000: ") + (message[0] != '\0' ? message.data() : "damaged"));
  }
  return owned;
}

/// Each component has a sample on every dx-th column and dy-th row of one grid, beginning at the picture's corner.
/// Gives which of `count` samples, `step` apart, lies at pixel `i` of a picture whose pixels are `pixelStep` apart, or
/// before.
std::size_t sampleAt(std::size_t i, std::size_t corner, std::size_t pixelStep, std::size_t step, std::size_t count) {
  const auto first = [corner](std::size_t spacing) { return (corner + spacing - 1) / spacing; };
  const std::size_t sample = (first(pixelStep) + i) * pixelStep / step;
  return std::min(sample - std::min(sample, first(step)), count - 1);
}

/// Writes the samples of one component into a channel of `raster`, whose pixels are `dx` and `dy` apart.
void copyChannel(const opj_image_t& image, const opj_image_comp_t& component, std::size_t dx, std::size_t dy,
                 Raster& raster, std::size_t channel) {
  const int highest = (1 << component.prec) - 1;
  Data eightBits;
  for (int value = 0; value <= highest; ++value) {
    eightBits.push_back(static_cast<std::uint8_t>((value * 255 + highest / 2) / highest));
  }
  std::vector<std::size_t> columns(raster.width);
  for (std::size_t x = 0; x < raster.width; ++x) columns[x] = sampleAt(x, image.x0, dx, component.dx, component.w);

  const int lowest = component.sgnd != 0 ? -(1 << (component.prec - 1)) : 0;
  for (std::size_t y = 0; y < raster.height; ++y) {
    const OPJ_INT32* const samples =
        component.data + sampleAt(y, image.y0, dy, component.dy, component.h) * component.w;
    std::uint8_t* to = raster.row(y) + channel;
    for (const std::size_t column : columns) {
      const int value = std::clamp(samples[column], lowest, lowest + highest) - lowest;
      *to = eightBits[static_cast<std::size_t>(value)];
      to += raster.channels;
    }
  }
}

/// Full-range YCbCr (IEC 61966-2-1, amendment 1) to RGB, in place.
void convertYCC(Raster& raster) {
  const auto rounded = [](double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
  };
  for (std::size_t i = 0; i < raster.pixels.size(); i += raster.channels) {
    std::uint8_t* const pixel = raster.pixels.data() + i;
    const double y = pixel[0];
    const double cb = pixel[1] - 128;
    const double cr = pixel[2] - 128;
    pixel[0] = rounded(y + 1.402 * cr);
    pixel[1] = rounded(y - 0.344136 * cb - 0.714136 * cr);
    pixel[2] = rounded(y + 1.772 * cb);
  }
}

/// What the headers do not settle: a palette in a JP2 file makes other components of those in the code stream.
void checkComponents(std::span<const opj_image_comp_t> components) {
  if (components.empty() || components.size() > 4) {
    throw ImageError("JPEG 2000: " + std::to_string(components.size()) + " components");
  }
  for (const opj_image_comp_t& component : components) {
    if (component.data == nullptr || component.w == 0 || component.h == 0) throw ImageError("JPEG 2000: no pixels");
    if (component.prec == 0 || component.prec > maximumDepth) {
      throw ImageError("JPEG 2000: " + std::to_string(component.prec) + " bits a sample");
    }
    // The last of two or four is taken for alpha even without a word on it, as most programs write and read it.
    const bool mayBeAlpha = &component == &components.back() && components.size() % 2 == 0;
    if (component.alpha > (mayBeAlpha ? 1 : 0)) throw ImageError("JPEG 2000: an unusual order of channels");
  }
}

}  // namespace

Raster decodeJPEG2000(DataView bytes, ImageFormat format) {
  checkJPEG2000Headers(bytes, format);
  const Image image = decode(bytes, format);
  const std::span<const opj_image_comp_t> components(image->comps, image->numcomps);
  checkComponents(components);
  if (image->color_space == OPJ_CLRSPC_CMYK || image->color_space == OPJ_CLRSPC_EYCC) {
    throw ImageError("JPEG 2000: CMYK and e-YCC colours are not supported");
  }

  // The finest component sets the pixels.
  const std::size_t dx = std::ranges::min(components, {}, &opj_image_comp_t::dx).dx;
  const std::size_t dy = std::ranges::min(components, {}, &opj_image_comp_t::dy).dy;
  const auto multiples = [](std::size_t from, std::size_t to, std::size_t of) {
    return (to + of - 1) / of - (from + of - 1) / of;
  };
  const std::size_t count = components.size();
  Raster raster =
      makeRaster(multiples(image->x0, image->x1, dx), multiples(image->y0, image->y1, dy), count == 2 ? 4 : count);
  for (std::size_t channel = 0; channel < raster.channels; ++channel) {
    const std::size_t source = count == 2 ? channel / 3 : channel;  // grey thrice, then alpha
    copyChannel(*image, components[source], dx, dy, raster, channel);
  }
  // Only chroma is ever stored coarser than the rest, so a code stream that says nothing of its colours still tells.
  const bool coarseChroma = count >= 3 && components[1].dx > components[0].dx;
  if (count >= 3 && (image->color_space == OPJ_CLRSPC_SYCC || coarseChroma)) convertYCC(raster);
  return raster;
}

}  // namespace tavlo::uikit
