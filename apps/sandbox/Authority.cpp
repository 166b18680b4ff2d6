#include "Authority.hpp"

#include <Foundation/Data.hpp>

#include <stdexcept>

#include "Certificates.hpp"

namespace tavlo::sandbox {

namespace fs = std::filesystem;

namespace {

constexpr std::time_t authorityLife = 3650 * oneDay;
constexpr std::time_t serverLife = 365 * oneDay;

Description ofAuthority(const std::vector<std::string>& names, std::time_t now) {
  std::string permitted = "critical";
  for (const std::string& name : names) {
    const bool isIPv6 = name.find(':') != name.npos;
    const auto* const onlyThis = isIPv6 ? "/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff" : "/255.255.255.255";
    permitted += isAddress(name) ? ",permitted;IP:" + name + onlyThis : ",permitted;DNS:" + name;
  }
  return {"tavlo-sandbox authority, for development only",
          now - oneDay,  // for clocks that are a little behind
          now + authorityLife,
          {{"basicConstraints", "critical,CA:TRUE,pathlen:0"},
           {"keyUsage", "critical,keyCertSign"},
           {"subjectKeyIdentifier", "hash"},
           {"nameConstraints", permitted}}};
}

Description ofServer(const std::vector<std::string>& names, std::time_t from, std::time_t until) {
  std::string all;
  for (const std::string& name : names) all += (all.empty() ? "" : ",") + ((isAddress(name) ? "IP:" : "DNS:") + name);
  return {names.front(),
          from,
          until,
          {{"basicConstraints", "critical,CA:FALSE"},
           {"keyUsage", "critical,digitalSignature"},
           {"extendedKeyUsage", "serverAuth"},
           {"subjectAltName", all},
           {"subjectKeyIdentifier", "hash"},
           {"authorityKeyIdentifier", "keyid:always"}}};
}

}  // namespace

Authority Authority::prepare(const fs::path& folder, const Options& options) {
  foundation::createPrivateFolder(folder);
  foundation::sweepTemporaryFiles(folder);
  const std::time_t now = options.now;
  std::vector<std::string> names = {"localhost", "127.0.0.1", "::1"};
  names.insert(names.end(), options.addresses.begin(), options.addresses.end());
  const Identity authority = authorityIn(folder / "authority.pem", ofAuthority(names, now), now);
  Authority files{folder / "ca.pem", folder / "server.pem"};
  storeCertificate(authority, files.certificate);

  if (!options.flaw.empty()) {
    files.serverIdentity = folder / "flawed-server.pem";
    const bool hasExpired = options.flaw == "expired";
    if (options.flaw == "wrong-name") names = {"sandbox.invalid"};
    const Description flawed =
        ofServer(names, now - (hasExpired ? 2 : 1) * oneDay, hasExpired ? now - oneDay : now + serverLife);
    storeIdentity(makeIdentity(flawed, options.flaw == "self-signed" ? nullptr : &authority), files.serverIdentity);
    return files;
  }
  const auto server = loadIdentity(files.serverIdentity);
  if (server && vouches(authority, *server, names, now)) return files;
  const Identity made = makeIdentity(ofServer(names, now - oneDay, now + serverLife), &authority);
  if (!vouches(authority, made, names, now)) {
    throw std::runtime_error("The certificate authority in " + folder.string() +
                             " may not vouch for all addresses of --listen. Use another folder with --state: an "
                             "authority that may is made there, and apps must then trust its ca.pem.");
  }
  storeIdentity(made, files.serverIdentity);
  return files;
}

}  // namespace tavlo::sandbox
