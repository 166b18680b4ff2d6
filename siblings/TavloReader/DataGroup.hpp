#pragma once

#include <Foundation/Data.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::reader {

/// Bytes that are no sound elementary file, or a set of files that is no sound document, in words for a person: names
/// the group or file and what is wrong, without personal data.
class ReaderError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The elementary files of the logical data structure (ICAO Doc 9303-10), in their usual order: DG1 has the value 1.
enum class DataGroupId : std::uint8_t {
  COM,
  DG1,
  DG2,
  DG3,
  DG4,
  DG5,
  DG6,
  DG7,
  DG8,
  DG9,
  DG10,
  DG11,
  DG12,
  DG13,
  DG14,
  DG15,
  DG16,
  SOD,
};

/// "COM", "DG1" to "DG16" or "SOD".
[[nodiscard]] std::string_view name(DataGroupId id);

/// The group whose file begins with `tag`, such as 0x61 for DG1; absent when there is none.
[[nodiscard]] std::optional<DataGroupId> dataGroupWithTag(std::uint32_t tag);

/// One elementary file as it was read from the chip. Immutable; shared by reference; any thread.
/// The concrete classes are in DataGroups.hpp; an app may derive from them.
class DataGroup {
 public:
  virtual ~DataGroup() = default;
  DataGroup(const DataGroup&) = delete;
  DataGroup& operator=(const DataGroup&) = delete;

  /// The group that a file's first tags announce, absent when they are another file's: EF.DIR begins with the tag of
  /// DG1, but not with the one inside. The rest of the file may still be unsound.
  [[nodiscard]] static std::optional<DataGroupId> recognise(foundation::DataView file);

  /// Recognises a file by its content and parses it as the class that belongs to it. Throws ReaderError.
  [[nodiscard]] static std::shared_ptr<const DataGroup> parse(foundation::Data file);
  /// Parses a file that is meant to be the group `id`. Throws ReaderError.
  [[nodiscard]] static std::shared_ptr<const DataGroup> parse(DataGroupId id, foundation::Data file);

  /// Which group it is.
  [[nodiscard]] DataGroupId id() const noexcept { return id_; }
  /// The whole file: tag, length and value, byte for byte; what the document signer hashed.
  [[nodiscard]] virtual const foundation::Data& data() const { return data_; }
  /// The class name, such as "TavloReader.DataGroup1"; no content.
  [[nodiscard]] virtual std::string description() const;
  /// What is worth telling a person but no error, such as padding that was cut or a wrong check digit.
  [[nodiscard]] const std::vector<std::string>& oddities() const noexcept { return oddities_; }

 protected:
  /// Takes a file of the group `id`. Padding after its end (bytes 00 or FF, or a final 90 00) is cut.
  /// Throws ReaderError when the tag is another one, the length does not fit, or other bytes follow.
  DataGroup(DataGroupId id, foundation::Data file);

  /// The value of the outer element; valid as long as this object.
  [[nodiscard]] foundation::DataView value() const noexcept;
  /// Keeps what is worth telling, up to a hundred of them: a hostile file could hold millions.
  void addOddity(std::string text);

 private:
  DataGroupId id_;
  foundation::Data data_;
  std::size_t valueOffset_ = 0;
  std::vector<std::string> oddities_;
};

}  // namespace tavlo::reader
