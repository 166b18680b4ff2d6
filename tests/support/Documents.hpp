#pragma once

#include <specimen/DER.hpp>

/// Elementary files of made-up documents (ICAO Doc 9303-10).
namespace tavlo::test {

using foundation::Data;
using foundation::DataView;

/// Zones of the worked examples of ICAO Doc 9303-4 and -5.
inline constexpr std::string_view exampleTD3 =
    "P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<L898902C36UTO7408122F1204159ZE184226B<<<<<10";
inline constexpr std::string_view exampleTD1 =
    "I<UTOD231458907<<<<<<<<<<<<<<<7408122F1204159UTO<<<<<<<<<<<6ERIKSSON<<ANNA<MARIA<<<<<<<<<<";

using specimen::bigEndian;
using specimen::joined;

/// One BER-TLV element with the shortest length field.
inline Data tlv(std::uint32_t tag, const auto& value) {
  return specimen::element(tag, value);
}

/// EF.COM with the outer tags of the groups that it lists.
inline Data com(DataView groupTags) {
  return tlv(0x60, joined({tlv(0x5F01, "0107"), tlv(0x5F36, "040000"), tlv(0x5C, groupTags)}));
}

/// DG1 with the characters of a machine readable zone, its lines run together.
inline Data dataGroup1(std::string_view zone = exampleTD3) {
  return tlv(0x61, tlv(0x5F1F, zone));
}

/// One face record (ISO/IEC 19794-5) with an encoded image for each face.
inline Data faceRecord(std::initializer_list<DataView> images) {
  Data faces;
  for (const DataView image : images) {  // nothing said of the person, no feature points, a JPEG of unsaid size
    faces = joined({faces, bigEndian(4 + 28 + image.size(), 4), Data(28), image});
  }
  const Data formatAndVersion{'F', 'A', 'C', 0, '0', '1', '0', 0};
  return joined({formatAndVersion, bigEndian(14 + faces.size(), 4), bigEndian(images.size(), 2), faces});
}

/// DG2 with one biometric template around `record`.
inline Data dataGroup2Around(DataView record, std::uint32_t recordTag = 0x5F2E) {
  const Data header = tlv(0xA1, joined({tlv(0x87, Data{0x01, 0x01}), tlv(0x88, Data{0x00, 0x08})}));
  const Data biometric = tlv(0x7F60, joined({header, tlv(recordTag, record)}));
  return tlv(0x75, tlv(0x7F61, joined({tlv(0x02, Data{1}), biometric})));
}

/// DG2 with one face; `image` are the encoded bytes.
inline Data dataGroup2(DataView image) {
  return dataGroup2Around(faceRecord({image}));
}

/// DG7 with one picture of the signature.
inline Data dataGroup7(DataView image) {
  return tlv(0x67, joined({tlv(0x02, Data{1}), tlv(0x5F43, image)}));
}

/// A file that is carried without a look inside, such as DG3, DG14 or the SOD, by its outer tag.
inline Data opaqueGroup(std::uint8_t tag) {
  return tlv(tag, tlv(0x30, Data{0x05, 0x00}));
}

}  // namespace tavlo::test
