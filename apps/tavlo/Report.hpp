#pragma once

#include <Foundation/JSONValue.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What `tavlo inspect` tells of a document. Both forms look into every group and decode each picture.

namespace tavlo::app {

/// Labels with their content.
using Rows = std::vector<std::pair<std::string, std::string>>;

/// Adds a title, and under it the rows with their labels in one column, fit for a terminal; nothing without rows.
void appendSection(std::string& text, std::string_view title, const Rows& rows);

/// For a person, in lines that are fit for a terminal; sections of which there is nothing to tell are left out.
[[nodiscard]] std::string textReport(const reader::DocumentReading& document);

/// For a program: the arrays "groups", "texts", "pictures", "leftAside" and "malformed", and the objects "contents" and
/// "printedData" where EF.COM and DG1 were read.
[[nodiscard]] foundation::JSONValue jsonReport(const reader::DocumentReading& document);

}  // namespace tavlo::app
