#include "Issuer.hpp"

namespace tavlo::sandbox {

namespace {

constexpr std::time_t authorityLife = 3650 * oneDay;
constexpr std::time_t clockDifference = 300;  // seconds by which a clock may be behind

Description ofAuthority(std::time_t now) {
  return {"tavlo-sandbox issuer, for development only",
          now - oneDay,
          now + authorityLife,
          {{"basicConstraints", "critical,CA:TRUE,pathlen:0"},
           {"keyUsage", "critical,keyCertSign"},
           {"subjectKeyIdentifier", "hash"}}};
}

}  // namespace

Issuer::Issuer(const std::filesystem::path& folder, std::time_t now)
    : authority_(authorityIn(folder / "issuer.pem", ofAuthority(now), now)) {
  storeCertificate(authority_, folder / "issuer-ca.pem");
}

std::string Issuer::issue(foundation::DataView publicKey, std::time_t now) const {
  const Description description{"verified in a sandbox, for development only",
                                now - clockDifference,
                                now + oneDay,
                                {{"basicConstraints", "critical,CA:FALSE"},
                                 {"keyUsage", "critical,digitalSignature"},
                                 {"subjectKeyIdentifier", "hash"},
                                 {"authorityKeyIdentifier", "keyid:always"}}};
  return makeCertificate(publicKey, description, authority_);
}

}  // namespace tavlo::sandbox
