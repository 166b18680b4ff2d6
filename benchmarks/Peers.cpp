#include "Peers.hpp"

#include <TavloCommon/TavloCommon.hpp>
#include <UIKit/UIDevice.hpp>

#include <cstddef>
#include <cstdio>

#include <jpeglib.h>
#include <libdeflate.h>
#include <nlohmann/json.hpp>
#include <openssl/evp.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace tavlo::bench {

using foundation::Data;
using foundation::DataView;

namespace {

void require(bool condition, const char* otherwise) {
  if (!condition) throw std::runtime_error(otherwise);
}

/// By the number of channels.
constexpr std::uint8_t colourTypes[] = {0, PNG_COLOR_TYPE_GRAY, 0, PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA};

/// libpng writing to memory.
struct PNGWriter {
  PNGWriter() {
    const png_rw_ptr append = [](png_structp writer, png_bytep from, std::size_t size) {
      auto& to = *static_cast<Data*>(png_get_io_ptr(writer));
      to.insert(to.end(), from, from + size);
    };
    png_set_write_fn(png, &bytes, append, nullptr);
  }
  ~PNGWriter() { png_destroy_write_struct(&png, &info); }
  PNGWriter(const PNGWriter&) = delete;
  PNGWriter& operator=(const PNGWriter&) = delete;

  Data write(const uikit::UIImage& image) {
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width()), static_cast<png_uint_32>(image.height()), 8,
                 colourTypes[image.channels()], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    const std::size_t row = image.width() * image.channels();
    for (std::size_t y = 0; y < image.height(); ++y) png_write_row(png, image.pixels().data() + y * row);
    png_write_end(png, info);
    return std::move(bytes);
  }

  Data bytes;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
};

Data decodeBase64(std::string_view text) {
  require(text.find_first_of("+/=") == text.npos, "this is base64 of the other alphabet");
  std::string padded(text);
  std::ranges::replace(padded, '-', '+');
  std::ranges::replace(padded, '_', '/');
  const std::size_t padding = (4 - padded.size() % 4) % 4;
  padded.append(padding, '=');
  Data bytes(padded.size() / 4 * 3);
  const int size = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(padded.data()),
                                   static_cast<int>(padded.size()));
  require(size >= 0, "this is no base64url text");
  bytes.resize(static_cast<std::size_t>(size) - padding);
  return bytes;
}

}  // namespace

Data pngByHand(const uikit::UIImage& image) {
  return PNGWriter().write(image);
}

Data jpegByHand(const uikit::UIImage& image) {
  jpeg_error_mgr errors;
  jpeg_compress_struct jpeg;
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&jpeg, &bytes, &size);
  jpeg.image_width = static_cast<JDIMENSION>(image.width());
  jpeg.image_height = static_cast<JDIMENSION>(image.height());
  jpeg.input_components = 3;
  jpeg.in_color_space = JCS_RGB;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, 90, TRUE);
  jpeg_start_compress(&jpeg, TRUE);
  for (std::size_t y = 0; y < image.height(); ++y) {
    auto* row = const_cast<JSAMPROW>(image.pixels().data() + y * image.width() * 3);
    jpeg_write_scanlines(&jpeg, &row, 1);
  }
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
  Data copy(bytes, bytes + size);
  std::free(bytes);
  return copy;
}

Data pngByHuffman(const uikit::UIImage& image) {
  PNGWriter writer;
  png_set_filter(writer.png, PNG_FILTER_TYPE_BASE, PNG_FILTER_AVG);
  png_set_compression_strategy(writer.png, Z_HUFFMAN_ONLY);
  return writer.write(image);
}

