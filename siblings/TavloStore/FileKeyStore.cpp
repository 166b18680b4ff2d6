#include <TavloStore/FileKeyStore.hpp>

#include <Foundation/Hex.hpp>
#include <Security/SHA256.hpp>

#include <unistd.h>

#include <string>
#include <system_error>

namespace tavlo::store {

using security::SecKeyPair;
using security::SecKeyType;
using security::SecurityError;

namespace {

/// Far more than an RSA key of 3072 bits takes.
constexpr std::size_t maximumKeyFileSize = 16'384;

constexpr std::string_view remedy =
    "Restore the file from a backup, or move it away: then a new key is made for that document.";

}  // namespace

std::filesystem::path FileKeyStore::file(std::string_view keyAlias) const {
  return folder_ / (foundation::toHexString(security::sha256(foundation::dataOf(keyAlias))) + ".p8");
}

/// The pair in `file`; absent when there is no such file.
std::optional<SecKeyPair> FileKeyStore::load(const std::filesystem::path& file, SecKeyType type) {
  try {
    const security::SecretData pkcs8(foundation::contentsOf(file, maximumKeyFileSize));
    return security::keyPairFromPKCS8(pkcs8.bytes(), type);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
    if (error.code() == std::errc::file_too_large) {
      throw SecurityError("The key file " + file.string() + " is too large for a key. " + std::string(remedy));
    }
    throw std::system_error(error.code(), "The key file " + file.string() + " cannot be read");
  } catch (const SecurityError& error) {
    throw SecurityError("The key file " + file.string() + " is damaged or holds another kind of key: " + error.what() +
                        ". " + std::string(remedy));
  }
}

std::optional<SecKeyPair> FileKeyStore::createKeypair(std::string_view keyAlias, SecKeyType type, bool ephemeral) {
  if (keyAlias.empty()) return std::nullopt;
  if (ephemeral) return security::generateKeyPair(type);

  const std::filesystem::path path = file(keyAlias);
  if (auto kept = load(path, type)) {
    // Another process may have made it this moment, and what rests on it must not outlive it.
    if (::access(folder_.c_str(), W_OK) == 0) foundation::flushFolder(folder_);
    return kept;
  }

  foundation::createPrivateFolder(folder_);
  if (!isSwept_.exchange(true)) foundation::sweepTemporaryFiles(folder_);
  SecKeyPair made = security::generateKeyPair(type);
  if (foundation::writePrivately(path, security::pkcs8Of(made).bytes(), foundation::IfExists::fail)) return made;
  // Somebody else was faster, and their pair is the one that stays. It may not have reached the disk yet.
  foundation::flushFolder(folder_);
  if (auto kept = load(path, type)) return kept;
  throw SecurityError("The key file " + path.string() + " went away while it was read, or is a link to nothing.");
}

}  // namespace tavlo::store
