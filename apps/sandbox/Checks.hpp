#pragma once

#include <TavloReader/PassiveAuthentication.hpp>

#include <chrono>
#include <optional>
#include <string_view>

#include "Answer.hpp"
#include "History.hpp"
#include "Request.hpp"

namespace tavlo::sandbox {

/// Checks a request: passive authentication with `anchors`, whether the document has expired before `today`, whether
/// the selfie is a plausible picture (no face is looked for or compared), and whether the key is one and, for a
/// document that was found genuine, the one that `history` knows, if there is a history. Any thread. Throws
/// std::system_error when the history cannot be written.
[[nodiscard]] Answer check(const Request& request, const reader::TrustAnchors& anchors,
                           std::chrono::year_month_day today, History* history = nullptr);

/// The last day of a document that a machine readable zone gives as YYMMDD, in the century that brings it nearest to
/// `today`; absent when it is no date.
[[nodiscard]] std::optional<std::chrono::year_month_day> expiryDate(std::string_view digits,
                                                                    std::chrono::year_month_day today);

}  // namespace tavlo::sandbox
