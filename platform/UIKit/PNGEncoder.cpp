#include <UIKit/UIImage.hpp>

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <bit>
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

// ---- Prefix codes (RFC 1951, 3.2.2)

constexpr std::size_t endOfBlock = 256;
constexpr std::size_t firstLength = 257;
constexpr std::size_t symbolCount = 286;  // literals, the end of the block and 29 symbols for lengths of matches
/// Four literals and the seven bits before them fill a word of 64 bits.
constexpr unsigned maximumCodeLength = 14;

/// Each symbol's code, its first bit lowest, and the length of that; 0 for a symbol without one.
struct Codes {
  std::array<std::uint16_t, symbolCount> bits{};
  std::array<std::uint8_t, symbolCount> lengths{};
};

/// The best prefix code for symbols of these weights that has no code longer than `limit`; weight 0 gets no code.
Codes makeCodes(std::span<const std::uint32_t> weights, unsigned limit) {
  std::array<std::uint64_t, symbolCount> order;  // the symbols by their weight
  std::size_t leaves = 0;
  std::uint32_t total = 0;
  for (std::size_t symbol = 0; symbol < weights.size(); ++symbol) {
    if (weights[symbol] > 0) order[leaves++] = std::uint64_t{weights[symbol]} << 32U | symbol;
    total += weights[symbol];
  }
  std::sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(leaves));

  // Huffman's tree from two queues, the leaves and their sums; both grow heavier, so the lightest are at the fronts.
  // Where it is too deep, the rarest symbols are taken for more frequent than they are.
  std::array<std::uint32_t, 2 * symbolCount> weight;
  std::array<std::uint32_t, 2 * symbolCount> parent;
  const std::size_t root = 2 * leaves - 2;
  std::array<std::uint32_t, 2 * symbolCount> depth;
  for (std::uint32_t least = std::max(1U, total >> limit);; least *= 2) {
    for (std::size_t i = 0; i < leaves; ++i) weight[i] = std::max(least, static_cast<std::uint32_t>(order[i] >> 32U));
    std::size_t leaf = 0, sum = leaves;
    for (std::size_t next = leaves; next <= root; ++next) {
      weight[next] = 0;
      for (int child = 0; child < 2; ++child) {
        const std::size_t lightest = leaf < leaves && (sum == next || weight[leaf] <= weight[sum]) ? leaf++ : sum++;
        weight[next] += weight[lightest];
        parent[lightest] = static_cast<std::uint32_t>(next);
      }
    }
    depth[root] = 0;
    for (std::size_t i = root; i-- > 0;) depth[i] = depth[parent[i]] + 1;
    if (depth[0] <= limit) break;  // the lightest leaf is the deepest
  }

  Codes codes;
  std::array<unsigned, 16> used{};
  for (std::size_t i = 0; i < leaves; ++i) {
    codes.lengths[order[i] & 0xFFFFU] = static_cast<std::uint8_t>(depth[i]);
    ++used[depth[i]];
  }
  std::array<unsigned, 16> next{};
  for (std::size_t i = 1; i < 15; ++i) next[i + 1] = (next[i] + used[i]) << 1U;
  for (std::size_t symbol = 0; symbol < weights.size(); ++symbol) {
    if (codes.lengths[symbol] == 0) continue;
    unsigned value = next[codes.lengths[symbol]]++, reversed = 0;
    for (unsigned i = 0; i < codes.lengths[symbol]; ++i, value >>= 1U) reversed = reversed << 1U | (value & 1U);
    codes.bits[symbol] = static_cast<std::uint16_t>(reversed);
  }
  return codes;
}

// ---- DEFLATE blocks (RFC 1951, 3.2.3 to 3.2.7)

/// A stream of bits, the first the lowest of the first byte. Writes up to eight bytes beyond its end.
struct BitWriter {
  Byte* to;
  std::uint64_t bits = 0;
  unsigned count = 0;  // of bits that wait, below 8 between calls

