#include "support/Documents.hpp"
#include <UIKit/ImageCodecs.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>

namespace tavlo::uikit {
namespace {

using foundation::dataOf;
using foundation::textOf;
using test::bigEndian;
using test::Data;
using test::DataView;
using test::joined;

Data picture(std::string_view name) {
  return foundation::contentsOf(std::filesystem::path(TAVLO_PICTURES_DIR) / name);
}

/// Why `bytes` are refused; empty when they are not.
std::string refusal(DataView bytes) try {
  return UIImage::decode(bytes).channels() > 0 ? "" : "nothing came out";
} catch (const ImageError& error) {
  return error.what();
}

TEST(ImageTest, decodesEachKindOfPicture) {
  const std::pair<const char*, Data> colours[] = {
      {"grey-1-bit.png", {255}},
      {"grey-2-bits.png", {85}},
      {"grey-16-bits.png", {1}},
      {"grey-transparent.png", {7, 7, 7, 0}},
      {"grey-alpha.png", {10, 10, 10, 20}},
      {"palette.png", {200, 100, 50}},
      {"palette-alpha-interlaced.png", {200, 100, 50, 8}},
      {"rgb.png", {200, 100, 50}},
      {"rgba-16-bits-interlaced.png", {1, 2, 3, 4}},
      {"grey.jpg", {77}},
      {"colour.jpg", {200, 100, 50}},
      {"progressive.jpg", {200, 100, 50}},
      {"cmyk.jpg", {204, 163, 122}},
      {"cmyk-adobe.jpg", {204, 163, 122}},
      {"ycck-adobe.jpg", {204, 163, 122}},
      {"signed-2-bits.j2k", {85}},
      {"rgb-16-bits-tiled.j2k", {200, 100, 50}},
      {"ycc-420.j2k", {200, 112, 49}},
      {"grey-alpha.j2k", {10, 10, 10, 20}},
      {"grey.jp2", {77}},
      {"sycc.jp2", {200, 112, 49}},
      {"rgb-alpha.jp2", {1, 2, 3, 4}},
      {"palette.jp2", {200, 100, 50}},
  };
  for (const auto& [name, colour] : colours) {
    SCOPED_TRACE(name);
    const Data encoded = picture(name);
    ASSERT_EQ(refusal(encoded), "");
    const UIImage image = UIImage::decode(encoded);
    ASSERT_EQ((std::vector{image.width(), image.height(), image.channels()}), (std::vector{9UL, 5UL, colour.size()}));
    ASSERT_EQ(image.pixels().size(), 45 * colour.size());
    const int tolerance = imageFormat(encoded) == ImageFormat::jpeg ? 2 : 0;
    for (std::size_t i = 0; i < image.pixels().size(); ++i) {
      ASSERT_NEAR(image.pixels()[i], colour[i % colour.size()], tolerance) << i;
    }
  }
}

TEST(ImageTest, keepsEachPixelInItsPlace) {
  const UIImage noise = UIImage::decode(picture("noise.png"));
  for (const char* name : {"noise-interlaced.png", "noise.j2k", "noise.jp2"}) {
    EXPECT_TRUE(std::ranges::equal(UIImage::decode(picture(name)).pixels(), noise.pixels())) << name;
  }
  const UIImage grey = UIImage::decode(picture("grey.jpg"));
  const UIImage colour = UIImage::fromPixels(noise.pixels(), 25, 11, 76, PixelFormat::rgb);  // the same bytes
  for (const UIImage& image : {noise, colour, grey}) {
    const UIImage again = UIImage::decode(UIImagePNGRepresentation(image).value());
    EXPECT_EQ(again.width(), image.width());
    EXPECT_EQ(again.channels(), image.channels());
    EXPECT_TRUE(std::ranges::equal(again.pixels(), image.pixels()));
  }
  EXPECT_FALSE(UIImagePNGRepresentation(UIImage()));
}

TEST(ImageTest, turnsCameraPicturesUpright) {
  const char* const asSeen[] = {"012345", "103254", "543210", "452301", "024135", "420531", "531420", "135024"};
  const Data photo = picture("grey.jpg");
  for (std::uint8_t i = 1; i <= 8; ++i) {
    const Raster turned = upright({2, 3, 1, dataOf("012345")}, i);  // two squares wide and three high
    EXPECT_EQ(textOf(turned.pixels), asSeen[i - 1]);
    const Data motorola{'M', 'M', 0, 42, 0, 0, 0, 8, 0, 1, 1, 18, 0, 3, 0, 0, 0, 1, 0, i, 0, 0};
    const Data intel{'I', 'I', 42, 0, 9, 0, 0, 0, 0, 1, 0, 18, 1, 3, 0, 1, 0, 0, 0, i, 0, 0};
    for (const Data& tiff : {motorola, intel}) {
      const Data exif = joined({dataOf("Exif"), Data(2), tiff});
      const Data file = joined({DataView(photo).first(2), Data{0xFF, 0xE1}, bigEndian(exif.size() + 2, 2), exif,
                                DataView(photo).subspan(2)});
      EXPECT_EQ(UIImage::decode(file).width() == 5, turned.width == 3);
      for (std::size_t size = 0; size + 3 < exif.size(); ++size) {
        EXPECT_EQ(exifOrientation(DataView(exif).first(size)), 1) << size;
      }
    }
  }
}

TEST(ImageTest, refusesWhatIsCutShortOrDamaged) {
  for (const char* name : {"rgb.png", "colour.jpg", "progressive.jpg", "rgb-16-bits-tiled.j2k", "palette.jp2"}) {
    SCOPED_TRACE(name);
    const Data file = picture(name);
    const bool checksums = imageFormat(file) == ImageFormat::png;
    const bool needsEnd = checksums || imageFormat(file) == ImageFormat::jpeg;
    for (std::size_t size = 0; size < file.size() - (needsEnd ? 0 : 2); ++size) {
      EXPECT_NE(refusal(DataView(file).first(size)), "") << size;
    }
    for (std::size_t bit = 0; bit < file.size() * 8; ++bit) {
      Data damaged = file;
      damaged[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
      EXPECT_TRUE(!refusal(damaged).empty() || !checksums) << bit;
    }
  }
  const Data tiles = picture("rgb-16-bits-tiled.j2k");
  const DataView allButLast = DataView(tiles).first(textOf(tiles).rfind("\xFF\x90"));
  EXPECT_NE(refusal(joined({allButLast, Data{0xFF, 0xD9}})), "");
  EXPECT_EQ(refusal(dataOf("GIF89a")), "The bytes are neither PNG nor JPEG nor JPEG 2000");
}

TEST(ImageTest, refusesFromTheHeaderWhatWouldCostTooMuch) {
  const auto changed = [](Data file, std::size_t at, const Data& bytes) {
    std::ranges::copy(bytes, file.begin() + static_cast<std::ptrdiff_t>(at));
    return file;
  };
  const Data photo = picture("colour.jpg");
  const Data code = picture("rgb-16-bits-tiled.j2k");
  const auto sized = [&](std::size_t side, std::size_t tile) {
    const Data sides = joined({bigEndian(side, 4), bigEndian(side, 4)});
    return changed(changed(code, 8, sides), 24, joined({bigEndian(tile, 4), bigEndian(tile, 4)}));
  };
  const Data large = sized(2000, 2000);
  const std::size_t cod = textOf(code).find("\xFF\x52") + 2;
  Data precincts = changed(large, cod, {0, 14, 1});
  precincts.insert(precincts.begin() + static_cast<std::ptrdiff_t>(cod) + 12, {0x00, 0x11});  // of one sample each

  const std::pair<Data, std::string_view> pictures[] = {
      {picture("32768-wide.png"), "too large: 32768 x 1"},
      {changed(photo, textOf(photo).find("\xFF\xC0") + 5, {0x7F, 0xFF, 0x7F, 0xFF}), "too large: 32767 x 32767"},
      {picture("127-scans.jpg"), "more than 100 scans"},
      {sized(10'000, 10'000), "too large: 10000 x 10000"},
      {sized(3'000, 3'000), "samples"},
      {sized(100, 1), "tiles"},
      {changed(code, 40, {0, 200}), "200 components"},
      {changed(large, cod + 4, {0xFF, 0xFF}), "code-blocks"},  // layers
      {changed(large, cod + 8, {0, 0}), "code-blocks"},        // of 4 x 4 samples
      {precincts, "code-blocks"},
      {picture("palette-255-channels.jp2"), "palette"},
  };
  for (const auto& [bytes, reason] : pictures) {
    EXPECT_NE(refusal(bytes).find(reason), std::string::npos) << refusal(bytes) << " instead of " << reason;
  }
}

TEST(ImageTest, copiesCameraFrames) {
  const Data frame{1, 2, 3, 4, 5, 6, 0, 0, 7, 8, 9, 10, 11, 12};
  const UIImage image = UIImage::fromPixels(frame, 2, 2, 8, PixelFormat::rgb);
  EXPECT_TRUE(std::ranges::equal(image.pixels(), Data{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  constexpr std::size_t huge = std::numeric_limits<std::size_t>::max();
  for (const auto& [width, height, stride] :
       {std::array{0UL, 2UL, 8UL}, {2, 0, 8}, {2, 2, 5}, {2, 2, 9}, {2, 2, huge}, {huge, 2, 8}, {2, 3, 6}}) {
    EXPECT_THROW((void)UIImage::fromPixels(frame, width, height, stride, PixelFormat::rgb), ImageError) << stride;
  }
  EXPECT_THROW((void)UIImage::fromPixels(frame, 2, 2, 8, PixelFormat::rgba), ImageError);
}

TEST(ImageTest, findsAssetsByName) {
  EXPECT_FALSE(UIImage::named("rgb"));
  foundation::Bundle::installMain(std::make_shared<foundation::FolderBundle>(TAVLO_PICTURES_DIR));
  EXPECT_EQ(UIImage::named("rgb").value().width(), 9U);
  EXPECT_FALSE(UIImage::named("32768-wide"));
  foundation::Bundle::installMain(nullptr);
}

}  // namespace
}  // namespace tavlo::uikit
