#include <TavloCA/TavloCA.hpp>
#include <TavloStore/Util.hpp>

#include <utility>

#include "Commands.hpp"
#include "Input.hpp"
#include "Outcome.hpp"
#include "Output.hpp"

namespace tavlo::app {

namespace {

foundation::Data requestBody(const reader::NFCPassportModel& model, const uikit::UIImage& selfie) {
  DataGroups groups;
  for (const auto& [id, group] : model.dataGroupsRead()) groups.push_back(group);
  const auto keyPair = store::Util::createKeypair(model.documentNumber());
  if (!keyPair) throw CAError("Could not create keypair");
  auto body = TavloCA::verificationObject(groups, selfie, *keyPair->publicKey);
  if (!body) throw CAError("Could not create verification object");
  return *std::move(body);
}

}  // namespace

void request(const RequestOptions& options) {
  const auto model = loadDocument(options.passport);
  const auto selfie = loadSelfie(options.selfie);
  foundation::Data body;
  try {
    body = requestBody(model, selfie);
  } catch (...) {
    throw failureOf(std::current_exception());
  }
  deliver(body, options.out);
}

}  // namespace tavlo::app
