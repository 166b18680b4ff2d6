#include <Foundation/Hex.hpp>
#include <Security/SHA256.hpp>
#include <Security/SecKey.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

namespace tavlo::security {
namespace {

using foundation::Data;

Data bytesOf(std::string_view hex) {
  return foundation::dataFromHex(hex).value();
}

Data copyOf(foundation::DataView bytes) {
  return {bytes.begin(), bytes.end()};
}

// The P-256 key pair of RFC 6979, A.2.5.
const Data point = bytesOf(
    "0460fed4ba255a9d31c961eb74c6356d68c049b8923b61fa6ce669622e60f29fb6"
    "7903fe1008b8bc99a41ae9e95628bc64f2f1b20c2d7e9f5177a3c294d4462299");
const Data pkcs8WithoutPoint = bytesOf(
    "3041020100301306072a8648ce3d020106082a8648ce3d030107042730250201010420"
    "c9afa9d845ba75166b5c215767b1d6934e50c3db36e89b127b8a622b120f6721");

TEST(SecKey, hasTheRepresentationsOfAKnownPair) {
  const SecKeyPair pair = keyPairFromPKCS8(pkcs8WithoutPoint, SecKeyType::ellipticCurve);
  EXPECT_EQ(pair.publicKey->data(), point);
  EXPECT_THROW((void)pair.privateKey->data(), SecurityError);
  EXPECT_EQ(publicKeyFromData(point, SecKeyType::ellipticCurve)->data(), point);
}

TEST(SecKey, generatedPairsDifferAndComeBack) {
  for (const SecKeyType type : {SecKeyType::rsa, SecKeyType::ellipticCurve}) {
    const SecKeyPair pair = generateKeyPair(type);
    EXPECT_NE(pair.publicKey->data(), generateKeyPair(type).publicKey->data());
    const SecretData pkcs8 = pkcs8Of(pair);
    const SecKeyPair again = keyPairFromPKCS8(pkcs8.bytes(), type);
    EXPECT_EQ(again.publicKey->data(), pair.publicKey->data());
    EXPECT_TRUE(std::ranges::equal(pkcs8Of(again).bytes(), pkcs8.bytes()));
    EXPECT_EQ(publicKeyFromData(pair.publicKey->data(), type)->data(), pair.publicKey->data());
  }
  EXPECT_THROW((void)pkcs8Of({}), SecurityError);
}

TEST(SecKey, refusesUnsoundPrivateKeys) {
  const Data sound = copyOf(pkcs8Of(generateKeyPair(SecKeyType::ellipticCurve)).bytes());
  const auto changed = [&](const std::function<void(Data&)>& change) {
    Data bytes = sound;
    change(bytes);
    return bytes;
  };
  const auto refused = [](const Data& bytes, SecKeyType type = SecKeyType::ellipticCurve) {
    EXPECT_THROW((void)keyPairFromPKCS8(bytes, type), SecurityError);
  };
  refused({});
  refused(changed([](Data& bytes) { bytes.pop_back(); }));
  refused(changed([](Data& bytes) { bytes.push_back(0); }));
  refused(changed([](Data& bytes) { bytes.back() ^= 1U; }));                          // off the curve
  refused(changed([](Data& bytes) { std::ranges::copy(point, bytes.end() - 65); }));  // of another pair
  // On P-384, and an Ed25519 key (RFC 8410, 10.3).
  refused(bytesOf("304e020100301006072a8648ce3d020106052b810400220437303502010104" + ("30" + std::string(96, '1'))));
  refused(bytesOf("302e020100300506032b657004220420d4ee72dbf913584ad5b6d8f1f769f8ad3afe7c28cbf1d4fbe097a88f44755842"));
  refused(sound, SecKeyType::rsa);
  refused(copyOf(pkcs8Of(generateKeyPair(SecKeyType::rsa)).bytes()));
}

TEST(SecKey, refusesUnsoundPublicKeys) {
  const Data rsa = generateKeyPair(SecKeyType::rsa).publicKey->data();
  const auto refused = [](Data bytes, SecKeyType type) {
    EXPECT_THROW((void)publicKeyFromData(bytes, type), SecurityError);
    bytes.push_back(0);
    EXPECT_THROW((void)publicKeyFromData(bytes, type), SecurityError);
  };
  Data offCurve = point;
  offCurve.back() ^= 1U;
  for (const Data& bytes : {Data{}, Data{0}, offCurve, Data(point.begin(), point.begin() + 64), Data(65, 4), rsa}) {
    refused(bytes, SecKeyType::ellipticCurve);
  }
  for (const Data& bytes : {Data{}, point, Data(rsa.begin(), rsa.end() - 1)}) refused(bytes, SecKeyType::rsa);
  refused(bytesOf("3006020103020103"), SecKeyType::rsa);  // a modulus of two bits
}

TEST(SHA256, hashesTheStandardsExample) {
  const Data expected = bytesOf("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_TRUE(std::ranges::equal(sha256(foundation::dataOf("abc")), expected));
}

}  // namespace
}  // namespace tavlo::security
