#include <Security/SecKey.hpp>

#include <Foundation/Owned.hpp>
#include <Security/SHA256.hpp>

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/x509.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tavlo::security {

using foundation::Data;
using foundation::DataView;
using foundation::Owned;

namespace {

constexpr int rsaBits = 3072;
constexpr std::size_t uncompressedPointSize = 65;

using SharedKey = std::shared_ptr<EVP_PKEY>;

/// OpenSSL's own words never leave: they are for a programmer and may stem from an earlier call.
[[noreturn]] void fail(const char* what) {
  ERR_clear_error();
  throw SecurityError(what);
}

/// Runs one of OpenSSL's i2d operations, which give the size first and then write the bytes.
template <class Encode>
Data encoded(Encode encode) {
  const int size = encode(nullptr);
  if (size <= 0) fail("the key cannot be encoded");
  Data bytes(static_cast<std::size_t>(size));
  unsigned char* end = bytes.data();
  if (encode(&end) != size) fail("the key cannot be encoded");
  return bytes;
}

class OpenSSLKey final : public SecKey {
 public:
  enum class Half { privateKey, publicKey };
  OpenSSLKey(SharedKey key, Half half) : key_(std::move(key)), half_(half) {}

  [[nodiscard]] Data data() const override {
    if (half_ == Half::privateKey) throw SecurityError("a private key is not given out");
    if (EVP_PKEY_get_base_id(key_.get()) == EVP_PKEY_EC) {  // without the search for an encoder that i2d begins with
      std::array<std::uint8_t, uncompressedPointSize> point{};
      std::size_t size = 0;
      if (EVP_PKEY_get_octet_string_param(key_.get(), OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, point.data(), point.size(),
                                          &size) != 1) {
        fail("the key cannot be encoded");
      }
      return {point.begin(), point.begin() + size};
    }
    return encoded([&](unsigned char** end) { return i2d_PublicKey(key_.get(), end); });
  }
  [[nodiscard]] EVP_PKEY* get() const { return key_.get(); }

 private:
  SharedKey key_;  // OpenSSL keeps both halves in one object
  Half half_;
};

SecKeyPair pairOf(const SharedKey& key) {
  return {std::make_shared<OpenSSLKey>(key, OpenSSLKey::Half::privateKey),
          std::make_shared<OpenSSLKey>(key, OpenSSLKey::Half::publicKey)};
}

/// Throws unless `key` is of `type`, of its size and, for P-256, held as an uncompressed point.
void requireType(EVP_PKEY* key, SecKeyType type) {
  if (type == SecKeyType::rsa) {
    if (EVP_PKEY_is_a(key, "RSA") != 1) throw SecurityError("it is no RSA key");
    if (EVP_PKEY_get_bits(key) != rsaBits) throw SecurityError("it is no RSA key of 3072 bits");
    return;
  }
  if (EVP_PKEY_is_a(key, "EC") != 1) throw SecurityError("it is no elliptic-curve key");
  char group[32] = {};
  if (EVP_PKEY_get_utf8_string_param(key, OSSL_PKEY_PARAM_GROUP_NAME, group, sizeof group, nullptr) != 1 ||
      std::string_view(group) != SN_X9_62_prime256v1) {
    fail("it is no key on the curve P-256");
  }
  if (i2d_PublicKey(key, nullptr) != static_cast<int>(uncompressedPointSize)) {
    fail("its public half is no uncompressed point");
  }
}

}  // namespace

SecKeyPair generateKeyPair(SecKeyType type) {
  const SharedKey key(type == SecKeyType::rsa ? EVP_RSA_gen(static_cast<unsigned int>(rsaBits)) : EVP_EC_gen("P-256"),
                      EVP_PKEY_free);
  if (!key) fail("a key pair could not be generated");
  return pairOf(key);
}

std::shared_ptr<const SecKey> publicKeyFromData(DataView data, SecKeyType type) {
  EVP_PKEY* decoded = nullptr;
  if (type == SecKeyType::rsa) {
    const unsigned char* end = data.data();
    decoded = d2i_PublicKey(EVP_PKEY_RSA, nullptr, &end, static_cast<long>(data.size()));
    if (decoded != nullptr && end != data.data() + data.size()) {
      EVP_PKEY_free(decoded);
      decoded = nullptr;
    }
  } else if (data.size() == uncompressedPointSize) {
    // The parameters only read, although their constructors take pointers to non-const.
    std::string group = SN_X9_62_prime256v1;
    Data point(data.begin(), data.end());
    OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, group.data(), 0),
                               OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size()),
                               OSSL_PARAM_END};
    const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
    if (!context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &decoded, EVP_PKEY_PUBLIC_KEY, parameters) != 1) {
      decoded = nullptr;
    }
  }
  if (decoded == nullptr) fail("it is no public key of that type");
  const SharedKey key(decoded, EVP_PKEY_free);
  requireType(key.get(), type);
  const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> check(EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr));
  if (!check || EVP_PKEY_public_check(check.get()) != 1) fail("it is no sound public key");
  return std::make_shared<OpenSSLKey>(key, OpenSSLKey::Half::publicKey);
}

SecretData::~SecretData() {
  OPENSSL_cleanse(bytes_.data(), bytes_.size());
}

SecretData pkcs8Of(const SecKeyPair& pair) {
  const auto* key = dynamic_cast<const OpenSSLKey*>(pair.privateKey.get());
  if (key == nullptr) throw SecurityError("the private key cannot be exported");
  const Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free> info(EVP_PKEY2PKCS8(key->get()));
  if (!info) fail("the private key cannot be encoded");
  return SecretData(encoded([&](unsigned char** end) { return i2d_PKCS8_PRIV_KEY_INFO(info.get(), end); }));
}

SecKeyPair keyPairFromPKCS8(DataView pkcs8, SecKeyType type) {
  const unsigned char* end = pkcs8.data();
  const Owned<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free> info(
      d2i_PKCS8_PRIV_KEY_INFO(nullptr, &end, static_cast<long>(pkcs8.size())));
  if (!info) fail("it is no PKCS#8 private key");
  if (end != pkcs8.data() + pkcs8.size()) throw SecurityError("bytes follow the PKCS#8 private key");
  const SharedKey key(EVP_PKCS82PKEY(info.get()), EVP_PKEY_free);
  if (!key) fail("its private key cannot be read");
  requireType(key.get(), type);
  const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> check(EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr));
  if (!check || EVP_PKEY_check(check.get()) != 1) fail("its private and public halves do not agree");
  return pairOf(key);
}

std::array<std::uint8_t, 32> sha256(DataView bytes) {
  std::array<std::uint8_t, 32> hash{};
  if (EVP_Q_digest(nullptr, "SHA256", nullptr, bytes.data(), bytes.size(), hash.data(), nullptr) != 1) {
    fail("SHA-256 failed");
  }
  return hash;
}

}  // namespace tavlo::security
