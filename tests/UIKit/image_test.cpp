#include <UIKit/ImageCodecs.hpp>

#include <gtest/gtest.h>
#include <libdeflate.h>

#include <bit>
#include <random>

namespace tavlo::uikit {
namespace {

using namespace foundation;

Data picture(std::string_view name) {
  return contentsOf(std::filesystem::path(TAVLO_PICTURES_DIR) / name);
}

/// Why `bytes` are refused; empty when they are not.
std::string refusal(DataView bytes) try {
  return UIImage::decode(bytes).channels() > 0 ? "" : "nothing came out";
} catch (const ImageError& error) {
  return error.what();
}

TEST(ImageTest, decodesEachKindOfPicture) {
  const std::pair<Data, std::vector<std::string>> kinds[] = {
      {{255}, {"grey-1-bit.png"}},
      {{85}, {"grey-2-bits.png", "signed-2-bits.j2k"}},
      {{1}, {"grey-16-bits.png"}},
      {{77}, {"grey.jpg", "grey.jp2"}},
      {{7, 7, 7, 0}, {"grey-transparent.png"}},
      {{10, 10, 10, 20}, {"grey-alpha.png", "grey-alpha.j2k"}},
      {{200, 100, 50}, {"palette.png", "rgb.png", "colour.jpg", "progressive.jpg"}},
      {{200, 100, 50}, {"rgb-16-bits-tiled.j2k", "palette.jp2"}},
      {{200, 100, 50, 8}, {"palette-alpha-interlaced.png"}},
      {{1, 2, 3, 4}, {"rgba-16-bits-interlaced.png", "rgb-alpha.jp2"}},
      {{204, 163, 122}, {"cmyk.jpg", "cmyk-adobe.jpg", "ycck-adobe.jpg"}},
      {{200, 112, 49}, {"ycc-420.j2k", "sycc.jp2"}}};
  for (const auto& [colour, names] : kinds) {
    for (const auto& name : names) {
      const UIImage image = UIImage::decode(picture(name));
      ASSERT_EQ(image.width(), 9U);
      ASSERT_EQ(image.pixels().size(), 45 * colour.size());
      for (std::size_t i = 0; i < image.pixels().size(); ++i) {
        ASSERT_NEAR(image.pixels()[i], colour[i % colour.size()], name.ends_with("jpg") ? 2 : 0) << name << " " << i;
      }
    }
  }
}

TEST(ImageTest, keepsEachPixelInItsPlace) {
  Bundle::installMain(std::make_shared<FolderBundle>(TAVLO_PICTURES_DIR));
  EXPECT_FALSE(UIImage::named("32768-wide"));
  const UIImage noise = UIImage::named("noise").value();
  for (const char* name : {"noise-interlaced.png", "noise.j2k", "noise.jp2"}) {
    EXPECT_TRUE(std::ranges::equal(UIImage::decode(picture(name)).pixels(), noise.pixels())) << name;
  }
}

TEST(ImageTest, writesEveryKindOfPictureWithoutLoss) {
  std::minstd_rand engine(7);  // NOLINT(cert-msc51-cpp): the same bytes each time
  const auto random = [&engine] { return static_cast<unsigned>(engine() >> 4U); };
  const auto rare = [&random] { return static_cast<unsigned>(std::countl_zero(random() << 5U | 1U)); };
  const std::function<unsigned(unsigned x, unsigned y, unsigned channel)> kinds[] = {
      [&](auto...) { return random(); },
      [](unsigned x, unsigned y, auto) { return x + y; },  // grey
      [](unsigned x, unsigned y, unsigned channel) { return x * y / 9 % 31 * (channel + 1); },
      [](unsigned x, unsigned y, unsigned i) { return i < 2 ? x / (3 - i) + y * i : x - y; },
      [&](unsigned x, unsigned y, auto) { return x / 9 + y / 7 + random() % 9; },
      [&](auto...) { return rare() % 2 == 0 ? rare() : 0U - rare(); },
      [&](unsigned, unsigned y, auto) { return y % 8 == 0 ? random() : 0U; }};
  const std::shared_ptr<libdeflate_decompressor> inflater(libdeflate_alloc_decompressor(),
                                                          libdeflate_free_decompressor);
  const auto check = [&](std::size_t kind, std::size_t width, std::size_t height, std::size_t channels) {
    SCOPED_TRACE(testing::Message() << kind << " " << width << "x" << height << "x" << channels);
    Data pixels(width * height * channels);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      const auto x = static_cast<unsigned>(i / channels % width), y = static_cast<unsigned>(i / channels / width);
      pixels[i] = static_cast<std::uint8_t>(kinds[kind](x, y, static_cast<unsigned>(i % channels)));
    }
    const auto format = channels == 3 ? PixelFormat::rgb : PixelFormat::rgba;
    const UIImage image = UIImage::fromPixels(pixels, width, height, width * channels, format);
    const Data png = *UIImagePNGRepresentation(image);
    const UIImage again = UIImage::decode(png);
    // libpng insists neither on the chunk that names the colours nor on a zlib stream of just the rows.
    EXPECT_EQ(textOf(DataView(png).subspan(37, 4)), "sRGB");
    Data stream, rows(height * (width * (png[25] == 2 ? 3 : png[25] == 6 ? 4 : 1) + 1));
    writePNG(image, [&stream](DataView chunk, auto) {
      if (textOf(chunk.subspan(4, 4)) == "IDAT") stream.insert(stream.end(), chunk.begin() + 8, chunk.end() - 4);
    });
    EXPECT_EQ(libdeflate_zlib_decompress(inflater.get(), stream.data(), stream.size(), rows.data(), rows.size(), {}),
              0);
    const std::size_t step = channels / again.channels();  // 3 for a colour picture that went out as grey
    EXPECT_TRUE(step == (kind == 1 && channels == 3 ? 3U : 1U) || width * height < 1600);
    for (std::size_t i = 0; i < pixels.size(); ++i) ASSERT_EQ(again.pixels()[i / step], pixels[i]) << i;
    EXPECT_LE(png.size(), pixels.size() + pixels.size() / 50 + 300);
  };
  for (std::size_t i = 0; i < 1600; ++i) check(random() % std::size(kinds), 1 + i % 40, 1 + i / 40, 3 + random() % 2);
  for (std::size_t i = 0; i < 2 * std::size(kinds); ++i) check(i / 2, 517, 301, 3 + i % 2);
  check(0, maximumImageSide, 5, 4);
  check(4, 1, maximumImageSide, 3);
}

TEST(ImageTest, turnsCameraPicturesUpright) {
  const char* const asSeen[] = {"012345", "103254", "543210", "452301", "024135", "420531", "531420", "135024"};
  for (int i = 1; i <= 8; ++i) {
    const Raster turned = upright({2, 3, 1, dataOf("012345")}, i);  // two squares wide and three high
    EXPECT_EQ(textOf(turned.pixels), asSeen[i - 1]);
    EXPECT_EQ(turned.width, i < 5 ? 2U : 3U);
  }
  for (const char* name : {"orientation-6-motorola.jpg", "orientation-6-intel.jpg"}) {
    const Data photo = picture(name);
    EXPECT_EQ(UIImage::decode(photo).width(), 5U);
    for (std::size_t size = 0; size < 26; ++size) EXPECT_EQ(exifOrientation(DataView(photo).subspan(6, size)), 1);
  }
}

TEST(ImageTest, refusesWhatIsCutShortOrDamaged) {
  const std::pair<const char*, std::size_t> pictures[] = {
      {"rgb.png", 0}, {"progressive.jpg", 0}, {"rgb-16-bits-tiled.j2k", 2}, {"palette.jp2", 2}};
  for (const auto& [name, spare] : pictures) {
    const Data file = picture(name);
    for (std::size_t size = 0; size < file.size() - spare; ++size) {
      EXPECT_NE(refusal(DataView(file).first(size)), "") << name << " " << size;
    }
    for (std::size_t bit = 0; bit < file.size() * 8; ++bit) {
      Data damaged = file;
      damaged[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
      EXPECT_TRUE(!refusal(damaged).empty() || imageFormat(file) != ImageFormat::png) << bit;
    }
  }
  EXPECT_EQ(refusal(dataOf("GIF89a")), "The bytes are neither PNG nor JPEG nor JPEG 2000");
}

TEST(ImageTest, refusesFromTheHeaderWhatWouldCostTooMuch) {
  const std::pair<std::string, std::vector<std::string>> pictures[] = {
      {"too large: ", {"32768-wide.png", "32767-square.jpg", "10000-square.j2k"}},
      {"more than 100 scans", {"127-scans.jpg"}},
      {"samples", {"3000-square.j2k"}},
      {"tiles", {"10000-tiles.j2k"}},
      {"200 components", {"200-components.j2k"}},
      {"code-blocks", {"65535-layers.j2k", "4-square-code-blocks.j2k", "1-square-precincts.j2k"}},
      {"palette", {"palette-255-channels.jp2"}},
      {"cut short", {"last-tile-missing.j2k"}}};
  for (const auto& [reason, names] : pictures) {
    for (const auto& name : names) EXPECT_NE(refusal(picture(name)).find(reason), std::string::npos) << name;
  }
}

TEST(ImageTest, copiesCameraFrames) {
  const Data frame = dataOf("abcdef..ghijkl");
  EXPECT_EQ(textOf(UIImage::fromPixels(frame, 2, 2, 8, PixelFormat::rgb).pixels()), "abcdefghijkl");
  EXPECT_THROW((void)UIImage::fromPixels(frame, 2, 2, 8, PixelFormat::rgba), ImageError);
  for (const auto& [width, height, stride] : std::vector<std::array<std::size_t, 3>>{
           {0, 2, 8}, {2, 0, 8}, {2, 2, 5}, {2, 2, 9}, {2, 2, SIZE_MAX}, {SIZE_MAX, 2, 8}, {2, 3, 6}}) {
    EXPECT_THROW((void)UIImage::fromPixels(frame, width, height, stride, PixelFormat::rgb), ImageError) << stride;
  }
}

}  // namespace
}  // namespace tavlo::uikit
