#include <Foundation/JSONEncoder.hpp>

#include <algorithm>

#include "Commands.hpp"
#include "Failure.hpp"
#include "Input.hpp"
#include "Output.hpp"
#include "Report.hpp"

namespace tavlo::app {

namespace {

/// Writes `image` as PNG to `file`, if there is a file to write.
void exportPicture(const std::optional<uikit::UIImage>& image, std::string_view what,
                   const std::optional<std::string>& file) {
  if (!file) return;
  const auto png = image ? uikit::UIImagePNGRepresentation(*image) : std::nullopt;
  if (!png) throw Failure(ExitCode::input, "The document has no " + std::string(what) + " that can be decoded");
  deliver(*png, file);
}

}  // namespace

void inspect(const InspectOptions& options) {
  auto document = readDocument(options.paths);
  std::ranges::stable_sort(document.findings, {}, &reader::FileFinding::group);
  Authentication authentication;
  if (options.csca) authentication = reader::authenticate(document.model, loadAnchors(*options.csca));
  if (options.json) {
    auto json = foundation::JSONEncoder().encode(jsonReport(document, authentication));
    json.push_back('\n');
    deliver(json);
  } else {
    deliver(foundation::dataOf(textReport(document, authentication)));
  }
  if (options.portrait) exportPicture(document.model.passportImage(), "portrait", options.portrait);
  if (options.signature) exportPicture(document.model.signatureImage(), "signature", options.signature);

  const auto malformed =
      std::ranges::count(document.findings, reader::FileFinding::Kind::malformed, &reader::FileFinding::kind);
  if (malformed > 0)
    throw Failure(ExitCode::input, "Malformed files: " + std::to_string(malformed) + ", as told above");
  if (document.model.dataGroupsRead().empty()) throw Failure(ExitCode::input, "None of the files is a data group");
  if (authentication && !authentication->isTrusted()) {
    throw Failure(ExitCode::untrusted, "The document is " + verdictOf(*authentication));
  }
}

}  // namespace tavlo::app