Data pngByLibdeflate(const uikit::UIImage& image) {
  const std::size_t channels = image.channels(), row = image.width() * channels;
  const Data nothing(row);
  const std::uint8_t* above = nothing.data();
  Data filtered((row + 1) * image.height());
  auto* to = filtered.data();
  for (std::size_t y = 0; y < image.height(); ++y) {
    const std::uint8_t* const from = image.pixels().data() + y * row;
    *to++ = PNG_FILTER_VALUE_AVG;
    for (std::size_t i = 0; i < row; ++i) {
      *to++ = static_cast<std::uint8_t>(from[i] - (above[i] + (i < channels ? 0 : from[i - channels])) / 2);
    }
    above = from;
  }
  const std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> compressor(
      libdeflate_alloc_compressor(6), libdeflate_free_compressor);
  Data packed(libdeflate_zlib_compress_bound(compressor.get(), filtered.size()));
  packed.resize(
      libdeflate_zlib_compress(compressor.get(), filtered.data(), filtered.size(), packed.data(), packed.size()));

  std::uint8_t header[13] = {0, 0, 0, 0, 0, 0, 0, 0, 8, colourTypes[channels]};
  png_save_uint_32(header, static_cast<png_uint_32>(image.width()));
  png_save_uint_32(header + 4, static_cast<png_uint_32>(image.height()));
  PNGWriter writer;
  writer.bytes.reserve(packed.size() + 64);
  const auto writeChunk = [&](const char* type, const std::uint8_t* content, std::size_t size) {
    png_write_chunk(writer.png, reinterpret_cast<png_const_bytep>(type), content, size);
  };
  png_write_sig(writer.png);
  writeChunk("IHDR", header, sizeof header);
  writeChunk("IDAT", packed.data(), packed.size());
  writeChunk("IEND", nullptr, 0);
  return std::move(writer.bytes);
}

std::string hexByHand(DataView bytes) {
  std::ostringstream text;
  text << std::hex << std::setfill('0');
  for (const std::uint8_t byte : bytes) text << std::setw(2) << static_cast<int>(byte);
  return text.str();
}

std::string base64ByHand(DataView bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int size =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  while (text.ends_with('=')) text.pop_back();
  std::ranges::replace(text, '+', '-');
  std::ranges::replace(text, '/', '_');
  return text;
}

std::string jsonByHand(const reader::NFCPassportModel& model, const std::string& selfie, DataView publicKey) {
  nlohmann::json body;
  body["version"] = "1.0";
  body["doc"] = body["performance"] = nlohmann::json::object();
  for (const auto& [id, group] : model.dataGroupsRead()) {
    body["doc"][std::string(reader::name(id))] = hexByHand(group->data());
  }
  body["biometry"]["selfie"] = selfie;
  body["signing"]["mdlPublicKey"] = hexByHand(publicKey);
  const auto device = uikit::UIDevice::current();
  body["device"] = {{"os", "iOS"}, {"os_version", device->systemVersion()}, {"manufacturer", "Apple"}};
  if (const auto name = common::modelName(*device)) body["device"]["model"] = *name;
  return body.dump();
}

std::string bodyByHand(const reader::NFCPassportModel& model, const uikit::UIImage& selfie,
                       const security::SecKey& publicKey) {
  return jsonByHand(model, base64ByHand(pngByHand(selfie)), publicKey.data());
}

void checkPNG(DataView png, const uikit::UIImage& image) {
  png_image reader{};
  reader.version = PNG_IMAGE_VERSION;
  require(png_image_begin_read_from_memory(&reader, png.data(), png.size()) != 0, "this is no PNG");
  reader.format = image.channels() == 1 ? PNG_FORMAT_GRAY : image.channels() == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_RGBA;
  Data pixels(PNG_IMAGE_SIZE(reader));
  require(png_image_finish_read(&reader, nullptr, pixels.data(), 0, nullptr) != 0, "libpng cannot read this PNG");
  require(reader.width == image.width() && std::ranges::equal(pixels, image.pixels()), "the PNG has other pixels");
}

void checkHex(std::string_view text, DataView bytes) {
  require(text == hexByHand(bytes), "wrong hexadecimal text");
}

void checkBase64(std::string_view text, DataView bytes) {
  require(std::ranges::equal(decodeBase64(text), bytes), "wrong base64url text");
}

void checkJSON(std::string_view text, std::string_view expected) {
  require(nlohmann::json::parse(text) == nlohmann::json::parse(expected), "the JSON text has other content");
}

void checkBody(std::string_view body, const reader::NFCPassportModel& model, const uikit::UIImage& selfie,
               const security::SecKey& publicKey) {
  nlohmann::json parsed = nlohmann::json::parse(body);
  checkPNG(decodeBase64(parsed.at("biometry").at("selfie").get<std::string>()), selfie);
  parsed["biometry"]["selfie"] = "";
  require(parsed == nlohmann::json::parse(jsonByHand(model, "", publicKey.data())), "the request has other content");
}

}  // namespace tavlo::bench
