#include <UIKit/ImageCodecs.hpp>

#include <algorithm>
#include <string>

namespace tavlo::uikit {

using foundation::DataView;

namespace {

/// What a decoder's memory grows with. The portraits of documents are far below each of these.
constexpr std::uint64_t maximumSamples = 16'000'000;  ///< all components together; each costs some 8 bytes
constexpr std::uint64_t maximumTiles = 4'096;         ///< each costs some 10 KB
constexpr std::uint64_t maximumPackets = 4'194'304;   ///< code-blocks times layers
constexpr std::uint64_t leastLayers = 16;             ///< counted for each code-block, which costs 1 KB in any case
constexpr std::uint64_t maximumChannels = 4;          ///< of the code stream and of a palette

[[noreturn]] void refuse(const std::string& reason) {
  throw ImageError("JPEG 2000: " + reason);
}

/// Takes big-endian numbers and runs of bytes from the front.
class Cursor {
 public:
  explicit Cursor(DataView bytes) : rest_(bytes) {}

  [[nodiscard]] std::size_t left() const { return rest_.size(); }

  DataView take(std::uint64_t count) {
    if (count > rest_.size()) refuse("the file is cut short");
    const DataView taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  std::uint64_t number(std::size_t size) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : take(size)) value = value << 8U | byte;
    return value;
  }

  /// The contents of a marker segment, which begins with its length.
  Cursor segment() {
    const std::uint64_t length = number(2);
    if (length < 2) refuse("a marker segment of length " + std::to_string(length));
    return Cursor(take(length - 2));
  }

