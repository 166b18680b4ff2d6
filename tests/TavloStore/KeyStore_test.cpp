#include <Foundation/StandIn.hpp>
#include <TavloStore/FileKeyStore.hpp>

#include <gtest/gtest.h>

#include <set>

#include "support/Errors.hpp"
#include "support/TemporaryFolder.hpp"

namespace tavlo::store {
namespace {

namespace fs = std::filesystem;
using namespace foundation;
using security::SecKeyType;
using namespace std::string_literals;

constexpr auto curve = SecKeyType::ellipticCurve;

class KeyStoreTest : public testing::Test {
 protected:
  /// The public half that a store of its own over the folder gives.
  [[nodiscard]] Data publicKey(std::string_view alias, SecKeyType type = curve, bool ephemeral = false) const {
    return FileKeyStore(folder).createKeypair(alias, type, ephemeral).value().publicKey->data();
  }

  test::TemporaryFolder temporary;
  fs::path folder = temporary / "tavlo/keys";
  fs::path file = FileKeyStore(folder).file("TV0000042");
};

TEST_F(KeyStoreTest, keepsAPairUnderAnyAliasPrivatelyForAllThatShareTheFolder) {
  const std::vector aliases = {"a"s,   "A"s,        "."s,  ".."s,   "../a"s, "/tmp/a"s,
                               "a b"s, "\xff\xfe"s, "\0"s, "a\0b"s, "-a"s,   std::string(100'000, 'a')};
  std::set<Data> keys;
  for (const std::string& alias : aliases) keys.insert(publicKey(alias));
  keys.insert({publicKey("rsa", SecKeyType::rsa), publicKey("rsa", SecKeyType::rsa)});
  ::setenv("XDG_DATA_HOME", temporary.path().c_str(), 1);
  const StandIn<KeyStore> byDefault(nullptr);
  keys.insert(Util::createKeypair("a").value().publicKey->data());
  EXPECT_EQ(keys.size(), aliases.size() + 1);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), std::ssize(keys));
  for (const auto& entry : fs::directory_iterator(folder)) EXPECT_EQ(test::modeOf(entry), 0600);
  EXPECT_EQ(test::modeOf(folder), 0700);
  EXPECT_EQ(file.filename(),  // pinned: another name would orphan the keys that users have
            "c83487da061cfee2f663c53a7bd6ca7c9210619fa531d9f0aab3cfd324403d7e.p8");
}

TEST_F(KeyStoreTest, keepsNoEphemeralPairAndGivesNoneForTheEmptyAlias) {
  writePrivately(temporary / "tavlo", dataOf("no folder"));
  EXPECT_NE(publicKey("TV0000042", curve, true), publicKey("TV0000042", curve, true));
  for (const bool ephemeral : {false, true}) EXPECT_FALSE(FileKeyStore(folder).createKeypair("", curve, ephemeral));
  EXPECT_THROW((void)publicKey("TV0000042"), std::system_error);
  EXPECT_EQ(contentsOf(temporary / "tavlo"), dataOf("no folder"));
}

TEST_F(KeyStoreTest, leavesADamagedEntryAsItIs) {
  const auto expectRefusal = [&](SecKeyType type = curve) {
    const auto error = test::errorOf<std::runtime_error>([&] { return publicKey("TV0000042", type); });
    EXPECT_NE(std::string(error.value().what()).find(file.string()), std::string::npos) << error->what();
  };
  (void)publicKey("TV0000042");
  const Data sound = contentsOf(file);
  expectRefusal(SecKeyType::rsa);
  EXPECT_EQ(contentsOf(file), sound);
  for (const Data& damaged : {Data{}, dataOf("not a key"), Data(sound.begin(), sound.end() - 1), Data(1'000'000)}) {
    writePrivately(file, damaged);
    expectRefusal();
    EXPECT_EQ(contentsOf(file), damaged);
  }
  fs::remove(file);
  fs::create_symlink("nowhere", file);
  expectRefusal();
  EXPECT_EQ(fs::read_symlink(file), "nowhere");
}

}  // namespace
}  // namespace tavlo::store
