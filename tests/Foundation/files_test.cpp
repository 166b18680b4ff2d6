#include <Foundation/Bundle.hpp>
#include <Foundation/Data.hpp>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/TemporaryFolder.hpp"

#include <fstream>

namespace tavlo::foundation {

namespace fs = std::filesystem;
using test::modeOf;
using test::TemporaryFolder;

TEST(Files, AreWrittenPrivatelyAndWhole) {
  const TemporaryFolder folder;
  const fs::path path = folder / "file";
  EXPECT_TRUE(writePrivately(path, dataOf("one")));
  EXPECT_TRUE(writePrivately(path, dataOf("two")));
  EXPECT_FALSE(writePrivately(path, dataOf("three"), IfExists::fail));
  EXPECT_EQ(textOf(contentsOf(path)), "two");
  EXPECT_EQ(modeOf(path), 0600);
  EXPECT_THROW(writePrivately(folder / "missing/file", dataOf("x")), std::system_error);
  fs::create_directory(folder / "taken");
  EXPECT_THROW(writePrivately(folder / "taken", dataOf("x")), std::system_error);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2) << "a temporary file was left behind";
}

TEST(Files, OnlyRegularOnesOfBoundedSizeAreRead) {
  const TemporaryFolder folder;
  std::ofstream(folder / "ten") << "0123456789";
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(contentsOf(folder / "ten", 10).size(), 10U);
  EXPECT_THROW((void)contentsOf(folder / "ten", 9), std::system_error);
  const std::string withNUL = (folder / "ten").string() + std::string("\0.png", 5);
  for (const fs::path& path : {folder / "pipe", fs::path("/dev/zero"), folder.path(), fs::path(), fs::path(withNUL)}) {
    EXPECT_THROW((void)contentsOf(path), std::system_error) << path;
  }
}

TEST(Files, PrivateFoldersAndWhereTheyLie) {
  const TemporaryFolder folder;
  for (int i = 0; i < 2; ++i) {
    createPrivateFolder(folder / "a/b/c");
    for (const auto* path : {"a", "a/b", "a/b/c"}) EXPECT_EQ(modeOf(folder / path), 0700) << path;
    fs::permissions(folder / "a/b/c", fs::perms::all);
  }
  std::ofstream(folder / "file") << "x";
  EXPECT_THROW(createPrivateFolder(folder / "file/below"), std::system_error);

  ::setenv("XDG_DATA_HOME", "/data", 1);
  EXPECT_EQ(applicationSupportFolder(), "/data/tavlo");
  ::setenv("XDG_DATA_HOME", "relative", 1);
  ::setenv("HOME", "/home/x", 1);
  EXPECT_EQ(applicationSupportFolder(), "/home/x/.local/share/tavlo");
}

TEST(Bundle, FindsNamedFilesAndNothingOutside) {
  const TemporaryFolder folder;
  fs::create_directory(folder / "resources");
  std::ofstream(folder / "resources/a.png") << "a";
  std::ofstream(folder / "secret") << "s";
  const FolderBundle bundle(folder / "resources");
  EXPECT_EQ(bundle.resource("a.png"), dataOf("a"));
  for (const char* name : {"b.png", "", ".", "..", "../secret"}) EXPECT_EQ(bundle.resource(name), std::nullopt) << name;
}

}  // namespace tavlo::foundation
