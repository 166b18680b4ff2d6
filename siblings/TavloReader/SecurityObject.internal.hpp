#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/NFCPassportModel.hpp>
#include <TavloReader/OpenSSL.internal.hpp>
#include <TavloReader/PassiveAuthentication.hpp>

#include <openssl/cms.h>

#include <ctime>
#include <map>
#include <optional>
#include <vector>

#pragma GCC visibility push(hidden)

namespace tavlo::reader {

/// What the SOD says.
struct SecurityObject {
  Owned<CMS_ContentInfo, CMS_ContentInfo_free> message;
  const EVP_MD* digest = nullptr;  ///< of the groups
  std::map<DataGroupId, foundation::Data> hashes;
  std::vector<Certificate> certificates;  ///< the document signer's, and maybe links between authorities
  X509* signer = nullptr;                 ///< belongs to `message`; set by `findSigner`

  [[nodiscard]] CMS_SignerInfo* signerInfo() const;
};

/// Takes the SOD apart into `object`; nothing in it is verified yet.
[[nodiscard]] AuthenticationStep readSecurityObject(const NFCPassportModel& model, SecurityObject& object);

/// Looks for the certificate that the signature names, by issuer and serial number or by its key's identifier.
[[nodiscard]] AuthenticationStep findSigner(SecurityObject& object);

/// Verifies the signature of a SOD whose signer was found, by the algorithms that it states.
[[nodiscard]] AuthenticationStep verifySignature(const SecurityObject& object);

/// The signing time that the signer states; absent when there is none.
[[nodiscard]] std::optional<std::time_t> signingTime(const SecurityObject& object);

}  // namespace tavlo::reader

#pragma GCC visibility pop
