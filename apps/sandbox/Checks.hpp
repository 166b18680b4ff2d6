#pragma once

#include <TavloReader/PassiveAuthentication.hpp>

#include <chrono>
#include <optional>
#include <string_view>

#include "Answer.hpp"
#include "Request.hpp"

namespace tavlo::sandbox {

/// Checks a request: passive authentication with `anchors`, and whether the document has expired before `today`. The
/// selfie is compared with nothing and the key registered nowhere. Any thread.
[[nodiscard]] Answer check(const Request& request, const reader::TrustAnchors& anchors,
                           std::chrono::year_month_day today);

/// The last day of a document that a machine readable zone gives as YYMMDD, in the century that brings it nearest to
/// `today`; absent when it is no date.
[[nodiscard]] std::optional<std::chrono::year_month_day> expiryDate(std::string_view digits,
                                                                    std::chrono::year_month_day today);

}  // namespace tavlo::sandbox
