#include "Scenario.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <vector>

namespace tavlo::sandbox {

namespace {

/// A number in decimal digits, within limits.
std::optional<int> number(std::string_view text, int least, int most) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < least || value > most) return std::nullopt;
  return value;
}

bool setOutcome(Scenario& scenario, std::string_view check, std::string_view value) {
  for (const Result result : {Result::passed, Result::failed, Result::notChecked}) {
    if (value == name(result)) scenario.outcome = {check, result};
  }
  return scenario.outcome.has_value();
}

bool setStatus(Scenario& scenario, std::string_view value) {
  scenario.status = number(value, 200, 999);
  return scenario.status.has_value();
}

bool setCut(Scenario& scenario, std::string_view value) {
  scenario.delivery.drops = true;
  if (value == "head") {
    scenario.delivery.cut = [](std::size_t head, std::size_t) { return head / 2; };
  } else if (value == "body") {
    scenario.delivery.cut = [](std::size_t head, std::size_t size) { return (head + size) / 2; };
  } else if (const auto place = number(value, 0, 1'000'000)) {
    scenario.delivery.cut = [place](std::size_t, std::size_t) { return static_cast<std::size_t>(*place); };
  }
  return static_cast<bool>(scenario.delivery.cut);
}

bool setMissing(Scenario& scenario, std::string_view value) {
  const auto missing = number(value, 1, 1'000'000);
  if (!missing) return false;
  scenario.delivery.cut = [count = static_cast<std::size_t>(*missing)](std::size_t head, std::size_t size) {
    return std::max(head, size - std::min(size, count));
  };
  return true;
}

bool setLocation(Scenario& scenario, std::string_view value) {
  const std::pair<std::string_view, std::string_view> locations[] = {{"same", "/verify?redirected"},
                                                                     {"loop", "/verify"},
                                                                     {"plain", "http://localhost/verify"},
                                                                     {"elsewhere", "https://sandbox.invalid/verify"}};
  for (const auto& [name, location] : locations) {
    if (value == name) scenario.location = location;
  }
  scenario.status = 307;
  return !scenario.location.empty();
}

/// Scenarios that differ in a value only.
struct Family {
  std::string_view name;
  std::string_view values;                                  ///< those that it takes
  std::string_view sentence;                                ///< what it does
  bool (*set)(Scenario& scenario, std::string_view value);  ///< false for a value that it does not take
  /// Numbers of documents that ask for a value.
  std::vector<std::pair<std::string_view, std::string_view>> documents;
};

constexpr std::string_view results = "passed, failed, not-checked";

