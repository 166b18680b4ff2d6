#include "Report.hpp"

#include <TavloReader/DataGroups.hpp>
#include <UIKit/UIImage.hpp>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "Output.hpp"

namespace tavlo::app {

using foundation::JSONArray;
using foundation::JSONObject;
using foundation::JSONValue;
using reader::AuthenticationReport;
using reader::AuthenticationStep;
using reader::DocumentReading;
using reader::FileFinding;
using reader::MRZ;
using reader::NFCPassportModel;

namespace {

struct ZoneField {
  std::string_view key;
  std::string_view label;
  std::string MRZ::*text;
};

constexpr std::array zoneFields{
    ZoneField{"documentCode", "document code", &MRZ::documentCode},
    ZoneField{"issuingState", "issuing state", &MRZ::issuingState},
    ZoneField{"documentNumber", "document number", &MRZ::documentNumber},
    ZoneField{"lastName", "last name", &MRZ::lastName},
    ZoneField{"firstName", "first name", &MRZ::firstName},
    ZoneField{"nationality", "nationality", &MRZ::nationality},
    ZoneField{"dateOfBirth", "date of birth", &MRZ::dateOfBirth},
    ZoneField{"gender", "gender", &MRZ::gender},
    ZoneField{"dateOfExpiry", "date of expiry", &MRZ::dateOfExpiry},
    ZoneField{"optionalData", "optional data", &MRZ::optionalData},
    ZoneField{"optionalData2", "optional data 2", &MRZ::optionalData2},
};

/// What passive authentication leaves open.
constexpr std::array<std::pair<std::string_view, std::string_view>, 3> notProven{{
    {"chip", "No check asked the chip whether it is the original: a copy of its files passes as well."},
    {"holder", "Nobody was compared with the portrait."},
    {"revocation", "No revocation list was read: a certificate may have been withdrawn."},
}};

/// A picture in DG2 or DG7, and what became of decoding it.
struct Picture {
  std::string group;
  std::string format;
  std::size_t bytes = 0;
  std::size_t width = 0;
  std::size_t height = 0;
  std::string problem;
};

Picture lookInto(reader::DataGroupId group, foundation::DataView bytes) {
  const auto format = uikit::imageFormat(bytes);
  Picture picture;
  picture.group = name(group);
  picture.format = format ? name(*format) : "unknown format";
  picture.bytes = bytes.size();
  try {
    const auto image = uikit::UIImage::decode(bytes);
    picture.width = image.width();
    picture.height = image.height();
  } catch (const uikit::ImageError& error) {
    picture.problem = error.what();
  }
  return picture;
}

std::vector<Picture> picturesOf(const NFCPassportModel& model) {
  std::vector<Picture> pictures;
  if (const auto* group = model.find<reader::DataGroup2>()) {
    for (const auto face : group->faces()) pictures.push_back(lookInto(group->id(), face));
  }
  if (const auto* group = model.find<reader::DataGroup7>()) {
    for (const auto image : group->images()) pictures.push_back(lookInto(group->id(), image));
  }
  return pictures;
}

std::vector<const reader::TextDataGroup*> textGroupsOf(const NFCPassportModel& model) {
  std::vector<const reader::TextDataGroup*> groups{model.find<reader::DataGroup11>(),
                                                   model.find<reader::DataGroup12>()};
  std::erase(groups, nullptr);
  return groups;
}

Rows findingRows(const DocumentReading& document, FileFinding::Kind kind) {
  Rows rows;
  for (const auto& finding : document.findings) {
    if (finding.kind == kind) rows.emplace_back(finding.name, finding.text);
  }
  return rows;
}

Rows contentRows(const reader::COM& com) {
  std::string groups;
  for (const auto id : com.groups()) groups.append(groups.empty() ? "" : ", ").append(name(id));
  return {{"LDS version", com.ldsVersion()}, {"Unicode version", com.unicodeVersion()}, {"groups", groups}};
}

Rows zoneRows(const MRZ& zone) {
  Rows rows;
  for (const auto& [key, label, field] : zoneFields) {
    if (!(zone.*field).empty()) rows.emplace_back(label, zone.*field);
  }
  for (const auto& digit : zone.checkDigits) {
    rows.emplace_back("check digit, " + std::string(digit.field), digit.correct ? "correct" : "WRONG");
  }
  return rows;
}

Rows pictureRows(const NFCPassportModel& model) {
  Rows rows;
  for (const Picture& picture : picturesOf(model)) {
    const std::string size = std::to_string(picture.width) + " x " + std::to_string(picture.height) + " pixels";
    rows.emplace_back(picture.group, picture.format + ", " + std::to_string(picture.bytes) + " bytes, " +
                                         (picture.problem.empty() ? size : "cannot be decoded: " + picture.problem));
  }
  return rows;
}

Rows oddityRows(const DocumentReading& document) {
  Rows rows;
  for (const auto& finding : document.findings) {
    for (const auto& oddity : finding.oddities) rows.emplace_back(finding.name, oddity);
  }
  return rows;
}

std::string_view name(AuthenticationStep::Result result) {
  switch (result) {
    case AuthenticationStep::Result::passed:
      return "passed";
    case AuthenticationStep::Result::failed:
      return "failed";
    case AuthenticationStep::Result::notChecked:
      break;
  }
  return "not checked";
}

Rows authenticationRows(const AuthenticationReport& authentication) {
  Rows rows;
  for (const auto& step : authentication.steps) {
    const std::string informs = step.required ? "" : ", only informs";
    rows.emplace_back(step.name, std::string(name(step.result)) + ", " + step.reason + informs + ": " + step.text);
  }
  rows.emplace_back("verdict", verdictOf(authentication));
  return rows;
}

JSONValue jsonOf(const AuthenticationReport& authentication) {
  JSONArray steps;
  for (const auto& step : authentication.steps) {
    steps.emplace_back(JSONObject{{"name", step.name},
                                  {"result", std::string(name(step.result))},
                                  {"reason", step.reason},
                                  {"required", step.required},
                                  {"text", step.text}});
  }
  JSONObject open;
  for (const auto& [key, text] : notProven) open[std::string(key)] = std::string(text);
  return JSONObject{{"trusted", authentication.isTrusted()},
                    {"verdict", verdictOf(authentication)},
                    {"steps", std::move(steps)},
                    {"notProven", std::move(open)}};
}

JSONValue jsonOf(const FileFinding& finding, const NFCPassportModel& model) {
  JSONArray oddities(finding.oddities.begin(), finding.oddities.end());
  JSONObject file{{"file", finding.name}, {"oddities", std::move(oddities)}};
  if (finding.group) file["group"] = std::string(name(*finding.group));
  if (finding.kind == FileFinding::Kind::group) {
    file["bytes"] = model.dataGroupsRead().at(*finding.group)->data().size();
  } else {
    file["text"] = finding.text;
  }
  return file;
}

JSONArray jsonOf(const DocumentReading& document, FileFinding::Kind kind) {
  JSONArray files;
  for (const auto& finding : document.findings) {
    if (finding.kind == kind) files.push_back(jsonOf(finding, document.model));
  }
  return files;
}

JSONValue jsonOf(const reader::COM& com) {
  JSONArray groups;
  for (const auto id : com.groups()) groups.emplace_back(std::string(name(id)));
  return JSONObject{{"ldsVersion", com.ldsVersion()}, {"unicodeVersion", com.unicodeVersion()}, {"groups", groups}};
}

JSONValue jsonOf(const MRZ& zone) {
  JSONObject object{{"format", std::string(name(zone.format))}};
  for (const auto& [key, label, field] : zoneFields) object[std::string(key)] = zone.*field;
  JSONObject digits;
  for (const auto& digit : zone.checkDigits) digits[std::string(digit.field)] = digit.correct;
  object["checkDigits"] = std::move(digits);
  return object;
}

JSONValue jsonOf(const Picture& picture) {
  JSONObject object{{"group", picture.group}, {"format", picture.format}, {"bytes", picture.bytes}};
  if (picture.problem.empty()) {
    object["width"] = picture.width;
    object["height"] = picture.height;
  } else {
    object["problem"] = picture.problem;
  }
  return object;
}

}  // namespace

void appendSection(std::string& text, std::string_view title, const Rows& rows) {
  std::size_t width = 0;
  for (const auto& [label, content] : rows) width = std::max(width, label.size());
  if (!rows.empty()) text.append(text.empty() ? "" : "\n").append(title).append("\n");
  for (const auto& [label, content] : rows) {
    text.append("  ")
        .append(printable(label))
        .append(width + 2 - label.size(), ' ')
        .append(printable(content))
        .append("\n");
  }
}

std::string verdictOf(const AuthenticationReport& authentication) {
  if (authentication.isTrusted()) return "trusted: all groups that were read are as they were signed";
  using Result = AuthenticationStep::Result;
  const bool anyFailed = std::ranges::count(authentication.steps, Result::failed, &AuthenticationStep::result) > 0;
  std::string reasons;
  for (const auto& step : authentication.steps) {
    if (!step.required || step.result != (anyFailed ? Result::failed : Result::notChecked)) continue;
    reasons.append(reasons.empty() ? "" : ", ").append(step.name).append(" ").append(step.reason);
  }
  return "not trusted: " + reasons;
}

std::string textReport(const DocumentReading& document, const Authentication& authentication) {
  const NFCPassportModel& model = document.model;
  std::string text;
  appendSection(text, "Data groups", findingRows(document, FileFinding::Kind::group));
  if (const auto* com = model.find<reader::COM>())
    appendSection(text, "Contents as EF.COM lists them", contentRows(*com));
  if (const auto* dg1 = model.find<reader::DataGroup1>()) {
    appendSection(text, "Printed data, " + std::string(name(dg1->mrz().format)), zoneRows(dg1->mrz()));
  }
  for (const auto* group : textGroupsOf(model)) {
    Rows rows;
    for (const auto& item : group->items()) rows.emplace_back(item.label, item.text);
    appendSection(text, "Texts of " + std::string(name(group->id())), rows);
  }
  appendSection(text, "Pictures", pictureRows(model));
  appendSection(text, "Odd", oddityRows(document));
  appendSection(text, "Left aside", findingRows(document, FileFinding::Kind::leftAside));
  appendSection(text, "Malformed", findingRows(document, FileFinding::Kind::malformed));
  if (authentication) {
    appendSection(text, "Passive authentication", authenticationRows(*authentication));
    appendSection(text, "What it does not prove", Rows(notProven.begin(), notProven.end()));
  }
  return text;
}

JSONValue jsonReport(const DocumentReading& document, const Authentication& authentication) {
  const NFCPassportModel& model = document.model;
  JSONArray texts;
  for (const auto* group : textGroupsOf(model)) {
    for (const auto& item : group->items()) {
      texts.emplace_back(JSONObject{
          {"group", std::string(name(group->id()))}, {"label", std::string(item.label)}, {"text", item.text}});
    }
  }
  JSONArray pictures;
  for (const Picture& picture : picturesOf(model)) pictures.push_back(jsonOf(picture));

  JSONObject report{{"groups", jsonOf(document, FileFinding::Kind::group)},
                    {"texts", std::move(texts)},
                    {"pictures", std::move(pictures)},
                    {"leftAside", jsonOf(document, FileFinding::Kind::leftAside)},
                    {"malformed", jsonOf(document, FileFinding::Kind::malformed)}};
  if (authentication) report["authentication"] = jsonOf(*authentication);
  if (const auto* com = model.find<reader::COM>()) report["contents"] = jsonOf(*com);
  if (const auto* dg1 = model.find<reader::DataGroup1>()) report["printedData"] = jsonOf(dg1->mrz());
  return report;
}

}  // namespace tavlo::app
