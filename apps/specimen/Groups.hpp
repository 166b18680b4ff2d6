#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/DataGroup.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The elementary files of a document (ICAO Doc 9303-10), each whole with its outer tag.

namespace tavlo::specimen {

/// An encoded picture that was found sound.
struct Picture {
  foundation::Data bytes;
  std::uint16_t width = 0;   ///< in pixels
  std::uint16_t height = 0;  ///< in pixels
  bool isJPEG = false;       ///< else JPEG 2000

  /// Takes JPEG, JP2 or a JPEG 2000 code stream as it is. Throws std::runtime_error for anything else.
  [[nodiscard]] static Picture of(foundation::Data bytes);
};

/// How DG2 records a face: ISO/IEC 19794-5 or ISO/IEC 39794-5.
enum class FaceStandard { iso19794, iso39794 };

/// EF.COM, which lists `groups`.
[[nodiscard]] foundation::Data commonData(const std::vector<reader::DataGroupId>& groups);
/// DG1 with a machine readable zone.
[[nodiscard]] foundation::Data dataGroup1(std::string_view zone);
/// DG2 with one or more faces in one record.
[[nodiscard]] foundation::Data dataGroup2(const std::vector<Picture>& faces, FaceStandard standard);
/// DG3 that says that there are no fingerprints.
[[nodiscard]] foundation::Data dataGroup3();
/// DG7 with the picture of a signature.
[[nodiscard]] foundation::Data dataGroup7(const Picture& signature);

/// A data element of DG11 or DG12, by its tag such as 0x5F0E.
struct Item {
  std::uint32_t tag;
  std::string text;
};
/// DG11 or DG12 with `items`, listed and in their order.
[[nodiscard]] foundation::Data textGroup(reader::DataGroupId id, const std::vector<Item>& items);

/// DG14: the chip would do chip authentication with a key derived from `name`. Whoever knows the name knows the
/// private half as well, which no specimen has a use for; so the same group comes out each time.
[[nodiscard]] foundation::Data dataGroup14(std::string_view name);
/// DG15: the public key of active authentication, as above.
[[nodiscard]] foundation::Data dataGroup15(std::string_view name);

}  // namespace tavlo::specimen
