#include <specimen/Groups.hpp>

#include <UIKit/UIImage.hpp>
#include <specimen/DER.hpp>
#include <specimen/Identity.internal.hpp>

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <utility>

namespace tavlo::specimen {

using foundation::Data;
using foundation::DataView;
using reader::DataGroupId;

namespace {

constexpr std::uint32_t integer = 0x02;
constexpr std::uint32_t sequence = 0x30;
constexpr std::uint32_t setOf = 0x31;

struct Kind {
  DataGroupId id;
  std::uint8_t tag;
};

constexpr std::array kinds{
    Kind{DataGroupId::DG1, 0x61},  Kind{DataGroupId::DG2, 0x75},  Kind{DataGroupId::DG3, 0x63},
    Kind{DataGroupId::DG7, 0x67},  Kind{DataGroupId::DG11, 0x6B}, Kind{DataGroupId::DG12, 0x6C},
    Kind{DataGroupId::DG14, 0x6E}, Kind{DataGroupId::DG15, 0x6F},
};

std::uint8_t tagOf(DataGroupId id) {
  return std::ranges::find(kinds, id, &Kind::id)->tag;
}

/// One face in the record of ISO/IEC 19794-5: full frontal, in colour, from an unknown source.
Data faceOf19794(const Picture& picture) {
  const Data nobodyDescribed(16);  // no feature points either
  const Data fullFrontal{0x01, static_cast<std::uint8_t>(picture.isJPEG ? 0 : 1)};
  const Data colourSourceDeviceQuality{0x01, 0x00, 0x00, 0x00, 0x00, 0x00};
  const Data face = joined({nobodyDescribed, fullFrontal, bigEndian(picture.width, 2), bigEndian(picture.height, 2),
                            colourSourceDeviceQuality, picture.bytes});
  return joined({bigEndian(4 + face.size(), 4), face});
}

Data recordOf19794(const std::vector<Picture>& pictures) {
  constexpr std::size_t headerSize = 14;
  const Data formatAndVersion{'F', 'A', 'C', 0, '0', '1', '0', 0};
  Data faces;
  for (const Picture& picture : pictures) faces = joined({faces, faceOf19794(picture)});
  return joined({formatAndVersion, bigEndian(headerSize + faces.size(), 4), bigEndian(pictures.size(), 2), faces});
}

/// The block of ISO/IEC 39794-5, whose fields have context-specific tags in the order of the standard.
Data blockOf39794(const std::vector<Picture>& pictures) {
  constexpr std::uint8_t jpeg = 2;
  constexpr std::uint8_t jpeg2000Lossy = 3;
  const Data version = element(0xA0, {element(0x80, number(3)), element(0x81, number(2019))});
  Data representations;
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    const Data format = element(0xA0, {element(0x80, number(pictures[i].isJPEG ? jpeg : jpeg2000Lossy))});
    const Data flatImage = element(0xA0, {element(0x80, pictures[i].bytes), element(0xA1, format)});
    const Data image = element(0xA1, element(0xA0, flatImage));
    representations = joined({representations, element(sequence, {element(0x80, number(i)), image})});
  }
  return element(0xA1, {version, element(0xA1, representations)});
}

}  // namespace

Picture Picture::of(Data bytes) {
  const auto format = uikit::imageFormat(bytes);
  if (!format || format == uikit::ImageFormat::png) {
    throw std::runtime_error(
        "no JPEG or JPEG 2000, as documents have it; \"convert IN.png OUT.jpg\" of ImageMagick "
        "makes one");
  }
  const auto image = uikit::UIImage::decode(bytes);
  return {.bytes = std::move(bytes),
          .width = static_cast<std::uint16_t>(image.width()),
          .height = static_cast<std::uint16_t>(image.height()),
          .isJPEG = format == uikit::ImageFormat::jpeg};
}
static_assert(uikit::maximumImageSide <= std::numeric_limits<std::uint16_t>::max());

Data commonData(const std::vector<DataGroupId>& groups) {
  Data tags;
  for (const DataGroupId id : groups) tags.push_back(tagOf(id));
  return element(0x60, {element(0x5F01, "0107"), element(0x5F36, "040000"), element(0x5C, tags)});
}

Data dataGroup1(std::string_view zone) {
  return element(tagOf(DataGroupId::DG1), element(0x5F1F, zone));
}

Data dataGroup2(const std::vector<Picture>& faces, FaceStandard standard) {
  const bool isOlder = standard == FaceStandard::iso19794;
  const Data face{0x02};
  const Data jointCommittee{0x01, 0x01};
  const Data formatType{0x00, static_cast<std::uint8_t>(isOlder ? 0x08 : 0x42)};
  const Data header = element(0xA1, {element(0x80, Data{0x01, 0x01}), element(0x81, face), element(0x82, Data{0x00}),
                                     element(0x87, jointCommittee), element(0x88, formatType)});
  const Data record = isOlder ? element(0x5F2E, recordOf19794(faces)) : element(0x7F2E, blockOf39794(faces));
  const Data templates = element(0x7F61, {element(integer, number(1)), element(0x7F60, {header, record})});
  return element(tagOf(DataGroupId::DG2), templates);
}

Data dataGroup3() {
  // Arbitrary bytes go with an empty group, so that its hash does not tell that it is empty.
  return element(tagOf(DataGroupId::DG3),
                 element(0x7F61, {element(integer, number(0)), element(0x53, "no fingerprints")}));
}

Data dataGroup7(const Picture& signature) {
  return element(tagOf(DataGroupId::DG7), {element(integer, number(1)), element(0x5F43, signature.bytes)});
}

Data textGroup(DataGroupId id, const std::vector<Item>& items) {
  Data tags;
  Data texts;
  for (const auto& [tag, text] : items) {
    tags = joined({tags, bigEndian(tag)});
    texts = joined({texts, element(tag, text)});
  }
  return element(tagOf(id), {element(0x5C, tags), texts});
}

Data dataGroup14(std::string_view name) {
  // Chip authentication, version 1, over elliptic curves with AES-128 (BSI TR-03110-3), and the algorithm of active
  // authentication, plain ECDSA with SHA-256 (ICAO Doc 9303-11).
  const Data protocol = element(sequence, {objectIdentifier("0.4.0.127.0.7.2.2.3.2.2"), element(integer, number(1))});
  const Data key = element(sequence, {objectIdentifier("0.4.0.127.0.7.2.2.1.2"), derivedPublicKey(name)});
  const Data algorithm = element(sequence, {objectIdentifier("2.23.136.1.1.5"), element(integer, number(1)),
                                            objectIdentifier("0.4.0.127.0.7.1.1.4.1.3")});
  return element(tagOf(DataGroupId::DG14), element(setOf, {protocol, algorithm, key}));
}

Data dataGroup15(std::string_view name) {
  return element(tagOf(DataGroupId::DG15), derivedPublicKey(name));
}

}  // namespace tavlo::specimen
