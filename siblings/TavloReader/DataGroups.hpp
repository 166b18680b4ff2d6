#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/DataGroup.hpp>
#include <TavloReader/MRZ.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// One class for each elementary file (ICAO Doc 9303-10). Each is made from the whole file, may be derived from, and
// throws ReaderError from its constructor when the file is unsound.

namespace tavlo::reader {

struct TLV;

/// EF.COM: what the document says of itself. It is not signed; the list of groups to trust is the one in the SOD.
class COM : public DataGroup {
 public:
  /// Parses the whole file. Throws ReaderError.
  explicit COM(foundation::Data file);

  [[nodiscard]] const std::string& ldsVersion() const noexcept { return ldsVersion_; }          ///< such as "1.7"
  [[nodiscard]] const std::string& unicodeVersion() const noexcept { return unicodeVersion_; }  ///< such as "4.0.0"
  /// The groups that the document says it has, in its order. A tag of no group is an oddity.
  [[nodiscard]] const std::vector<DataGroupId>& groups() const noexcept { return groups_; }

 private:
  std::string ldsVersion_;
  std::string unicodeVersion_;
  std::vector<DataGroupId> groups_;
};

/// The machine readable zone.
class DataGroup1 : public DataGroup {
 public:
  /// Parses the whole file. Throws ReaderError.
  explicit DataGroup1(foundation::Data file);
  /// The machine readable zone, taken apart.
  [[nodiscard]] const MRZ& mrz() const noexcept { return mrz_; }

 private:
  MRZ mrz_;
};

/// The holder's face, once or several times.
class DataGroup2 : public DataGroup {
 public:
  /// Parses the whole file. Throws ReaderError.
  explicit DataGroup2(foundation::Data file);
  /// The encoded pictures out of the face records (ISO/IEC 19794-5 and 39794-5), the portrait first. Views into `this`.
  /// A record of another standard is an oddity and gives no picture.
  [[nodiscard]] const std::vector<foundation::DataView>& faces() const noexcept { return faces_; }

 private:
  void readFaces(const TLV& record);
  void readFaceRecord(foundation::DataView record);  ///< ISO/IEC 19794-5
  void readFaceBlock(foundation::DataView block);    ///< ISO/IEC 39794-5
  std::vector<foundation::DataView> faces_;
};

/// The holder's signature or usual mark.
class DataGroup7 : public DataGroup {
 public:
  /// Parses the whole file. Throws ReaderError.
  explicit DataGroup7(foundation::Data file);
  /// The encoded pictures. Views into `this`.
  [[nodiscard]] const std::vector<foundation::DataView>& images() const noexcept { return images_; }

 private:
  std::vector<foundation::DataView> images_;
};

/// A group of named texts.
class TextDataGroup : public DataGroup {
 public:
  /// One item for a person to read, in valid UTF-8. Dates are digits, pictures only named with their size.
  struct Item {
    std::string_view label;  ///< an English name
    std::string text;        ///< the value
  };
  /// In the order of the file. An item of an unknown tag is an oddity and left out.
  [[nodiscard]] const std::vector<Item>& items() const noexcept { return items_; }

 protected:
  /// Parses the whole file. Throws ReaderError.
  TextDataGroup(DataGroupId id, foundation::Data file);

 private:
  void addItem(std::uint32_t tag, foundation::DataView content);
  std::vector<Item> items_;
};

/// More about the holder.
class DataGroup11 : public TextDataGroup {
 public:
  /// Parses the whole file. Throws ReaderError.
  explicit DataGroup11(foundation::Data file) : TextDataGroup(DataGroupId::DG11, std::move(file)) {}
};

/// More about the document.
class DataGroup12 : public TextDataGroup {
 public:
  /// Parses the whole file. Throws ReaderError.
  explicit DataGroup12(foundation::Data file) : TextDataGroup(DataGroupId::DG12, std::move(file)) {}
};

/// A group that is carried as bytes and not looked into; each is a class of its own.
template <DataGroupId Id>
class OpaqueDataGroup : public DataGroup {
 public:
  /// Takes the whole file, whose outermost tag and length are checked. Throws ReaderError.
  explicit OpaqueDataGroup(foundation::Data file) : DataGroup(Id, std::move(file)) {}
};

using DataGroup3 = OpaqueDataGroup<DataGroupId::DG3>;    ///< fingerprints
using DataGroup4 = OpaqueDataGroup<DataGroupId::DG4>;    ///< irises
using DataGroup5 = OpaqueDataGroup<DataGroupId::DG5>;    ///< printed portrait
using DataGroup6 = OpaqueDataGroup<DataGroupId::DG6>;    ///< reserved
using DataGroup8 = OpaqueDataGroup<DataGroupId::DG8>;    ///< data features
using DataGroup9 = OpaqueDataGroup<DataGroupId::DG9>;    ///< structure features
using DataGroup10 = OpaqueDataGroup<DataGroupId::DG10>;  ///< substance features
using DataGroup13 = OpaqueDataGroup<DataGroupId::DG13>;  ///< the issuer's own
using DataGroup14 = OpaqueDataGroup<DataGroupId::DG14>;  ///< security protocols of the chip
using DataGroup15 = OpaqueDataGroup<DataGroupId::DG15>;  ///< public key of active authentication
using DataGroup16 = OpaqueDataGroup<DataGroupId::DG16>;  ///< persons to notify
using SOD = OpaqueDataGroup<DataGroupId::SOD>;           ///< document security object: the signed hashes of the groups

}  // namespace tavlo::reader
