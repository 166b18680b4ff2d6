#pragma once

#include <Foundation/JSONValue.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <string>

// What `tavlo inspect` tells of a document. Both forms look into every group and decode each picture.

namespace tavlo::app {

/// For a person, in lines that are fit for a terminal; sections of which there is nothing to tell are left out.
[[nodiscard]] std::string textReport(const reader::DocumentReading& document);

/// For a program: the arrays "groups", "texts", "pictures", "leftAside" and "malformed", and the objects "contents" and
/// "printedData" where EF.COM and DG1 were read.
[[nodiscard]] foundation::JSONValue jsonReport(const reader::DocumentReading& document);

}  // namespace tavlo::app
