#include <TavloCommon/FileImageStore.hpp>

#include <gtest/gtest.h>

#include <random>

#include "support/StandIns.hpp"
#include "support/TemporaryFolder.hpp"

namespace tavlo::common {

using namespace foundation;
using namespace std::string_literals;

TEST(Base64Test, writesAndReadsWhatTheStandardAllows) {
  Data all(600'000);
  std::minstd_rand random(7);  // NOLINT(cert-msc51-cpp): the same bytes each time
  for (auto& byte : all) byte = static_cast<std::uint8_t>(random() >> 8U);
  EXPECT_EQ(dataFromBase64Url(base64UrlEncodedString(all).value()), all);
  const std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  for (std::size_t size = 0; size <= 200; ++size) {
    std::string text;
    for (std::size_t bit = 0; bit < 8 * size; bit += 6) {
      const unsigned next = bit / 8 + 1 < size ? all[bit / 8 + 1] : 0;
      text += digits[(unsigned{all[bit / 8]} << 8U | next) >> (10 - bit % 8) & 63U];
    }
    EXPECT_EQ(base64UrlEncodedString(DataView(all).first(size)), text);
    EXPECT_TRUE(std::ranges::equal(dataFromBase64Url(text).value(), DataView(all).first(size)));
  }
  EXPECT_FALSE(base64UrlEncodedPNG({}));
  for (const std::size_t side : {1U, 20U, 400U}) {  // the last goes out in several pieces
    const auto image = uikit::UIImage::fromPixels(all, side, side, 3 * side, uikit::PixelFormat::rgb);
    EXPECT_EQ(base64UrlEncodedPNG(image), base64UrlEncodedString(UIImagePNGRepresentation(image).value()));
  }
  for (const auto* text : {"--___gA", "--___gA="}) {
    EXPECT_EQ(dataFromBase64Url(text), (Data{0xFB, 0xEF, 0xFF, 0xFE, 0})) << text;
  }
  for (const char* text : {"Z", "Zm9vY", "Zg=", "Zm8==", "=", "==", "====", "Zm9v=", "Zm9v====", "Zg==Zg==", "Zh",
                           "Zm9", "Zm+v", "Zm/v", "Zm9v ", "Zm9\n", "Zm\xC3\xA9"}) {
    EXPECT_FALSE(dataFromBase64Url(text)) << text;
  }
}

TEST(ModelNameTest, dropsWhatIsNoName) {
  EXPECT_EQ(modelName(test::FakeDevice("12")), std::nullopt);
  for (const char* text : {"", "  ", "to be filled by O.E.M. ", "Default string", "0000000"}) {
    EXPECT_EQ(modelName(test::FakeDevice("12", text)), std::nullopt) << text;
  }
  EXPECT_EQ(modelName(test::FakeDevice("12", " Nonesuch 3\n")), "Nonesuch 3");
}

TEST(ImageStoreTest, keepsImagesPrivatelyUnderNamesOfTheirOwn) {
  using namespace std::filesystem;
  const test::TemporaryFolder temporary;
  ::setenv("XDG_DATA_HOME", temporary.path().c_str(), 1);
  const StandIn<ImageStore> byDefault(nullptr);
  const auto image = uikit::UIImage::fromPixels(Data{1, 2, 3, 4, 5, 6}, 2, 1, 6, uikit::PixelFormat::rgb);
  const path folder = temporary / "tavlo/images";
  writePrivately(temporary / "tavlo", dataOf("no folder"));
  EXPECT_FALSE(persist(image));
  EXPECT_THROW((void)FileImageStore(folder).persist(image), std::system_error);
  remove(temporary / "tavlo");

  const std::string name = persist(image).value();
  EXPECT_NE(persist(image), name);
  EXPECT_FALSE(persist({}));
  EXPECT_EQ(std::distance(directory_iterator(folder), {}), 2);
  EXPECT_TRUE(std::ranges::equal(fromURL(name).value().pixels(), image.pixels()));
  EXPECT_EQ(test::modeOf(folder / name), 0600);
  EXPECT_EQ(test::modeOf(folder), 0700);

  copy_file(folder / name, temporary / "tavlo/outside.png");
  create_symlink("../outside.png", folder / "link.png");
  writePrivately(folder / "text.png", dataOf("no image"));
  for (const auto& other : {""s, "."s, ".."s, "../outside.png"s, (folder / name).string(), "./" + name, name + '\0',
                            "link.png"s, "text.png"s, "absent.png"s, std::string(5000, 'a')}) {
    EXPECT_FALSE(fromURL(other)) << other;
  }
}

}  // namespace tavlo::common
