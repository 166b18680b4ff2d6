#include <TavloReader/NFCPassportModel.hpp>

#include <utility>

namespace tavlo::reader {

void NFCPassportModel::add(std::shared_ptr<const DataGroup> group) {
  const DataGroupId id = group->id();
  if (dataGroups_.contains(id)) throw ReaderError(std::string(name(id)) + " is there twice");
  dataGroups_[id] = std::move(group);
}

std::string NFCPassportModel::text(std::string MRZ::*field) const {
  const auto* group = find<DataGroup1>();
  return group == nullptr ? std::string() : group->mrz().*field;
}

std::string NFCPassportModel::documentType() const {
  return text(&MRZ::documentCode);
}
std::string NFCPassportModel::documentNumber() const {
  return text(&MRZ::documentNumber);
}
std::string NFCPassportModel::nationality() const {
  return text(&MRZ::nationality);
}
std::string NFCPassportModel::lastName() const {
  return text(&MRZ::lastName);
}
std::string NFCPassportModel::firstName() const {
  return text(&MRZ::firstName);
}
std::string NFCPassportModel::dateOfBirth() const {
  return text(&MRZ::dateOfBirth);
}
std::string NFCPassportModel::gender() const {
  return text(&MRZ::gender);
}
std::string NFCPassportModel::documentExpiryDate() const {
  return text(&MRZ::dateOfExpiry);
}

std::optional<uikit::UIImage> NFCPassportModel::passportImage() const {
  const auto* group = find<DataGroup2>();
  if (group == nullptr || group->faces().empty()) return std::nullopt;
  return uikit::UIImage::fromData(group->faces().front());
}

std::optional<uikit::UIImage> NFCPassportModel::signatureImage() const {
  const auto* group = find<DataGroup7>();
  if (group == nullptr || group->images().empty()) return std::nullopt;
  return uikit::UIImage::fromData(group->images().front());
}

}  // namespace tavlo::reader
