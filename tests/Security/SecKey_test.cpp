#include <Foundation/Hex.hpp>
#include <Security/SecCertificate.hpp>
#include <Security/SecKey.hpp>

#include <gtest/gtest.h>

namespace tavlo::security {
namespace {

using foundation::Data;

constexpr auto curve = SecKeyType::ellipticCurve;
constexpr auto rsa = SecKeyType::rsa;

Data bytesOf(std::string_view hex) {
  return foundation::dataFromHex(hex).value();
}

/// The private key of a new pair.
Data newKey(SecKeyType type) {
  const SecretData pkcs8 = pkcs8Of(generateKeyPair(type));
  return {pkcs8.bytes().begin(), pkcs8.bytes().end()};
}

// The P-256 key pair of RFC 6979, A.2.5.
const Data point = bytesOf(
    "0460fed4ba255a9d31c961eb74c6356d68c049b8923b61fa6ce669622e60f29fb6"
    "7903fe1008b8bc99a41ae9e95628bc64f2f1b20c2d7e9f5177a3c294d4462299");
const Data pkcs8WithoutPoint = bytesOf(
    "3041020100301306072a8648ce3d020106082a8648ce3d030107042730250201010420"
    "c9afa9d845ba75166b5c215767b1d6934e50c3db36e89b127b8a622b120f6721");

TEST(SecKey, pairsHaveTheirRepresentationsAndComeBack) {
  const SecKeyPair known = keyPairFromPKCS8(pkcs8WithoutPoint, curve);
  EXPECT_EQ(known.publicKey->data(), point);
  EXPECT_THROW((void)known.privateKey->data(), SecurityError);
  EXPECT_THROW((void)pkcs8Of({}), SecurityError);
  for (const SecKeyType type : {rsa, curve}) {
    const Data key = newKey(type);
    EXPECT_NE(newKey(type), key);
    const SecKeyPair pair = keyPairFromPKCS8(key, type);
    EXPECT_TRUE(std::ranges::equal(pkcs8Of(pair).bytes(), key));
    EXPECT_EQ(publicKeyFromData(pair.publicKey->data(), type)->data(), pair.publicKey->data());
  }
}

/// Expects that `read` takes neither `sound` keys once they are spoilt nor any of `others`.
template <class Read>
void expectRefusals(Read read, SecKeyType type, const Data& sound, std::vector<Data> others) {
  others.insert(others.begin(), 4, sound);
  others[0].pop_back();
  others[1].push_back(0);
  others[2].back() ^= 1U;  // off the curve, or an even exponent
  others[3].clear();
  for (const Data& bytes : others) EXPECT_THROW((void)read(bytes, type), SecurityError);
}

TEST(SecKey, refusesUnsoundKeys) {
  const Data onCurve = newKey(curve);
  const Data key = newKey(rsa);
  const Data publicKey = keyPairFromPKCS8(key, rsa).publicKey->data();
  Data twoHalves = onCurve;
  std::ranges::copy(point, twoHalves.end() - 65);
  const Data p384 = bytesOf("304e020100301006072a8648ce3d020106052b81040022043730350201010430" + std::string(96, '1'));
  const Data ed25519 = bytesOf("302e020100300506032b657004220420" + std::string(64, '1'));
  expectRefusals(keyPairFromPKCS8, curve, onCurve, {twoHalves, p384, ed25519, key});
  expectRefusals(keyPairFromPKCS8, rsa, key, {onCurve});
  expectRefusals(publicKeyFromData, curve, point, {Data(65, 4), publicKey});
  EXPECT_THROW((void)publicKeyOfCertificate("-----BEGIN CERTIFICATE-----\nMAA=\n-----END CERTIFICATE-----\n"),
               SecurityError);
  expectRefusals(publicKeyFromData, rsa, publicKey, {point, bytesOf("3006020103020103")});  // a modulus of two bits
}

}  // namespace
}  // namespace tavlo::security
