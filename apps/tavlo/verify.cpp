#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>
#include <Foundation/Print.hpp>
#include <Security/SecCertificate.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <TavloStore/Util.hpp>

#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "Commands.hpp"
#include "DocumentFolder.hpp"
#include "Failure.hpp"
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

/// The certificate in a service's answer, its member "cert" of "signing". It must be for the document's own key.
std::string credentialIn(const foundation::Data& answer, const std::string& documentNumber) {
  const auto failure = [](const char* why) {
    return Failure(ExitCode::noCredential, std::string(why) + ", so nothing was kept");
  };
  const foundation::JSONValue members(toJSON(foundation::textOf(answer)).value_or(foundation::JSONObject()));
  const auto* signing = members.member("signing");
  const auto* cert = signing != nullptr ? signing->member("cert") : nullptr;
  const auto* pem = cert != nullptr ? cert->getIf<std::string>() : nullptr;
  if (pem == nullptr) throw failure("The answer holds no certificate");
  try {
    const auto pair = store::Util::createKeypair(documentNumber);
    if (security::publicKeyOfCertificate(*pem) == pair.value().publicKey->data()) return *pem;
  } catch (const security::SecurityError&) {
    throw failure("What the answer holds as certificate is none");
  }
  throw failure("The answer's certificate is for another key than the document's");
}

void save(const VerifyOptions& options, const reader::NFCPassportModel& model, const foundation::Data& answer) {
  const std::string credential = credentialIn(answer, model.documentNumber());
  try {
    const std::string id = [&] {
      DocumentFolder folder(DocumentFolder::path(options.folder), DocumentFolder::Access::change);
      return folder.add(foundation::JSONEncoder().encode(make<Passport>(model)), credential);
    }();
    tell("Kept as document " + id);
  } catch (const std::system_error& error) {
    throw documentsFailure(error);
  }
}

}  // namespace

void verify(const VerifyOptions& options) {
  if (options.trust) trustOnly(*options.trust);
  if (options.showLines) foundation::setPrintHandler(tell);
  const auto model = loadDocument(options.passport);
  const auto selfie = loadSelfie(options.selfie);

  common::ImageStore::install(std::make_shared<NoImages>());
  const auto passport = make<Passport>(model);
  const auto answer =
      awaitAnswer([&](Completion completion) { TavloCA::verify(model, *passport, selfie, std::move(completion)); });
  deliver(answer);
  if (options.save) save(options, model, answer);
}

}  // namespace tavlo::app
