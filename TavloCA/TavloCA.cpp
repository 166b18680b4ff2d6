#include <TavloCA/TavloCA.hpp>

#include <Foundation/Coding.hpp>
#include <Foundation/Hex.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/Print.hpp>
#include <Foundation/URL.hpp>
#include <Foundation/URLError.hpp>
#include <Foundation/URLRequest.hpp>
#include <Foundation/URLSession.hpp>
#include <TavloCA/TavloCA.internal.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <TavloReader/DataGroups.hpp>
#include <TavloReader/Log.hpp>
#include <TavloStore/Util.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <utility>

namespace tavlo {

namespace {

using foundation::Data;

constexpr std::string_view verificationURL = TAVLOCA_SERVICE_URL "/verify";

/// A class of data group and the member of the request that takes it.
struct SupportedGroup {
  bool (*isInstance)(const reader::DataGroup&);
  std::optional<std::string> Document::*member;
};

template <class Group>
bool isInstance(const reader::DataGroup& group) {
  return dynamic_cast<const Group*>(&group) != nullptr;
}

constexpr std::array supportedGroups{
    SupportedGroup{isInstance<reader::COM>, &Document::COM},
    SupportedGroup{isInstance<reader::DataGroup1>, &Document::DG1},
    SupportedGroup{isInstance<reader::DataGroup2>, &Document::DG2},
    SupportedGroup{isInstance<reader::DataGroup7>, &Document::DG7},
    SupportedGroup{isInstance<reader::DataGroup11>, &Document::DG11},
    SupportedGroup{isInstance<reader::DataGroup12>, &Document::DG12},
    SupportedGroup{isInstance<reader::DataGroup14>, &Document::DG14},
    SupportedGroup{isInstance<reader::DataGroup15>, &Document::DG15},
    SupportedGroup{isInstance<reader::SOD>, &Document::SOD},
};

void addDataGroup(Document& document, const reader::DataGroup& group) {
  std::string hex = foundation::toHexString(group.data());
  const auto supported = std::ranges::find_if(supportedGroups, [&](const auto& row) { return row.isInstance(group); });
  if (supported == supportedGroups.end()) {
    reader::Log::error("DataGroup not supported");
    return;
  }
  if (supported->member == &Document::COM) foundation::print(hex);
  document.*supported->member = std::move(hex);
}

/// The array in the platform's form: class names alone, no content.
std::string describe(const DataGroups& groups) {
  std::string text = "[";
  for (const auto& group : groups) {
    if (text.size() > 1) text += ", ";
    text += group->description();
  }
  return text + "]";
}

void fail(const Completion& completion, std::string_view message) {
  completion(std::nullopt, std::make_exception_ptr(CAError(message)));
}

}  // namespace

DocumentMeta::DocumentMeta(std::optional<std::string> type, std::optional<std::string> subType,
                           std::optional<std::string> expiryDate, std::optional<std::string> birthDate,
                           std::optional<std::string> sex, std::optional<std::string> nation)
    : documentType(std::move(type)),
      documentSubType(std::move(subType)),
      documentExpiryDate(std::move(expiryDate)),
      dateOfBirth(std::move(birthDate)),
      gender(std::move(sex)),
      nationality(std::move(nation)) {}

void TavloCA::verify(const reader::NFCPassportModel& model, const Passport& passport, const uikit::UIImage& selfie,
                     Completion completion) {
  DataGroups datagroups;
  for (const auto& [id, group] : model.dataGroupsRead()) datagroups.push_back(group);
  foundation::print(describe(datagroups));

  const std::string keyAlias = passport.documentNumber();
  std::optional<security::SecKeyPair> keyPair;
  std::exception_ptr keyError;
  try {
    keyPair = store::Util::createKeypair(keyAlias);
  } catch (...) {
    keyError = std::current_exception();
  }
  // Called outside the handler: what a completion throws must not lead to a second call.
  if (keyError) return completion(std::nullopt, keyError);
  if (!keyPair || !keyPair->publicKey) return fail(completion, "Could not create keypair");

  std::optional<Data> body;
  try {
    body = verificationObject(datagroups, selfie, *keyPair->publicKey);
  } catch (...) {  // no memory, or something of the host app's that throws
  }
  if (!body) return fail(completion, "Could not create verification object");
  post(*std::move(body), verificationURL, std::move(completion));
}

std::optional<Data> TavloCA::verificationObject(const DataGroups& datagroups, const uikit::UIImage& selfie,
                                                const security::SecKey& publicKey) {
  Verification verification;
  verification.version = "1.0";
  for (const auto& group : datagroups) addDataGroup(verification.doc, *group);
  try {
    verification.signing.mdlPublicKey = foundation::toHexString(publicKey.data());
  } catch (...) {  // a key that is not given out is left out
  }
  verification.biometry.selfie = common::base64UrlEncodedPNG(selfie, common::Base64Options::none);

  Data body;
  try {
    body = foundation::JSONEncoder().encode(verification);
  } catch (...) {
    foundation::print("Could not encode jsonData");
    return std::nullopt;
  }
  foundation::print(foundation::textOf(body));  // UTF-8, for the encoder writes nothing else
  return body;
}

void TavloCA::post(Data data, std::string_view urlString, Completion completion) {
  auto url = foundation::URL::parse(urlString);
  if (!url) return fail(completion, "Empty URL");

  foundation::URLRequest request{.url = *std::move(url),
                                 .cachePolicy = foundation::URLRequest::CachePolicy::useProtocolCachePolicy,
                                 .timeoutInterval = std::chrono::seconds(60),
                                 .httpMethod = "POST",
                                 .httpBody = std::move(data)};
  const auto finish = [completion = std::move(completion)](std::optional<Data> body, const auto& /*response*/,
                                                           const std::exception_ptr& error) {
    if (body && !error) return completion(std::move(body), nullptr);
    foundation::print(error ? foundation::localizedDescription(error) : "No data");
    completion(std::nullopt, error);
  };
  std::exception_ptr startError;
  try {
    foundation::URLSession::shared()->dataTask(std::move(request), finish).resume();
  } catch (...) {  // no thread or no memory to start with
    startError = std::current_exception();
  }
  if (startError) finish(std::nullopt, nullptr, startError);
}

}  // namespace tavlo
