#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/DataGroup.hpp>
#include <specimen/Authority.hpp>

#include <chrono>
#include <map>
#include <string>

namespace tavlo::specimen {

/// Elementary files by what they are.
using Files = std::map<reader::DataGroupId, foundation::Data>;

/// How a document signer signs.
struct Signature {
  std::string key = "P-256";           ///< "RSA-2048", "P-384", "brainpoolP256r1" and the like
  bool explicitParameters = false;     ///< whether a curve's parameters are written out instead of its name
  bool probabilistic = false;          ///< RSA with PSS instead of PKCS #1 v1.5 padding
  std::string hash = "SHA-256";        ///< of the groups and of the signature: SHA-1, -224, -256, -384 or -512
  bool byKeyIdentifier = false;        ///< whether the signer is named by key instead of issuer and serial number
  bool indefiniteLengths = false;      ///< BER as some states write it, instead of DER
  std::chrono::year_month_day date{};  ///< when the groups were signed
};

/// EF.SOD (ICAO Doc 9303-10): the hashes of `groups`, signed by a new document signer under `authority`, whose
/// certificate runs out on `signerEnd`.
/// Throws std::invalid_argument when there is no such key or hash, or they do not go together.
[[nodiscard]] foundation::Data securityObject(const Files& groups, const Signature& signature,
                                              const Authority& authority, std::chrono::year_month_day signerEnd);

}  // namespace tavlo::specimen
