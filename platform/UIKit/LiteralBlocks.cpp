#include <Foundation/VectorClones.hpp>
#include <UIKit/LiteralBlocks.hpp>

#include <algorithm>
#include <array>
#include <span>

namespace tavlo::uikit {

using foundation::DataView;

namespace {

using Byte = std::uint8_t;

// ---- Prefix codes (RFC 1951, 3.2.2)

constexpr std::size_t endOfBlock = 256;
constexpr std::size_t firstLength = 257;
constexpr std::size_t symbolCount = 286;  // literals, the end of the block and 29 symbols for lengths of matches

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

void putSymbol(BitWriter& out, const Codes& codes, std::size_t symbol) {
  out.put(codes.bits[symbol], codes.lengths[symbol]);
}

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
[[gnu::always_inline]] inline void walk(DataView bytes, Literals literals, OnMatch match) {
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
  for (const std::uint8_t length : codes.lengths) putSymbol(out, lengthCodes, length);
  putSymbol(out, lengthCodes, distanceLength);
}

}  // namespace

std::size_t codedSize(DataView bytes) {
  Census census;
  census.add(bytes);
  return census.codedSize();
}

TAVLO_VECTOR_CLONES
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
  struct Bits {
    std::uint64_t value;
    unsigned size;
  };
  const auto two = [&codes](const Byte* at) {
    const unsigned size = codes.lengths[at[0]];
    return Bits{codes.bits[at[0]] | std::uint64_t{codes.bits[at[1]]} << size, size + codes.lengths[at[1]]};
  };
  const auto join = [](Bits a, Bits b) { return Bits{a.value | b.value << a.size, a.size + b.size}; };
  const auto literals = [&](const Byte* at, int size) {
    if (size == 8) {
      const Bits first = join(two(at), two(at + 2)), second = join(two(at + 4), two(at + 6));
      const Bits all = join(first, second);  // of short codes as a rule
      if (all.size <= mostBits) {
        out.put(all.value, all.size);
      } else {
        out.put(first.value, first.size);
        out.put(second.value, second.size);
      }
    } else {
      for (; size > 0; --size) putSymbol(out, codes, *at++);
    }
  };
  walk(bytes, literals, [&out, &codes](const Match& match) {
    if (codes.lengths[match.symbol] != 0) {
      putSymbol(out, codes, match.symbol);
      // The extra bits, and the one that stands for distance 1.
      out.put(match.beyond, match.extraBits + 1);
    } else {
      for (std::size_t i = 0; i < match.length; ++i) putSymbol(out, codes, 0);
    }
  });
  putSymbol(out, codes, endOfBlock);
  writer = out;
}

}  // namespace tavlo::uikit