const std::vector<Family>& families() {
  static const std::vector<Family> all = {
      {"biometry",
       results,
       "The check of the selfie is said to have this outcome.",
       [](Scenario& scenario, std::string_view value) { return setOutcome(scenario, "biometry", value); },
       {{"SCEN00011", "passed"}, {"SCEN00012", "failed"}, {"SCEN00013", "not-checked"}}},
      {"certificate",
       results,
       "The check of the document's signature is said to have this outcome.",
       [](Scenario& scenario, std::string_view value) { return setOutcome(scenario, "certificate", value); },
       {{"SCEN00021", "passed"}, {"SCEN00022", "failed"}, {"SCEN00023", "not-checked"}}},
      {"integrity",
       results,
       "The check of the data groups is said to have this outcome.",
       [](Scenario& scenario, std::string_view value) { return setOutcome(scenario, "integrity", value); },
       {{"SCEN00031", "passed"}, {"SCEN00032", "failed"}, {"SCEN00033", "not-checked"}}},
      {"registration",
       results,
       "The check of the public key is said to have this outcome.",
       [](Scenario& scenario, std::string_view value) { return setOutcome(scenario, "registration", value); },
       {{"SCEN00041", "passed"}, {"SCEN00042", "failed"}, {"SCEN00043", "not-checked"}}},
      {"validity",
       results,
       "The check of the date of expiry is said to have this outcome.",
       [](Scenario& scenario, std::string_view value) { return setOutcome(scenario, "validity", value); },
       {{"SCEN00051", "passed"}, {"SCEN00052", "failed"}, {"SCEN00053", "not-checked"}}},
      {"status",
       "200 to 999",
       "The answer comes with this HTTP status; 204 and 304 have no body.",
       setStatus,
       {{"SCEN00401", "401"}, {"SCEN00404", "404"}, {"SCEN00500", "500"}, {"SCEN00503", "503"}}},
      {"empty",
       "200 to 999",
       "The answer comes with this HTTP status and without a body.",
       [](Scenario& scenario, std::string_view value) {
         scenario.isBare = true;
         return setStatus(scenario, value);
       },
       {{"SCEN01200", "200"}, {"SCEN01500", "500"}}},
      {"drop",
       "0 to 1000000, head, body",
       "The connection ends without a word after so many bytes of the answer, amid its head or amid its body.",
       setCut,
       {{"SCEN02000", "0"}, {"SCEN02001", "head"}, {"SCEN02002", "body"}}},
      {"truncate",
       "1 to 1000000",
       "The connection is closed in due form with so many bytes of the body missing.",
       setMissing,
       {{"SCEN02010", "1"}, {"SCEN02011", "1000000"}}},
      {"garbage",
       "",
       "The answer is no HTTP.",
       [](Scenario& scenario, std::string_view value) {
         scenario.delivery.headless = true;
         return value.empty();
       },
       {{"SCEN02020", ""}}},
      {"delay",
       "1 to 600",
       "The answer comes so many seconds late.",
       [](Scenario& scenario, std::string_view value) {
         const auto seconds = number(value, 1, 600);
         scenario.delivery.delay = std::chrono::seconds(seconds.value_or(0));
         return seconds.has_value();
       },
       {{"SCEN03001", "1"}, {"SCEN03061", "61"}}},
      {"drip",
       "1 to 1000",
       "The answer comes byte by byte, with so many milliseconds between them.",
       [](Scenario& scenario, std::string_view value) {
         const auto pause = number(value, 1, 1000);
         scenario.delivery.perByte = std::chrono::milliseconds(pause.value_or(0));
         return pause.has_value();
       },
       {{"SCEN03101", "1"}, {"SCEN03110", "10"}}},
      {"redirect",
       "same, loop, plain, elsewhere",
       "The answer is a redirect (307): to the same server, which then answers; to itself for ever; to plain HTTP; to "
       "another server.",
       setLocation,
       {{"SCEN00307", "same"}, {"SCEN00308", "loop"}, {"SCEN00309", "plain"}, {"SCEN00310", "elsewhere"}}},
      {"server-certificate",
       "expired, wrong-name, self-signed",
       "The server's own certificate has this flaw.",
       [](Scenario& scenario, std::string_view value) {
         scenario.flaw = value;
         return value == "expired" || value == "wrong-name" || value == "self-signed";
       },
       {}},
  };
  return all;
}

}  // namespace

Scenario Scenario::named(std::string_view nameAndValue) {
  const auto equals = nameAndValue.find('=');
  const auto name = nameAndValue.substr(0, equals);
  const auto value = equals == nameAndValue.npos ? std::string_view() : nameAndValue.substr(equals + 1);
  const auto family = std::ranges::find(families(), name, &Family::name);
  if (family == families().end()) throw ScenarioError("there is no scenario of that name; --list-scenarios shows all");
  Scenario scenario;
  if (!family->set(scenario, value)) {
    throw ScenarioError(std::string(name) + (family->values.empty() ? " takes no value" : " takes one of: ") +
                        std::string(family->values));
  }
  scenario.name = nameAndValue;
  return scenario;
}

Scenario Scenario::forDocument(std::string_view documentNumber) {
  for (const Family& family : families()) {
    for (const auto& [document, value] : family.documents) {
      if (document != documentNumber) continue;
      return named(std::string(family.name) + (value.empty() ? "" : "=") + std::string(value));
    }
  }
  return {};
}

void Scenario::apply(Answer& answer) const {
  if (!outcome || answer.error) return;
  const std::string_view check = outcome->first;
  const Result result = outcome->second;
  std::erase_if(answer.reasons, [&](const Reason& reason) { return reason.check == check; });
  answer.reasons.push_back({std::string(check), result, "scenario", "The scenario " + name + " has it so."});
  conclude(answer);
}

std::string scenarioTable() {
  std::string table = "| scenario | value | what it does | document numbers |\n| --- | --- | --- | --- |\n";
  for (const Family& family : families()) {
    std::string documents;
    for (const auto& [document, value] : family.documents) {
      documents += (documents.empty() ? "" : ", ") + std::string(document);
      if (!value.empty()) documents += " (" + std::string(value) + ")";
    }
    table += "| `" + std::string(family.name) + "` | " + std::string(family.values) + " | " +
             std::string(family.sentence) + " | " + documents + " |\n";
  }
  return table;
}

}  // namespace tavlo::sandbox
