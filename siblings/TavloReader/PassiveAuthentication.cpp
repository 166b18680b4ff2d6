#include <TavloReader/PassiveAuthentication.hpp>

#include <TavloReader/CertificateChain.internal.hpp>
#include <TavloReader/SecurityObject.internal.hpp>

#include <algorithm>
#include <array>
#include <ctime>
#include <iterator>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

namespace tavlo::reader {

using foundation::Data;

namespace {

using Result = AuthenticationStep::Result;

Data hashOf(const Data& file, const EVP_MD* digest) {
  Data hash(EVP_MAX_MD_SIZE);
  unsigned int size = 0;
  if (EVP_Digest(file.data(), file.size(), hash.data(), &size, digest, nullptr) != 1) throw std::bad_alloc();
  hash.resize(size);
  return hash;
}

/// The step of one group; absent when it was neither sent nor listed, unless it is DG1.
std::optional<AuthenticationStep> groupStep(DataGroupId id, const NFCPassportModel& model,
                                            const SecurityObject& object) {
  const std::string group(name(id));
  const auto sent = model.dataGroupsRead().find(id);
  const auto listed = object.hashes.find(id);
  const bool isListed = listed != object.hashes.end();
  if (sent == model.dataGroupsRead().end()) {
    const bool isRequired = id == DataGroupId::DG1;
    if (!isListed && !isRequired) return std::nullopt;
    return AuthenticationStep{group, Result::notChecked, "not_sent", group + " was not sent.", isRequired};
  }
  if (object.digest == nullptr) {
    return AuthenticationStep{group, Result::notChecked, "no_sod", "There is nothing to check it with."};
  }
  if (!isListed) {
    return AuthenticationStep{group, Result::failed, "not_in_sod", group + " is not among the signed groups."};
  }
  if (hashOf(sent->second->data(), object.digest) != listed->second) {
    return AuthenticationStep{group, Result::failed, "hash_mismatch", group + " is not as it was signed."};
  }
  return AuthenticationStep{group, Result::passed, "hash_match", group + " is as it was signed."};
}

/// The steps before the groups.
std::vector<AuthenticationStep> signatureSteps(const NFCPassportModel& model, const std::vector<Certificate>& anchors,
                                               std::time_t now, SecurityObject& object) {
  std::vector<AuthenticationStep> steps;
  const auto leaveRest = [&steps](const char* reason, const char* text) {
    constexpr std::array names = {"sod", "signer", "signature", "chain", "validity"};
    while (steps.size() < names.size()) steps.push_back({names.at(steps.size()), Result::notChecked, reason, text});
    steps.push_back({"validity_today", Result::notChecked, reason, text, false});
    return steps;
  };
  steps.push_back(readSecurityObject(model, object));
  if (steps.back().result != Result::passed) return leaveRest("no_sod", "There is nothing to check.");
  steps.push_back(findSigner(object));
  if (steps.back().result != Result::passed) return leaveRest("no_signer", "There is no document signer to check.");
  steps.push_back(verifySignature(object));
  std::ranges::move(verifyChain(object, anchors, now), std::back_inserter(steps));
  return steps;
}

}  // namespace

bool AuthenticationReport::isTrusted() const {
  const auto isDone = [](const AuthenticationStep& step) { return !step.required || step.result == Result::passed; };
  return !steps.empty() && std::ranges::all_of(steps, isDone);
}

AuthenticationReport authenticate(const NFCPassportModel& model, const TrustAnchors& anchors,
                                  std::chrono::system_clock::time_point now) {
  const CleanErrorQueue clean;
  const std::vector<Certificate> certificates = readAnchors(anchors);
  SecurityObject object;
  AuthenticationReport report{signatureSteps(model, certificates, std::chrono::system_clock::to_time_t(now), object)};
  for (int number = 1; number <= 16; ++number) {
    auto step = groupStep(static_cast<DataGroupId>(number), model, object);
    if (step) report.steps.push_back(*std::move(step));
  }
  return report;
}

}  // namespace tavlo::reader
