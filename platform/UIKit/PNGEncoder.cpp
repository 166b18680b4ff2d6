#include <Foundation/VectorClones.hpp>
#include <UIKit/LiteralBlocks.hpp>
#include <UIKit/UIImage.hpp>

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <vector>

// PNG (ISO/IEC 15948) at nearly the speed of memory.
//
// Most of a general encoder's time goes into looking for repeated strings, and noise leaves photographs none. What
// makes those smaller is the filter, which leaves of each sample its difference from a guess by its neighbours, and the
// prefix code, which spends few bits on small differences. So photographs get the Average filter and DEFLATE blocks
// (RFC 1951) of literals; all else, such as drawings and screens, goes to libdeflate. A trial on a few rows tells which
// it is.

namespace tavlo::uikit {

using foundation::Data;
using foundation::DataView;

namespace {

using Byte = std::uint8_t;

// ---- Filters (ISO/IEC 15948, clause 9)

/// A picture as it goes out.
struct Samples {
  DataView bytes;
  std::size_t width, height, channels;

  [[nodiscard]] std::size_t rowSize() const { return width * channels; }
  /// A row once filtered has its filter type before it.
  [[nodiscard]] std::size_t filteredRowSize() const { return 1 + rowSize(); }
  [[nodiscard]] std::size_t filteredSize() const { return height * filteredRowSize(); }
};

/// With their numbers in the file.
enum class Filter : Byte { none, sub, up, average, paeth };

/// Writes what is left of `row` once `guess(left, above, left above)` is subtracted; outside the picture all is 0.
/// Nothing is carried from one sample to the next, so the compiler works on a vector of them at a time.
template <class Guess>
void subtract(const Byte* __restrict row, const Byte* __restrict above, std::size_t size, std::size_t channels,
              Byte* __restrict to, Guess guess) {
  for (std::size_t i = 0; i < channels; ++i) to[i] = static_cast<Byte>(row[i] - guess(Byte{0}, above[i], Byte{0}));
  for (std::size_t i = channels; i < size; ++i) {
    to[i] = static_cast<Byte>(row[i] - guess(row[i - channels], above[i], above[i - channels]));
  }
}

/// Turns rows into differences.
class RowFilter {
 public:
  explicit RowFilter(const Samples& samples) : samples_(samples), zeros_(samples.rowSize()) {}

  /// Writes the type of `filter` and row `y`, filtered with it.
  TAVLO_VECTOR_CLONES
  void apply(Filter filter, std::size_t y, Byte* to) const {
    const std::size_t size = samples_.rowSize();
    const Byte* const row = samples_.bytes.data() + y * size;
    const Byte* const above = y > 0 ? row - size : zeros_.data();
    const auto filtered = [&](auto guess) { subtract(row, above, size, samples_.channels, to + 1, guess); };
    *to = static_cast<Byte>(filter);
    switch (filter) {
      case Filter::none:
        return filtered([](Byte, Byte, Byte) { return Byte{0}; });
      case Filter::sub:
        return filtered([](Byte left, Byte, Byte) { return left; });
      case Filter::up:
        return filtered([](Byte, Byte up, Byte) { return up; });
      case Filter::average:  // (left + up) / 2 in eight bits
        return filtered([](Byte left, Byte up, Byte) { return static_cast<Byte>((left & up) + ((left ^ up) >> 1U)); });
      case Filter::paeth:
        return filtered([](Byte left, Byte up, Byte corner) {
          const auto far = [](int a, int b) { return static_cast<std::int16_t>(std::abs(a - b)); };
          const std::int16_t a = far(up, corner), b = far(left, corner), c = far(left + up, 2 * corner);
          return a <= b && a <= c ? left : b <= c ? up : corner;
        });
    }
  }

