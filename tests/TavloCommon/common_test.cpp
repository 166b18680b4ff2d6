#include "support/TemporaryFolder.hpp"
#include <Foundation/StandIn.hpp>
#include <TavloCommon/FileImageStore.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace tavlo::common {
namespace {

namespace fs = std::filesystem;
using foundation::Data;
using foundation::dataOf;
using uikit::UIImage;
using namespace std::string_literals;

TEST(Base64Test, writesAndReadsTheVectorsOfTheStandard) {
  const std::pair<Data, std::string_view> vectors[] = {
      {{}, ""},
      {dataOf("f"), "Zg"},
      {dataOf("fo"), "Zm8"},
      {dataOf("foo"), "Zm9v"},
      {dataOf("foob"), "Zm9vYg"},
      {dataOf("fooba"), "Zm9vYmE"},
      {dataOf("foobar"), "Zm9vYmFy"},
      {{0xFB, 0xEF, 0xFF}, "--__"},
  };
  for (const auto& [bytes, text] : vectors) {
    EXPECT_EQ(base64UrlEncodedString(bytes), text);
    EXPECT_EQ(dataFromBase64Url(text), bytes);
  }
  Data all(768);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i * 7 / 3);
  EXPECT_EQ(dataFromBase64Url(base64UrlEncodedString(all).value()), all);
  EXPECT_EQ(dataFromBase64Url("Zg=="), dataOf("f"));
  EXPECT_EQ(dataFromBase64Url("Zm8="), dataOf("fo"));
  for (const char* text : {"Z", "Zm9vY", "Zg=", "Zm8==", "=", "==", "====", "Zm9v=", "Zm9v====", "Zg==Zg==", "Zh",
                           "Zm9", "Zm+v", "Zm/v", "Zm9v ", "Zm9\n", "Zm\xC3\xA9"}) {
    EXPECT_FALSE(dataFromBase64Url(text)) << text;
  }
}

TEST(ModelNameTest, dropsWhatIsNoName) {
  struct Device final : uikit::UIDevice {
    std::optional<std::string> text;
    [[nodiscard]] std::string systemVersion() const override { return {}; }
    [[nodiscard]] std::optional<std::string> model() const override { return text; }
  } device;
  EXPECT_EQ(modelName(device), std::nullopt);
  for (const char* text : {"", "  ", "To Be Filled By O.E.M.", "to be filled by o.e.m. ", "System Product Name",
                           "Default string", "0000000", "None"}) {
    device.text = text;
    EXPECT_EQ(modelName(device), std::nullopt) << text;
  }
  device.text = " Nonesuch 3\n";
  EXPECT_EQ(modelName(device), "Nonesuch 3");
}

class ImageStoreTest : public testing::Test {
 protected:
  ImageStoreTest() { ::setenv("XDG_DATA_HOME", temporary_.path().c_str(), 1); }

  test::TemporaryFolder temporary_;
  fs::path folder_ = temporary_.path() / "tavlo" / "images";
  foundation::StandIn<ImageStore> byDefault_{nullptr};
  UIImage image_ = UIImage::fromPixels(Data{1, 2, 3, 4, 5, 6}, 2, 1, 6, uikit::PixelFormat::rgb);
};

TEST_F(ImageStoreTest, keepsImagesPrivatelyUnderNamesOfTheirOwn) {
  const std::string name = persist(image_).value();
  EXPECT_NE(persist(image_), name);
  EXPECT_TRUE(std::ranges::equal(fromURL(name).value().pixels(), image_.pixels()));
  EXPECT_EQ(fs::status(folder_ / name).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(fs::status(folder_).permissions(), fs::perms::owner_all);
  EXPECT_FALSE(persist(UIImage()));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 2);
}

TEST_F(ImageStoreTest, givesNothingFromElsewhere) {
  const std::string name = persist(image_).value();
  fs::copy_file(folder_ / name, folder_.parent_path() / "outside.png");
  fs::create_symlink("../outside.png", folder_ / "link.png");
  foundation::writePrivately(folder_ / "text.png", dataOf("no image"));
  for (const std::string& other :
       {""s, "."s, ".."s, "../outside.png"s, (folder_ / name).string(), "./" + name, name + "/", name + '\0',
        "link.png"s, "text.png"s, "absent.png"s, std::string(5000, 'a')}) {
    EXPECT_FALSE(fromURL(other)) << other;
  }
}

TEST_F(ImageStoreTest, saysWhenAFolderCannotBe) {
  foundation::writePrivately(temporary_.path() / "tavlo", dataOf("a file"));
  EXPECT_FALSE(persist(image_));
  EXPECT_FALSE(fromURL("a.png"));
  EXPECT_THROW((void)FileImageStore(folder_).persist(image_), std::system_error);
}

}  // namespace
}  // namespace tavlo::common
