#pragma once

#include <TavloReader/DataGroups.hpp>
#include <TavloReader/MRZ.hpp>
#include <UIKit/UIImage.hpp>

#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tavlo::reader {

/// A passport as read: its data groups, and the values that an app shows. A value; copies share the groups.
class NFCPassportModel {
 public:
  /// Data groups by their identifier.
  using DataGroups = std::map<DataGroupId, std::shared_ptr<const DataGroup>>;

  /// Nothing read: no groups, empty texts, no images.
  NFCPassportModel() = default;

  /// Adds a group. Throws ReaderError when the same one is there already.
  void add(std::shared_ptr<const DataGroup> group);

  /// The groups that were read.
  [[nodiscard]] const DataGroups& dataGroupsRead() const noexcept { return dataGroups_; }
  /// The first group of the class `Group`, such as DataGroup11; none when it was not read. Lives as long as the model.
  template <class Group>
  [[nodiscard]] const Group* find() const {
    for (const auto& [id, group] : dataGroups_) {
      if (const auto* found = dynamic_cast<const Group*>(group.get())) return found;
    }
    return nullptr;
  }

  // The texts come from DG1 alone, without fillers, and are empty when it was not read. They are valid UTF-8.
  [[nodiscard]] std::string documentType() const;    ///< document code, one or two letters, such as "P" or "PO"
  [[nodiscard]] std::string documentNumber() const;  ///< whole, also where a TD1 or TD2 carries it on (Doc 9303-5, -6)
  [[nodiscard]] std::string nationality() const;     ///< as printed, such as "UTO" or "D"
  [[nodiscard]] std::string lastName() const;        ///< primary identifier
  [[nodiscard]] std::string firstName() const;       ///< secondary identifier
  [[nodiscard]] std::string dateOfBirth() const;     ///< YYMMDD as printed; unknown parts stay fillers
  [[nodiscard]] std::string gender() const;          ///< "M", "F" or empty
  [[nodiscard]] std::string documentExpiryDate() const;  ///< YYMMDD as printed

  /// The portrait, the first face of DG2; absent when it was not read or is no image. Decoded at each call.
  [[nodiscard]] std::optional<uikit::UIImage> passportImage() const;
  /// The first signature picture of DG7; absent when it was not read or is no image. Decoded at each call.
  [[nodiscard]] std::optional<uikit::UIImage> signatureImage() const;

 private:
  /// A field of the machine readable zone, empty without DG1.
  [[nodiscard]] std::string text(std::string MRZ::*field) const;

  DataGroups dataGroups_;
};

}  // namespace tavlo::reader