 private:
  const Samples& samples_;
  Data zeros_;
};

// ---- The file (ISO/IEC 15948, clauses 5 and 11)

void putBigEndian(Byte* to, std::size_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) *to++ = static_cast<Byte>(value >> static_cast<unsigned>(shift));
}

constexpr std::size_t chunkHead = 8, chunkTail = 4;

/// Completes a chunk around the `size` bytes of data that begin `chunkHead` bytes after `chunk`.
DataView completeChunk(Byte* chunk, std::string_view type, std::size_t size) {
  putBigEndian(chunk, size);
  std::ranges::copy(type, chunk + 4);
  putBigEndian(chunk + chunkHead + size, libdeflate_crc32(0, chunk + 4, size + 4));
  return {chunk, chunkHead + size + chunkTail};
}

constexpr std::string_view signature = "\x89PNG\r\n\x1A\n";

// ---- Pictures of few colours

/// A picture of up to 256 colours in one byte a pixel: a grey level, or else a place in the palette.
struct Indexed {
  Data palette;  ///< RGB from dark to bright, so that neighbours in a photograph stay close; empty when all are grey
  Data pixels;
};

/// The colours of a picture, up to 256, and the byte for each.
class Colours {
 public:
  /// Adds those of RGB `pixels`; false when there are more, or when the palette would be too large for so few pixels.
  [[nodiscard]] bool add(DataView pixels) {
    const std::size_t limit = std::min<std::size_t>(256, pixels.size() / 24);
    std::uint32_t last = 0;
    for (std::size_t i = 0; i < pixels.size(); i += 3) {
      const std::uint32_t colour = colourAt(pixels.data() + i);
      if (colour == last) continue;
      last = colour;
      Slot& slot = find(colour);
      if (slot.colour != 0) continue;
      if (colours_.size() >= limit) return false;
      slot.colour = colour;
      colours_.push_back(colour);
    }
    return true;
  }

  [[nodiscard]] Indexed index(DataView pixels) {
    const auto byte = [](std::uint32_t colour, unsigned shift) { return static_cast<Byte>(colour >> shift); };
    const auto brightness = [byte](std::uint32_t c) { return byte(c, 16) + byte(c, 8) + byte(c, 0); };
    const auto isGrey = [byte](std::uint32_t c) { return byte(c, 16) == byte(c, 8) && byte(c, 8) == byte(c, 0); };
    const bool allGrey = std::ranges::all_of(colours_, isGrey);
    Indexed indexed;
    std::ranges::sort(colours_, {}, brightness);
    for (std::size_t i = 0; i < colours_.size(); ++i) {
      find(colours_[i]).byte = allGrey ? byte(colours_[i], 0) : static_cast<Byte>(i);
      if (allGrey) continue;
      for (const unsigned shift : {16U, 8U, 0U}) indexed.palette.push_back(byte(colours_[i], shift));
    }
    indexed.pixels.resize(pixels.size() / 3);
    Slot last;
    for (std::size_t i = 0; i < pixels.size(); i += 3) {
      const std::uint32_t colour = colourAt(pixels.data() + i);
      if (colour != last.colour) last = find(colour);
      indexed.pixels[i / 3] = last.byte;
    }
    return indexed;
  }

 private:
  struct Slot {
    std::uint32_t colour = 0;
    Byte byte = 0;
  };

  /// Never 0, which stands for no colour.
  static std::uint32_t colourAt(const Byte* pixel) {
    return 1U << 24U | unsigned{pixel[0]} << 16U | unsigned{pixel[1]} << 8U | pixel[2];
  }

  /// The slot that has `colour`, or the free one for it.
  [[nodiscard]] Slot& find(std::uint32_t colour) {
    std::size_t at = colour * 0x9E3779B1U >> 21U;
    while (slots_[at].colour != 0 && slots_[at].colour != colour) at = (at + 1) % slots_.size();
    return slots_[at];
  }

  std::array<Slot, 2048> slots_;
  std::vector<std::uint32_t> colours_;
};

// ---- The two ways

class Compressor {
 public:
  explicit Compressor(int level) : handle_(libdeflate_alloc_compressor(level), libdeflate_free_compressor) {
    if (!handle_) throw std::bad_alloc();
  }
  [[nodiscard]] libdeflate_compressor* get() const { return handle_.get(); }

