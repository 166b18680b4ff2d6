#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "Answer.hpp"
#include "HTTPServer.hpp"

namespace tavlo::sandbox {

/// No scenario has that name or takes that value; says which there are.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What goes otherwise than a request deserves, always in the same way.
struct Scenario {
  std::string name;                                            ///< such as "status=503"; empty for none
  std::optional<std::pair<std::string_view, Result>> outcome;  ///< a check and what is said of it
  std::optional<int> status;                                   ///< of HTTP
  bool isBare = false;                                         ///< whether the answer has no body
  std::string_view location;                                   ///< where a redirect leads
  Delivery delivery{};
  std::string_view flaw;  ///< what is wrong with the server's certificate, as in Authority::Options

  /// The scenario of a name and a value, such as "drop=head". Throws ScenarioError.
  [[nodiscard]] static Scenario named(std::string_view nameAndValue);
  /// The scenario that a document asks for by its number, such as "SCEN00503"; the empty one for any other number.
  [[nodiscard]] static Scenario forDocument(std::string_view documentNumber);

  /// Puts `outcome` in the place of what came of the check, and says so in the reasons.
  void apply(Answer& answer) const;
};

/// A redirect to the same path has this query, so that a client that follows it gets its answer.
inline constexpr std::string_view redirectedQuery = "redirected";

/// All scenarios as a table in Markdown.
[[nodiscard]] std::string scenarioTable();

}  // namespace tavlo::sandbox
