#include <Foundation/SharedService.hpp>
#include <TavloStore/FileKeyStore.hpp>
#include <TavloStore/Util.hpp>

#include <utility>

namespace tavlo::store {

namespace {

constinit foundation::SharedService<KeyStore> keyStoreInForce([]() -> std::shared_ptr<KeyStore> {
  return std::make_shared<FileKeyStore>(foundation::applicationSupportFolder() / "keys");
});

}  // namespace

std::shared_ptr<KeyStore> KeyStore::shared() {
  return keyStoreInForce.get();
}

std::shared_ptr<KeyStore> KeyStore::install(std::shared_ptr<KeyStore> keyStore) {
  return keyStoreInForce.exchange(std::move(keyStore));
}

std::optional<security::SecKeyPair> Util::createKeypair(std::string_view keyAlias, security::SecKeyType type,
                                                        bool ephemeral) {
  return KeyStore::shared()->createKeypair(keyAlias, type, ephemeral);
}

}  // namespace tavlo::store
