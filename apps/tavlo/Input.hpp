#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <TavloReader/PassiveAuthentication.hpp>
#include <UIKit/UIImage.hpp>

#include <string>
#include <vector>

// What the commands read. Each function throws Failure with the reason.

namespace tavlo::app {

/// The document in one folder, or in files that together are one document; with what is unsound in it.
[[nodiscard]] reader::DocumentReading readDocument(const std::vector<std::string>& paths);

/// The document in `folder`. A malformed group is told on standard error and left out; with a malformed DG1 there is no
/// document.
[[nodiscard]] reader::NFCPassportModel loadDocument(const std::string& folder);

/// The picture in `file`.
[[nodiscard]] uikit::UIImage loadSelfie(const std::string& file);

/// The certificates of signing authorities in `folder`.
[[nodiscard]] reader::TrustAnchors loadAnchors(const std::string& folder);

/// The bytes of `file`.
[[nodiscard]] foundation::Data loadFile(const std::string& file);

/// Trusts the certificates in `pemFile`, and no others, in this process. To be called before the first request.
void trustOnly(const std::string& pemFile);

}  // namespace tavlo::app
