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

namespace tavlo::bench {

using foundation::Data;
using foundation::DataView;

namespace {

void require(bool condition, const char* otherwise) {
  if (!condition) throw std::runtime_error(otherwise);
}

/// Default settings where these are negative.
struct PNGSettings {
  int filters = -1;
  int strategy = -1;
};

Data writeWithLibpng(const uikit::UIImage& image, PNGSettings settings) {
  Data png;
  png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(writer);
  png_set_write_fn(
      writer, &png,
      [](png_structp self, png_bytep bytes, std::size_t size) {
        auto& to = *static_cast<Data*>(png_get_io_ptr(self));
        to.insert(to.end(), bytes, bytes + size);
      },
      nullptr);
  png_set_IHDR(writer, info, static_cast<png_uint_32>(image.width()), static_cast<png_uint_32>(image.height()), 8,
               image.channels() == 1   ? PNG_COLOR_TYPE_GRAY
               : image.channels() == 3 ? PNG_COLOR_TYPE_RGB
                                       : PNG_COLOR_TYPE_RGB_ALPHA,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (settings.filters >= 0) png_set_filter(writer, PNG_FILTER_TYPE_BASE, settings.filters);
  if (settings.strategy >= 0) png_set_compression_strategy(writer, settings.strategy);
  png_write_info(writer, info);
  const std::size_t row = image.width() * image.channels();
  for (std::size_t y = 0; y < image.height(); ++y) png_write_row(writer, image.pixels().data() + y * row);
  png_write_end(writer, info);
  png_destroy_write_struct(&writer, &info);
  return png;
}

void appendNumber(Data& to, std::size_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) to.push_back(static_cast<std::uint8_t>(number >> shift));
}

void appendChunk(Data& to, std::string_view type, DataView content) {
  appendNumber(to, content.size());
  const std::size_t start = to.size();
  to.insert(to.end(), type.begin(), type.end());
  to.insert(to.end(), content.begin(), content.end());
  appendNumber(to, libdeflate_crc32(0, to.data() + start, to.size() - start));
}

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
  return writeWithLibpng(image, {});
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
  return writeWithLibpng(image, {.filters = PNG_FILTER_AVG, .strategy = Z_HUFFMAN_ONLY});
}

Data pngByLibdeflate(const uikit::UIImage& image) {
  const std::size_t channels = image.channels(), row = image.width() * channels;
  Data filtered((row + 1) * image.height());
  const Data nothing(row);
  const std::uint8_t* above = nothing.data();
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

  Data header;
  appendNumber(header, image.width());
  appendNumber(header, image.height());
  const std::uint8_t type = channels == 1 ? 0 : channels == 3 ? 2 : 6;
  for (const std::uint8_t byte : {std::uint8_t{8}, type, std::uint8_t{0}, std::uint8_t{0}, std::uint8_t{0}}) {
    header.push_back(byte);
  }
  Data png{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  png.reserve(packed.size() + 64);
  appendChunk(png, "IHDR", header);
  appendChunk(png, "IDAT", packed);
  appendChunk(png, "IEND", {});
  return png;
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
