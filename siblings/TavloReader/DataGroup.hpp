#pragma once

#include <Foundation/Data.hpp>

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

/// The elementary files of the logical data structure (ICAO Doc 9303-10), in their usual order.
enum class DataGroupId : std::uint8_t {
  COM, DG1, DG2, DG3, DG4, DG5, DG6, DG7, DG8, DG9, DG10, DG11, DG12, DG13, DG14, DG15, DG16, SOD,
};

/// "COM", "DG1" to "DG16" or "SOD".
[[nodiscard]] std::string_view name(DataGroupId id);

/// One elementary file as it was read from the chip. Immutable; shared by reference; any thread.
class DataGroup {
 public:
  virtual ~DataGroup() = default;
  DataGroup(const DataGroup&) = delete;
  DataGroup& operator=(const DataGroup&) = delete;

  /// Recognises a file by its content and parses it as the class that belongs to it. The bytes may be followed by
  /// padding (00, FF, or one final 90 00), which is cut. Throws ReaderError.
  [[nodiscard]] static std::shared_ptr<const DataGroup> parse(foundation::Data file);

  [[nodiscard]] DataGroupId id() const noexcept { return id_; }
  /// The whole file: tag, length and value, byte for byte; what the document signer hashed.
  [[nodiscard]] virtual const foundation::Data& data() const { return data_; }
  /// The class name, such as "TavloReader.DataGroup1"; no content.
  [[nodiscard]] virtual std::string description() const;

 protected:
  DataGroup(DataGroupId id, foundation::Data data) : id_(id), data_(std::move(data)) {}

 private:
  DataGroupId id_;
  foundation::Data data_;
};

}  // namespace tavlo::reader
