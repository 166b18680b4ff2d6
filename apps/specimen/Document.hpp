#pragma once

#include <TavloReader/DataGroup.hpp>
#include <specimen/Authority.hpp>
#include <specimen/Groups.hpp>
#include <specimen/SecurityObject.hpp>
#include <specimen/Tampering.hpp>
#include <specimen/Zone.hpp>

#include <chrono>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tavlo::specimen {

/// A fictitious document of Utopia, to be made and signed.
struct Document {
  PrintedData printed;
  std::string fullName;      ///< for DG11, in UTF-8 and any script; by default the printed names, not transliterated
  std::string placeOfBirth;  ///< for DG11; may be empty
  std::vector<Picture> portraits;  ///< at least one
  FaceStandard faceStandard = FaceStandard::iso19794;
  std::optional<Picture> handSignature;  ///< makes a DG7
  /// Of DG3, DG11, DG12, DG14 and DG15 those to make.
  std::set<reader::DataGroupId> groups = {reader::DataGroupId::DG11, reader::DataGroupId::DG12,
                                          reader::DataGroupId::DG14, reader::DataGroupId::DG15};
  Signature signature;  ///< its date is the date of issue as well
  std::vector<Tampering> tampering;
};

/// All files of a document whose signer is under `authority`. The same each time but for the SOD, whose key is new.
/// Throws std::invalid_argument, without personal data, for what makes no document.
[[nodiscard]] Files make(const Document& document, const Authority& authority);

/// Writes each file into `folder`, as EF_COM.bin, DG1.bin and the like. Throws std::system_error, also when there is
/// anything in the folder already.
void write(const Files& files, const std::filesystem::path& folder);

}  // namespace tavlo::specimen
