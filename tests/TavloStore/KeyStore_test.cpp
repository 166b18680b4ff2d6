#include <Foundation/StandIn.hpp>
#include <TavloStore/FileKeyStore.hpp>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/TemporaryFolder.hpp"

namespace tavlo::store {
namespace {

namespace fs = std::filesystem;
using foundation::Data;
using security::SecKeyType;

class KeyStoreTest : public testing::Test {
 protected:
  /// The public half that a store of its own over the folder gives.
  [[nodiscard]] Data publicKey(std::string_view alias, SecKeyType type = SecKeyType::ellipticCurve) const {
    return FileKeyStore(folder).createKeypair(alias, type, false).value().publicKey->data();
  }

  test::TemporaryFolder temporary;
  fs::path folder = temporary.path() / "keys";
  FileKeyStore store{folder};
};

TEST_F(KeyStoreTest, keepsEachTypeOfPairPrivately) {
  for (const SecKeyType type : {SecKeyType::rsa, SecKeyType::ellipticCurve}) {
    const std::string alias = type == SecKeyType::rsa ? "rsa" : "curve";
    EXPECT_EQ(publicKey(alias, type), publicKey(alias, type));
    EXPECT_EQ(fs::status(store.file(alias)).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  }
  EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 2);
}

TEST_F(KeyStoreTest, keepsNoEphemeralPairAndGivesNoneForTheEmptyAlias) {
  const Data first = store.createKeypair("TV0000042", SecKeyType::ellipticCurve, true).value().publicKey->data();
  EXPECT_NE(first, store.createKeypair("TV0000042", SecKeyType::ellipticCurve, true).value().publicKey->data());
  EXPECT_FALSE(store.createKeypair("", SecKeyType::ellipticCurve, false));
  EXPECT_FALSE(store.createKeypair("", SecKeyType::ellipticCurve, true));
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_NE(first, publicKey("TV0000042"));
}

TEST_F(KeyStoreTest, namesAFileAndKeyOfItsOwnForAnyAlias) {
  std::set<std::string> aliases = {"a",      "A",    ".",   "..",       "/",      "../a",
                                   "/tmp/a", "a\nb", "a b", "\xff\xfe", "\u00e5", "-a"};
  aliases.insert({std::string(1, '\0'), std::string("a\0b", 3), std::string(100'000, 'a')});
  std::set<Data> keys;
  for (const std::string& alias : aliases) {
    keys.insert(publicKey(alias));
    EXPECT_EQ(store.file(alias).parent_path(), folder);
  }
  EXPECT_EQ(keys.size(), aliases.size());
  EXPECT_EQ(store.file("TV0000042").filename(),  // pinned: another name would orphan the keys that users have
            "c83487da061cfee2f663c53a7bd6ca7c9210619fa531d9f0aab3cfd324403d7e.p8");
}

TEST_F(KeyStoreTest, leavesADamagedEntryAsItIs) {
  const fs::path file = store.file("TV0000042");
  const auto refused = [&](SecKeyType type = SecKeyType::ellipticCurve) {
    try {
      (void)store.createKeypair("TV0000042", type, false);
      ADD_FAILURE() << "a pair came out";
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find(file.string()), std::string::npos) << error.what();
    }
  };
  (void)publicKey("TV0000042");
  const Data sound = foundation::contentsOf(file);
  refused(SecKeyType::rsa);
  EXPECT_EQ(foundation::contentsOf(file), sound);

  const Data truncated(sound.begin(), sound.end() - 1);
  for (const Data& damaged : {Data{}, foundation::dataOf("not a key"), truncated, Data(1'000'000, 0x30)}) {
    foundation::writePrivately(file, damaged);
    refused();
    EXPECT_EQ(foundation::contentsOf(file), damaged);
  }
  fs::remove(file);
  fs::create_symlink("nowhere", file);
  refused();
  EXPECT_TRUE(fs::is_symlink(file));
  fs::remove(file);
  fs::create_directory(file);
  refused();
  EXPECT_TRUE(fs::is_directory(file));
}

TEST_F(KeyStoreTest, givesProcessesAndThreadsAtOnceTheSamePair) {
  constexpr int rivals = 8;
  for (int round = 0; round < 5; ++round) {
    const std::string alias = "round " + std::to_string(round);
    // noexcept: a child that fails ends there, not in a second run of the tests.
    const auto write = [&](int rival) noexcept {
      std::ofstream(temporary.path() / std::to_string(rival)) << foundation::textOf(publicKey(alias));
    };
    for (int rival = 0; rival < rivals; ++rival) {
      if (::fork() == 0) write(rival), ::_exit(0);
    }
    std::vector<std::jthread> threads;
    for (int rival = 0; rival < rivals; ++rival) threads.emplace_back(write, rivals + rival);
    threads.clear();
    while (::wait(nullptr) > 0) {
    }
    std::set<Data> keys;
    for (int rival = 0; rival < 2 * rivals; ++rival) {
      keys.insert(foundation::contentsOf(temporary.path() / std::to_string(rival)));
    }
    EXPECT_EQ(keys, std::set<Data>{publicKey(alias)});
  }
}

TEST_F(KeyStoreTest, isSharedOverTheApplicationsFolderUnlessReplaced) {
  ::setenv("XDG_DATA_HOME", temporary.path().c_str(), 1);
  const foundation::StandIn<KeyStore> byDefault(nullptr);
  const Data key = Util::createKeypair("TV0000042").value().publicKey->data();
  folder = temporary.path() / "tavlo" / "keys";
  EXPECT_EQ(key, publicKey("TV0000042"));

  const foundation::StandIn<KeyStore> standIn(std::make_shared<FileKeyStore>(temporary.path() / "other"));
  EXPECT_NE(key, Util::createKeypair("TV0000042").value().publicKey->data());
}

}  // namespace
}  // namespace tavlo::store