 private:
  std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> handle_;
};

/// How a picture is best compressed.
struct Plan {
  Filter filter;
  int searchLevel;  ///< libdeflate's, 0 for literals alone
  std::size_t expectedSize;
};

/// Compresses a sample of the rows each way.
Plan tryOut(const Samples& samples, const RowFilter& filter) {
  const std::size_t rowSize = samples.filteredRowSize();
  constexpr std::size_t stripes = 8;
  const std::size_t wanted = std::clamp<std::size_t>(samples.filteredSize() / 128, 16 << 10, 128 << 10) / rowSize;
  const std::size_t rows = std::min(samples.height, std::max(wanted, 2 * stripes));
  // The first row, which has none above it, is like no other.
  const std::size_t first = rows < samples.height ? 1 : 0;
  Data sample(rows * rowSize);
  const auto filterSample = [&](Filter type) {
    for (std::size_t i = 0; i < rows; ++i) {
      const std::size_t y = first + i + (samples.height - rows - first) * (i * stripes / rows) / (stripes - 1);
      filter.apply(type, y, sample.data() + i * rowSize);
    }
  };
  const auto searchedSize = [&](int level) {
    const Compressor compressor(level);
    Data compressed(libdeflate_deflate_compress_bound(compressor.get(), sample.size()));
    return libdeflate_deflate_compress(compressor.get(), sample.data(), sample.size(), compressed.data(),
                                       compressed.size());
  };
  const auto scaled = [&](std::size_t size) { return size * samples.filteredSize() / sample.size(); };
  // Average is the faster, Paeth better for photographs without much noise.
  filterSample(Filter::paeth);
  const std::size_t paethSize = codedSize(sample);
  filterSample(Filter::average);
  std::size_t coded = codedSize(sample);
  Filter best = Filter::average;
  if (paethSize < coded - coded / 64) {
    best = Filter::paeth;
    coded = paethSize;
    filterSample(best);
  }
  // A search has to win clearly for its time, except in small pictures.
  std::size_t smallest = searchedSize(1);
  const bool isWon = samples.filteredSize() < blockSize / 4 || smallest <= coded - coded / 16;
  const Plan literals{best, 0, scaled(coded)};
  if (!isWon && best == Filter::average) return literals;
  // Smooth photographs repeat from row to row what the fastest search does not find.
  const int level = sample.size() / smallest < 8 ? 4 : 1;
  constexpr std::array filters{Filter::up, Filter::none, Filter::sub, Filter::average, Filter::paeth};
  smallest = SIZE_MAX;
  for (const Filter type : std::span(filters).first(isWon ? filters.size() : 1)) {
    filterSample(type);
    const std::size_t size = searchedSize(level);
    if (size >= smallest) continue;
    smallest = size;
    best = type;
  }
  if (!isWon && smallest > coded - coded / 12) return literals;
  // Noise leaves many short matches, which a thorough search would spend most of its time on for little.
  const std::size_t parts = sample.size() / smallest;
  return {best, parts < 8 ? 4 : parts < 16 ? 6 : 7, scaled(smallest)};
}

/// Writes the chunks of one file.
class Writer {
 public:
  Writer(const Samples& samples, const PNGHandler& take)
      : samples_(samples), filter_(samples), take_(take), plan_(tryOut(samples, filter_)) {}

  void writeHead(DataView palette) {
    std::array<Byte, 13> header{};
    putBigEndian(header.data(), samples_.width);
    putBigEndian(header.data() + 4, samples_.height);
    header[8] = 8;
    header[9] = palette.empty() ? std::array<Byte, 5>{0, 0, 0, 2, 6}[samples_.channels] : 3;
    Data head = foundation::dataOf(signature);
    const auto append = [&head](std::string_view type, DataView data) {
      const std::size_t at = head.size();
      head.resize(at + chunkHead + data.size() + chunkTail);
      std::ranges::copy(data, head.begin() + static_cast<std::ptrdiff_t>(at + chunkHead));
      completeChunk(head.data() + at, type, data.size());
    };
    append("IHDR", header);
    append("sRGB", Data{0});
    if (!palette.empty()) append("PLTE", palette);
    take_(head, plan_.expectedSize);
  }

