#pragma once

#include <Foundation/JSONValue.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <TavloReader/PassiveAuthentication.hpp>

#include <optional>
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

/// What came of passive authentication, where it was asked for.
using Authentication = std::optional<reader::AuthenticationReport>;

/// The verdict in one line, such as "not trusted: chain issuer_unknown".
[[nodiscard]] std::string verdictOf(const reader::AuthenticationReport& authentication);

/// For a person, in lines that are fit for a terminal; sections of which there is nothing to tell are left out.
[[nodiscard]] std::string textReport(const reader::DocumentReading& document, const Authentication& authentication);

/// For a program: the arrays "groups", "texts", "pictures", "leftAside" and "malformed", and the objects "contents" and
/// "printedData" where EF.COM and DG1 were read, and "authentication" where it was asked for.
[[nodiscard]] foundation::JSONValue jsonReport(const reader::DocumentReading& document,
                                               const Authentication& authentication);

}  // namespace tavlo::app
