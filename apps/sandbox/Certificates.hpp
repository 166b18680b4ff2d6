#pragma once

#include <Foundation/Data.hpp>

#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct evp_pkey_st;
struct x509_st;

namespace tavlo::sandbox {

/// A private key and the certificate of its public half (X.509, RFC 5280).
struct Identity {
  std::shared_ptr<evp_pkey_st> key;
  std::shared_ptr<x509_st> certificate;
};

/// What a certificate is to say.
struct Description {
  std::string subject;  ///< its common name
  std::time_t from = 0;
  std::time_t until = 0;
  /// Names and values as in a configuration file of OpenSSL (x509v3_config).
  std::vector<std::pair<std::string, std::string>> extensions;
};

/// One day, in seconds.
inline constexpr std::time_t oneDay = 86'400;

/// A new P-256 key with its certificate, signed by `issuer`, or by itself when there is none. Like all operations here
/// it throws std::runtime_error when a step fails.
[[nodiscard]] Identity makeIdentity(const Description& description, const Identity* issuer = nullptr);

/// A certificate in PEM for `publicKey`, which is an uncompressed point on P-256 (ANSI X9.63) or an RSAPublicKey in DER
/// (RFC 8017).
[[nodiscard]] std::string makeCertificate(foundation::DataView publicKey, const Description& description,
                                          const Identity& issuer);

/// The authority that is kept in `file`; one of `description` is made when there is no such file. Of two programs that
/// make it at once, both go on with the one that was stored first. Throws std::runtime_error when it is damaged or
/// expires within 30 days of `now`: it is left as it is.
[[nodiscard]] Identity authorityIn(const std::filesystem::path& file, const Description& description, std::time_t now);

/// Writes key and certificate in PEM, for the owner only. False when the file exists and is not to be replaced.
bool storeIdentity(const Identity& identity, const std::filesystem::path& file,
                   foundation::IfExists ifExists = foundation::IfExists::replace);
/// The identity in `file`; absent when there is no such file or no matching key and certificate in it.
[[nodiscard]] std::optional<Identity> loadIdentity(const std::filesystem::path& file);
/// Writes the certificate alone, in PEM.
void storeCertificate(const Identity& identity, const std::filesystem::path& file);

/// Whether `authority` vouches for `server` under all of `names`, host names or IP addresses, from `now` on for 30
/// days.
[[nodiscard]] bool vouches(const Identity& authority, const Identity& server, const std::vector<std::string>& names,
                           std::time_t now);

/// Whether `name` is an IP address.
[[nodiscard]] bool isAddress(const std::string& name);

}  // namespace tavlo::sandbox