  /// Appends up to 57 bits.
  void put(std::uint64_t value, unsigned size) {
    bits |= value << count;
    count += size;
    const std::uint64_t word = std::endian::native == std::endian::little ? bits : __builtin_bswap64(bits);
    std::memcpy(to, &word, sizeof word);
    to += count >> 3U;
    bits >>= count & 56U;
    count &= 7U;
  }
  void put(const Codes& codes, std::size_t symbol) { put(codes.bits[symbol], codes.lengths[symbol]); }
};

/// A match of 3 to 258 bytes: its symbol, and in some extra bits how much longer it is than the symbol says.
struct Match {
  std::size_t length;
  std::size_t symbol;
  unsigned extraBits;
  std::size_t beyond;
};

Match matchOf(std::size_t length) {
  static constexpr std::array<std::uint16_t, 29> shortest{3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                                          15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                                          67, 83, 99, 115, 131, 163, 195, 227, 258};
  const auto index = static_cast<std::size_t>(std::ranges::upper_bound(shortest, length) - shortest.begin()) - 1;
  const unsigned extraBits = index < 8 || index == 28 ? 0 : static_cast<unsigned>(index) / 4 - 1;
  return {length, firstLength + index, extraBits, length - shortest[index]};
}

std::uint64_t wordAt(const Byte* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

/// Hands `bytes` to `literals(at, count)` in eights and at the end less, but long runs of zeros to `match(length)`,
/// which repeats the byte before.
template <class Literals, class OnMatch>
void walk(DataView bytes, Literals literals, OnMatch match) {
  const Byte* at = bytes.data();
  const Byte* const end = at + bytes.size();
  while (end - at >= 8) {
    if (wordAt(at) != 0) {
      literals(at, 8);
      at += 8;
      continue;
    }
    const Byte* const run = at++;
    while (end - at >= 8 && wordAt(at) == 0) at += 8;
    while (at < end && *at == 0) ++at;
    literals(run, 1);
    std::size_t left = static_cast<std::size_t>(at - run) - 1;
    for (; left >= 3; left -= std::min<std::size_t>(left, 258)) match(matchOf(std::min<std::size_t>(left, 258)));
    literals(run, static_cast<int>(left));
  }
  literals(at, static_cast<int>(end - at));
}

/// How often each symbol occurs, and what that comes to.
class Census {
 public:
  void add(DataView bytes) {
    const auto literals = [this](const Byte* at, int size) {
      // Four counters a symbol: the same one twice running would have to wait for itself.
      if (size == 8) {
        for (std::size_t i = 0; i < 8; ++i) ++literals_[i % 4][at[i]];
      } else {
        for (; size > 0; --size) ++literals_[0][*at++];
      }
    };
    walk(bytes, literals, [this](const Match& match) {
      ++weights_[match.symbol];
      extraBits_ += match.extraBits + 1;
      hasMatches_ = true;
    });
  }

  [[nodiscard]] bool hasMatches() const { return hasMatches_; }

  /// The codes for bytes of which these may be but a part: every literal gets one, and lengths if there were any.
  [[nodiscard]] Codes makeCodes() {
    weights_[endOfBlock] = 1;
    for (std::size_t i = 0; i < endOfBlock; ++i) {
      weights_[i] = 1 + literals_[0][i] + literals_[1][i] + literals_[2][i] + literals_[3][i];
    }
    if (hasMatches_) {
      for (std::size_t i = firstLength; i < symbolCount; ++i) ++weights_[i];
    }
    return uikit::makeCodes(weights_, maximumCodeLength);
  }

  /// The size of what was counted in bytes, once coded.
  [[nodiscard]] std::size_t codedSize() {
    const Codes codes = makeCodes();
    std::size_t bits = extraBits_;
    for (std::size_t i = 0; i < symbolCount; ++i) bits += weights_[i] * std::size_t{codes.lengths[i]};
    return bits / 8;
  }

 private:
  std::array<std::array<std::uint32_t, 256>, 4> literals_{};
  std::array<std::uint32_t, symbolCount> weights_{};
  std::size_t extraBits_ = 0;
  bool hasMatches_ = false;
};

void writeBlockHeader(BitWriter& out, const Codes& codes, bool hasMatches, bool isLast) {
  std::array<std::uint32_t, 19> weights{};
  for (const std::uint8_t length : codes.lengths) ++weights[length];
  const std::uint8_t distanceLength = hasMatches ? 1 : 0;
  ++weights[distanceLength];
  const Codes lengthCodes = makeCodes(weights, 7);

  out.put(isLast ? 1 : 0, 1);
  out.put(2, 2);  // with codes of its own
  out.put(symbolCount - 257, 5);
  out.put(1 - 1, 5);  // one distance
  out.put(19 - 4, 4);
  for (const unsigned length : {16U, 17U, 18U, 0U, 8U, 7U, 9U, 6U, 10U, 5U, 11U, 4U, 12U, 3U, 13U, 2U, 14U, 1U, 15U}) {
    out.put(lengthCodes.lengths[length], 3);
  }
  for (const std::uint8_t length : codes.lengths) out.put(lengthCodes, length);
  out.put(lengthCodes, distanceLength);
}

constexpr std::size_t blockSize = std::size_t{128} << 10U;

/// Writes a block that is coded by a sample of itself.
void writeBlock(BitWriter& writer, DataView bytes, bool isLast) {
  constexpr std::size_t stride = 4096;
  const std::size_t sampled = bytes.size() < blockSize / 2 ? stride : stride / 4;
  Census census;
  for (std::size_t at = 0; at < bytes.size(); at += stride) {
    census.add(bytes.subspan(at, std::min(sampled, bytes.size() - at)));
  }
  const Codes codes = census.makeCodes();
  writeBlockHeader(writer, codes, census.hasMatches(), isLast);

  BitWriter out = writer;  // one that stays in registers
  const auto four = [&out, &codes](const Byte* at) {
    const auto bits = [&](std::size_t i) { return std::uint64_t{codes.bits[at[i]]}; };
    const auto length = [&](std::size_t i) { return unsigned{codes.lengths[at[i]]}; };
    const unsigned half = length(0) + length(1);
    const std::uint64_t first = bits(0) | bits(1) << length(0);
    const std::uint64_t second = bits(2) | bits(3) << length(2);
    out.put(first | second << half, half + length(2) + length(3));
  };
  const auto literals = [&out, &codes, four](const Byte* at, int size) {
    if (size == 8) {
      four(at);
      four(at + 4);
    } else {
      for (; size > 0; --size) out.put(codes, *at++);
    }
  };
  walk(bytes, literals, [&out, &codes](const Match& match) {
    if (codes.lengths[match.symbol] != 0) {
      out.put(codes, match.symbol);
      // The extra bits, and the one that stands for distance 1.
      out.put(match.beyond, match.extraBits + 1);
    } else {
      for (std::size_t i = 0; i < match.length; ++i) out.put(codes, 0);
    }
  });
  out.put(codes, endOfBlock);
  writer = out;
}

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
  const Compressor compressor(1);
  Data compressed(libdeflate_deflate_compress_bound(compressor.get(), sample.size()));
  const auto searchedSize = [&] {
    return libdeflate_deflate_compress(compressor.get(), sample.data(), sample.size(), compressed.data(),
                                       compressed.size());
  };
  const auto scaled = [&](std::size_t size) { return size * samples.filteredSize() / sample.size(); };
  const auto codedSize = [&](Filter type) {
    filterSample(type);
    Census census;
    census.add(sample);
    return census.codedSize();
  };
  // Average is the faster, Paeth better for photographs without much noise.
  const std::size_t paethSize = codedSize(Filter::paeth);
  std::size_t coded = codedSize(Filter::average);
  Filter best = Filter::average;
  if (paethSize < coded - coded / 64) {
    best = Filter::paeth;
    coded = paethSize;
    filterSample(best);
  }
  std::size_t smallest = searchedSize();
  // A search has to win clearly for its time, except in small pictures.
  const bool isSmall = samples.filteredSize() < blockSize / 4;
  if (!isSmall && smallest > coded - coded / 16) return {best, 0, scaled(coded)};
  for (const Filter type : {Filter::none, Filter::sub, Filter::up, Filter::average, Filter::paeth}) {
    filterSample(type);
    const std::size_t size = searchedSize();
    if (size >= smallest) continue;
    smallest = size;
    best = type;
  }
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
