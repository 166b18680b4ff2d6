#include <Foundation/Print.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloCommon/TavloCommon.hpp>

#include <memory>
#include <optional>
#include <utility>

#include "Commands.hpp"
#include "Input.hpp"
#include "Outcome.hpp"
#include "Output.hpp"

namespace tavlo::app {

namespace {

/// Keeps no images: the passport's record goes away with the command, and its pictures would stay behind.
class NoImages final : public common::ImageStore {
 public:
  std::optional<std::string> persist(const uikit::UIImage& /*image*/) override { return std::nullopt; }
  std::optional<uikit::UIImage> load(std::string_view /*name*/) override { return std::nullopt; }
};

}  // namespace

void verify(const VerifyOptions& options) {
  if (options.trust) trustOnly(*options.trust);
  if (options.showLines) foundation::setPrintHandler(tell);
  const auto model = loadDocument(options.passport);
  const auto selfie = loadSelfie(options.selfie);

  common::ImageStore::install(std::make_shared<NoImages>());
  const auto passport = make<Passport>(model);
  deliver(
      awaitAnswer([&](Completion completion) { TavloCA::verify(model, *passport, selfie, std::move(completion)); }));
}

}  // namespace tavlo::app