  void writeRows() { plan_.searchLevel > 0 ? search() : code(); }

  void writeTail() {
    std::array<Byte, chunkHead + chunkTail> tail;
    take_(completeChunk(tail.data(), "IEND", 0), 0);
  }

 private:
  void search() {
    const auto rows = std::make_unique_for_overwrite<Byte[]>(samples_.filteredSize());
    for (std::size_t y = 0; y < samples_.height; ++y)
      filter_.apply(plan_.filter, y, rows.get() + y * samples_.filteredRowSize());
    const Compressor compressor(plan_.searchLevel);
    const std::size_t bound = libdeflate_zlib_compress_bound(compressor.get(), samples_.filteredSize());
    const auto chunk = std::make_unique_for_overwrite<Byte[]>(chunkHead + bound + chunkTail);
    const std::size_t size =
        libdeflate_zlib_compress(compressor.get(), rows.get(), samples_.filteredSize(), chunk.get() + chunkHead, bound);
    take_(completeChunk(chunk.get(), "IDAT", size), chunkHead + chunkTail);
  }

  void code() {
    const std::size_t rowSize = samples_.filteredRowSize();
    const std::size_t band = std::max<std::size_t>(1, blockSize / rowSize);
    const auto rows = std::make_unique_for_overwrite<Byte[]>(band * rowSize);
    const auto chunk = std::make_unique_for_overwrite<Byte[]>(band * rowSize * maximumCodeLength / 8 + 1024);
    Byte* const data = chunk.get() + chunkHead;
    BitWriter out{data};
    out.put(0x0178, 16);  // the zlib header (RFC 1950)
    std::uint32_t checksum = 1;
    std::size_t written = 0;
    for (std::size_t y = 0; y < samples_.height;) {
      Byte* to = rows.get();
      for (const std::size_t end = std::min(y + band, samples_.height); y < end; ++y, to += rowSize)
        filter_.apply(plan_.filter, y, to);
      const DataView block(rows.get(), to);
      checksum = libdeflate_adler32(checksum, block.data(), block.size());
      const bool isLast = y == samples_.height;
      writeBlock(out, block, isLast);
      if (isLast) {
        out.put(0, 7);
        putBigEndian(out.to, checksum);
        out.to += 4;
      }
      const DataView piece = completeChunk(chunk.get(), "IDAT", static_cast<std::size_t>(out.to - data));
      written += piece.size();
      take_(piece, written * (samples_.height - y) / y);
      out.to = data;
    }
  }

  const Samples samples_;
  const RowFilter filter_;
  const PNGHandler& take_;
  const Plan plan_;
};

}  // namespace

bool writePNG(const UIImage& image, const PNGHandler& take) {
  if (image.channels() == 0) return false;
  Samples samples{image.pixels(), image.width(), image.height(), image.channels()};
  Indexed indexed;
  if (Colours colours; samples.channels == 3 && colours.add(samples.bytes)) {
    indexed = colours.index(samples.bytes);
    samples.bytes = indexed.pixels;
    samples.channels = 1;
  }
  Writer writer(samples, take);
  writer.writeHead(indexed.palette);
  writer.writeRows();
  writer.writeTail();
  return true;
}

std::optional<Data> UIImagePNGRepresentation(const UIImage& image) try {
  Data png;
  const bool isWritten = writePNG(image, [&png](DataView piece, std::size_t rest) {
    if (png.capacity() - png.size() < piece.size()) png.reserve(png.size() + piece.size() + rest + rest / 32 + 64);
    png.insert(png.end(), piece.begin(), piece.end());
  });
  return isWritten ? std::optional(std::move(png)) : std::nullopt;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

}  // namespace tavlo::uikit
