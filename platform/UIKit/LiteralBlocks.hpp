#pragma once

#include <Foundation/Data.hpp>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

// DEFLATE blocks (RFC 1951) of literals, and of matches only where zeros run on: all that is left to gain in a
// photograph whose rows have been filtered.

#pragma GCC visibility push(hidden)

namespace tavlo::uikit {

/// How much goes into one block: enough to outweigh its codes, and little enough to stay in the cache.
inline constexpr std::size_t blockSize = std::size_t{128} << 10U;
/// Of a byte, in bits: four literals and the seven bits before them fill a word of 64.
inline constexpr unsigned maximumCodeLength = 14;

/// How many bits can be written at once: fewer than a word of 64 has beside the seven that may wait.
inline constexpr unsigned mostBits = 56;

/// A stream of bits, the first the lowest of the first byte. Writes up to eight bytes beyond its end.
struct BitWriter {
  std::uint8_t* to;
  std::uint64_t bits = 0;
  unsigned count = 0;  // of bits that wait, below 8 between calls

  /// Appends up to `mostBits` bits.
  void put(std::uint64_t value, unsigned size) {
    bits |= value << count;
    count += size;
    const std::uint64_t word = std::endian::native == std::endian::little ? bits : __builtin_bswap64(bits);
    std::memcpy(to, &word, sizeof word);
    to += count >> 3U;
    bits >>= count & 56U;
    count &= 7U;
  }
};

/// The size of `bytes` in such blocks, without their headers.
[[nodiscard]] std::size_t codedSize(foundation::DataView bytes);

/// Writes `bytes` as a block, with codes made for a sample of them: up to `maximumCodeLength` bits for each, and 1 KB.
void writeBlock(BitWriter& writer, foundation::DataView bytes, bool isLast);

}  // namespace tavlo::uikit

#pragma GCC visibility pop
