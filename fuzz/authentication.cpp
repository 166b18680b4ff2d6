// Passive authentication with the input as the SOD of a passport, or else as the trusted certificate. Nothing may pass
// but what the authorities of the samples have signed.
#include <TavloReader/CertificateChain.internal.hpp>

#include <set>

#include "fuzz.hpp"

using namespace tavlo::reader;

void tavlo::fuzz::run(DataView input) {
  static const std::filesystem::path samples = TAVLO_SAMPLES_DIR;
  static const TrustAnchors trust = trustAnchorsIn(samples / "trust");
  static const auto authority = readAnchors({foundation::contentsOf(samples / "trust/csca.pem")});
  static const NFCPassportModel passport = readDocument(samples / "td3-jpeg").model;
  const auto hashesIn = [](const NFCPassportModel& signedModel) {
    const CleanErrorQueue clean;
    SecurityObject object;
    (void)readSecurityObject(signedModel, object);
    return object.hashes;
  };
  static const auto known = [hashesIn] {
    std::set<std::map<DataGroupId, Data>> all;
    for (const auto& entry : std::filesystem::directory_iterator(samples)) {
      if (exists(entry.path() / "EF_SOD.bin")) all.insert(hashesIn(readDocument(entry.path()).model));
    }
    return all;
  }();
  const Data bytes(input.begin(), input.end());
  const bool isSOD = input.empty() || input[0] == 0x77;

  within(64 * input.size() + (4 << 20), [&] {
    (void)isAccepted<ReaderError>([&] {
      NFCPassportModel model;
      for (const auto& [id, group] : passport.dataGroupsRead()) {
        model.add(isSOD && id == DataGroupId::SOD ? DataGroup::parse(id, bytes) : group);
      }
      const auto report = authenticate(model, isSOD ? trust : TrustAnchors{bytes}, {});
      if (report.steps.at(2).reason != "valid" || report.steps.at(3).reason != "trusted") return;
      require(known.contains(hashesIn(model)));
      require(isSOD || std::ranges::any_of(readAnchors({bytes}), [](const Certificate& anchor) {
                return EVP_PKEY_eq(X509_get0_pubkey(anchor.get()), X509_get0_pubkey(authority[0].get())) == 1;
              }));
    });
  });
}
