#pragma once

#include <Security/SecKey.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloReader/DocumentSource.hpp>

#include "support/Printed.hpp"

namespace tavlo::test {

/// The request that an app makes of the sample `name`, with a new key pair.
inline foundation::Data requestOf(const std::string& name) {
  const Printed silent;
  const std::filesystem::path samples = TAVLO_SAMPLES_DIR;
  const auto document = reader::readDocument(samples / name);
  DataGroups groups;
  for (const auto& [id, group] : document.model.dataGroupsRead()) groups.push_back(group);
  const auto selfie = uikit::UIImage::decode(foundation::contentsOf(samples / "selfie.png"));
  const auto keys = security::generateKeyPair(security::SecKeyType::ellipticCurve);
  return TavloCA::verificationObject(groups, selfie, *keys.publicKey).value();
}

}  // namespace tavlo::test
