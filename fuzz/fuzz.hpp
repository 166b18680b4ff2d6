#pragma once

#include <Foundation/UTF8.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <UIKit/UIImage.hpp>

#include <algorithm>
#include <cstdlib>

#include "benchmarks/Memory.hpp"

// What the targets share. Each target is one source file that defines `run`.

namespace tavlo::fuzz {

using foundation::Data;
using foundation::DataView;
using foundation::isValidUTF8;

/// Tries one input, and ends the process when the code under test breaks a promise.
void run(DataView input);

inline void require(bool holds) {
  if (!holds) std::abort();
}

/// Calls `action`, which must not take more than `limit` bytes of memory at once.
void within(std::size_t limit, const auto& action) {
  require(bench::peakMemory(action) <= limit);
}

/// Whether `action` was not refused with a Refusal.
template <class Refusal>
bool isAccepted(const auto& action) try {
  action();
  return true;
} catch (const Refusal& refusal) {
  require(isValidUTF8(refusal.what()));
  return false;
}

/// Takes an input apart from its front. At its end numbers are 0 and texts are empty.
struct Input {
  DataView rest;

  DataView bytes(std::size_t count) {
    const DataView taken = rest.first(std::min(count, rest.size()));
    rest = rest.subspan(taken.size());
    return taken;
  }
  /// In `size` bytes, the highest first.
  std::size_t number(std::size_t size = 1) {
    std::size_t value = 0;
    for (const std::uint8_t byte : bytes(size)) value = value << 8U | byte;
    return value;
  }
  /// What stands before the next `delimiter`, which is passed over, or the end.
  std::string text(char delimiter) {
    std::string taken(foundation::textOf(rest).substr(0, foundation::textOf(rest).find(delimiter)));
    bytes(taken.size() + 1);
    return taken;
  }
};

/// What is read out of an input of several files: of each the name and a line end, the size in two bytes, the bytes.
inline reader::DocumentReading readFiles(Input input) {
  std::vector<reader::NamedFile> files;
  while (!input.rest.empty()) {
    auto& file = files.emplace_back(reader::NamedFile{input.text('\n'), {}});
    const DataView bytes = input.bytes(input.number(2));
    file.bytes.assign(bytes.begin(), bytes.end());
  }
  return reader::readDocument(std::move(files));
}

/// The picture as it comes back from PNG, with the same pixels; grey ones have one channel then.
inline uikit::UIImage roundTrip(const uikit::UIImage& went) {
  auto came = uikit::UIImage::decode(UIImagePNGRepresentation(went).value());
  const std::size_t greys = came.channels() == 1 && went.channels() == 3 ? 3 : 1;
  require(came.width() == went.width() && came.height() == went.height() && came.channels() * greys == went.channels());
  for (std::size_t i = 0; i < went.pixels().size(); ++i) require(went.pixels()[i] == came.pixels()[i / greys]);
  return came;
}

/// How much memory decoding `picture` may take: 1 MB and 12 bytes a pixel, with sides rounded up to the blocks that a
/// JPEG is made of; 300 MB more for JPEG 2000, which pays for tiles and code-blocks as well. Absent when there are more
/// than a million pixels, which take long and show nothing more.
inline std::optional<std::size_t> decodingLimit(DataView picture) {
  using enum uikit::ImageFormat;
  const auto format = uikit::imageFormat(picture);
  std::size_t blocks = 0;
  for (std::size_t i = 0; i + 6 < picture.size(); ++i) {
    const std::size_t marker = Input{picture.subspan(i)}.number(2);
    const bool isFrame = format == jpeg && marker >= 0xFFC0 && marker <= 0xFFCF;
    const bool isSize = (format == jp2 || format == j2k) && marker == 0xFF51;
    if (!isFrame && !isSize && (format != png || i != 10)) continue;
    Input sides{picture.subspan(i + (isFrame ? 5 : 6))};
    const auto blocksAlong = [&] { return std::min<std::size_t>(sides.number(isFrame ? 2 : 4), 65'535) / 32 + 1; };
    blocks = std::max(blocks, blocksAlong() * blocksAlong());
  }
  if (blocks > 1'000) return std::nullopt;
  return (1 << 20) + blocks * 32 * 32 * 12 + (format == jp2 || format == j2k ? std::size_t{300'000'000} : 0);
}

}  // namespace tavlo::fuzz