 private:
  DataView rest_;
};

/// Markers of a code stream (Annex A), by the names that the standard gives them.
enum Marker : std::uint16_t {
  soc = 0xFF4F,  // start of the code stream
  siz = 0xFF51,  // sides, tiles and components
  cod = 0xFF52,  // coding style
  coc = 0xFF53,  // coding style of one component
  sot = 0xFF90,  // start of a tile-part
  sod = 0xFF93,  // start of its data
  eoc = 0xFFD9,  // end of the code stream
};

/// The marker segments TLM, PLM, PLT, QCD, QCC, RGN, POC, PPM, PPT, CRG and COM, which every decoder knows. One that it
/// does not know it may search for markers, so that what is skipped here would count there.
constexpr std::uint16_t passedOver[] = {0xFF55, 0xFF57, 0xFF58, 0xFF5C, 0xFF5D, 0xFF5E,
                                        0xFF5F, 0xFF60, 0xFF61, 0xFF63, 0xFF64};

/// How a picture is cut up.
struct Layout {
  std::uint64_t width = 0;
  std::uint64_t height = 0;
  std::uint64_t components = 0;
  std::uint64_t tiles = 0;
  // The smallest code-block anywhere, as exponents of 2, and the most layers.
  std::uint64_t blockWidth = 10;
  std::uint64_t blockHeight = 10;
  std::uint64_t layers = leastLayers;
};

Layout readSize(Cursor segment) {
  segment.take(2);  // capabilities
  const auto right = segment.number(4);
  const auto bottom = segment.number(4);
  const auto left = segment.number(4);
  const auto top = segment.number(4);
  const auto tileWidth = segment.number(4);
  const auto tileHeight = segment.number(4);
  const auto tilesLeft = segment.number(4);
  const auto tilesTop = segment.number(4);
  const auto components = segment.number(2);
  if (left > right || top > bottom || tilesLeft > left || tilesTop > top || tileWidth == 0 || tileHeight == 0) {
    refuse("impossible sides");
  }
  Layout layout{.width = right - left, .height = bottom - top, .components = components};
  checkSides(layout.width, layout.height);
  if (components == 0 || components > maximumChannels) refuse(std::to_string(components) + " components");
  if (layout.width * layout.height * components > maximumSamples) {
    refuse("more than " + std::to_string(maximumSamples) + " samples");
  }
  const auto tilesAcross = (right - tilesLeft + tileWidth - 1) / tileWidth;
  const auto tilesDown = (bottom - tilesTop + tileHeight - 1) / tileHeight;
  layout.tiles = tilesAcross * tilesDown;  // each factor has at most 32 bits
  if (layout.tiles > maximumTiles) refuse("more than " + std::to_string(maximumTiles) + " tiles");
  return layout;
}

/// The parameters of a COD or COC segment. Precincts may cut code-blocks smaller than these are declared.
void readCodingStyle(Cursor parameters, bool precincts, Layout& layout) {
  const auto resolutions = parameters.number(1) + 1;
  layout.blockWidth = std::min(layout.blockWidth, parameters.number(1) + 2);
  layout.blockHeight = std::min(layout.blockHeight, parameters.number(1) + 2);
  parameters.take(2);  // style and transformation
  for (std::uint64_t i = 0; precincts && i < resolutions; ++i) {
    const auto precinct = parameters.number(1);
    const std::uint64_t halved = i == 0 ? 0 : 1;  // above the lowest resolution, a precinct is shared by sub-bands
    if ((precinct & 0xFU) < halved || precinct >> 4U < halved) refuse("a precinct of no size");
    layout.blockWidth = std::min(layout.blockWidth, (precinct & 0xFU) - halved);
    layout.blockHeight = std::min(layout.blockHeight, (precinct >> 4U) - halved);
  }
}

void checkCodeStream(Cursor stream) {
  if (stream.number(2) != soc || stream.number(2) != siz) refuse("the code stream does not begin with its size");
  Layout layout = readSize(stream.segment());
  std::size_t afterTilePart = 0;  // bytes of the stream
  std::uint64_t tiles = 0;
  while (stream.left() >= 2) {
    const std::size_t here = stream.left();
    const auto marker = stream.number(2);
    if (marker == eoc) break;
    if (marker >= 0xFF30 && marker <= 0xFF3F) continue;  // reserved, and without a segment
    if (marker == sod) {
      if (stream.left() < afterTilePart) refuse("a tile-part shorter than its header");
      stream.take(stream.left() - afterTilePart);
      continue;
    }
    Cursor segment = stream.segment();
    if (marker == sot) {
      segment.take(2);  // index of the tile
      const auto length = segment.number(4);
      if (length > here) refuse("the file is cut short");
      afterTilePart = length == 0 ? 0 : here - length;  // 0 stands for all the rest
      if (segment.number(1) == 0) ++tiles;              // the first tile-part of its tile
    } else if (marker == cod) {
      const bool precincts = (segment.number(1) & 1U) != 0;
      segment.take(1);  // progression order
      layout.layers = std::max(layout.layers, segment.number(2));
      segment.take(1);  // component transformation
      readCodingStyle(segment, precincts, layout);
    } else if (marker == coc) {
      segment.take(1);  // component
      const bool precincts = (segment.number(1) & 1U) != 0;
      readCodingStyle(segment, precincts, layout);
    } else if (std::ranges::find(passedOver, marker) == std::end(passedOver)) {
      refuse("an unknown marker segment");
    }
  }
  if (tiles < layout.tiles) refuse("the file is cut short");
  const auto blocks =
      ((layout.width >> layout.blockWidth) + 1) * ((layout.height >> layout.blockHeight) + 1) * layout.components;
  if (blocks * layout.layers > maximumPackets) refuse("too many code-blocks");
}

/// A box of a JP2 file (Annex I).
struct Box {
  std::uint64_t type;
  DataView contents;
};

Box nextBox(Cursor& file) {
  auto length = file.number(4);
  const auto type = file.number(4);
  std::uint64_t headerSize = 8;
  if (length == 0) return {type, file.take(file.left())};  // the last box
  if (length == 1) {
    length = file.number(8);
    headerSize = 16;
  }
  if (length < headerSize) refuse("a box shorter than its header");
  return {type, file.take(length - headerSize)};
}

void checkPalette(const Box& box) {
  constexpr std::uint64_t pclr = 0x7063'6C72;
  if (box.type != pclr) return;
  Cursor palette(box.contents);
  palette.take(2);  // number of entries
  if (palette.number(1) > maximumChannels) refuse("a palette of too many channels");
}

void checkFile(DataView bytes) {
  constexpr std::uint64_t jp2h = 0x6A70'3268;
  constexpr std::uint64_t jp2c = 0x6A70'3263;
  for (Cursor file(bytes); file.left() > 0;) {
    const Box box = nextBox(file);
    // A decoder reads on past the box when the code stream does.
    if (box.type == jp2c) return checkCodeStream(Cursor({box.contents.data(), bytes.data() + bytes.size()}));
    checkPalette(box);
    if (box.type != jp2h) continue;
    for (Cursor header(box.contents); header.left() > 0;) checkPalette(nextBox(header));
  }
  refuse("the file holds no code stream");
}

}  // namespace

void checkJPEG2000Headers(DataView bytes, ImageFormat format) {
  if (format == ImageFormat::jp2) {
    checkFile(bytes);
  } else {
    checkCodeStream(Cursor(bytes));
  }
}

}  // namespace tavlo::uikit
