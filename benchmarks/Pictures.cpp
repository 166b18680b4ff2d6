#include "Pictures.hpp"

#include "Peers.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace tavlo::bench {
namespace {

using foundation::Data;

struct Canvas {
  std::size_t width, height;
  Data pixels = Data(width * height * 3);

  std::uint8_t* at(std::size_t x, std::size_t y) { return &pixels[(y * width + x) * 3]; }
};

using Colour = std::array<double, 3>;

std::uint8_t sample(double value) {
  return static_cast<std::uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
}

/// splitmix64: the same numbers everywhere.
class Random {
 public:
  std::uint64_t next() {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15U;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }
  /// Nearly normal, of deviation 1: the sum of eight bytes.
  double normal() {
    int sum = 0;
    for (std::uint64_t bits = next(); bits != 0; bits >>= 8U) sum += static_cast<int>(bits & 0xFFU);
    return (sum - 1020) / 209.0;
  }

 private:
  std::uint64_t state_ = 42;
};

/// Head and shoulders before a wall; x and y from 0 to 1.
Colour portraitAt(double x, double y) {
  const auto mix = [](const Colour& a, const Colour& b, double share) {
    const double t = std::clamp(share, 0.0, 1.0);
    return Colour{a[0] + (b[0] - a[0]) * t, a[1] + (b[1] - a[1]) * t, a[2] + (b[2] - a[2]) * t};
  };
  // From 0 outside an ellipse to 1 inside, over a soft edge.
  const auto inside = [=](double cx, double cy, double rx, double ry) {
    const double dx = (x - cx) / rx, dy = (y - cy) / ry;
    return (1 - dx * dx - dy * dy) * 12;
  };
  Colour colour = mix({205, 210, 214}, {150, 160, 175}, 0.6 * x + 0.4 * y);
  const double cloth = 60 + 8 * std::sin(x * 150) * std::sin(y * 140);
  colour = mix(colour, {cloth * 0.6, cloth * 0.8, cloth * 1.3}, inside(0.5, 1.05, 0.42, 0.33));
  const double hair = 45 + 10 * std::sin(x * 300 + 40 * y);
  colour = mix(colour, {hair * 1.2, hair * 0.9, hair * 0.7}, inside(0.5, 0.42, 0.2, 0.34));
  colour = mix(colour, {222 - 60 * x, 178 - 55 * x, 150 - 50 * x}, inside(0.5, 0.48, 0.155, 0.27));
  for (const double eye : {0.43, 0.57}) colour = mix(colour, {70, 55, 50}, inside(eye, 0.43, 0.025, 0.018));
  return mix(colour, {170, 90, 90}, inside(0.5, 0.62, 0.06, 0.02));
}

void paint(Canvas& canvas, double deviation) {
  Random random;
  for (std::size_t y = 0; y < canvas.height; ++y) {
    for (std::size_t x = 0; x < canvas.width; ++x) {
      const Colour colour = portraitAt(static_cast<double>(x) / static_cast<double>(canvas.width),
                                       static_cast<double>(y) / static_cast<double>(canvas.height));
      for (std::size_t i = 0; i < 3; ++i) canvas.at(x, y)[i] = sample(colour[i] + deviation * random.normal());
    }
  }
}

/// What JPEG with 4:2:0 leaves (ITU-T T.871): colour at half the resolution, smoothly spread again, times `saturation`.
void throughCamera(Canvas& canvas, double saturation) {
  const std::size_t width = canvas.width / 2, height = canvas.height / 2;
  struct Chroma {
    double cb = 0, cr = 0;
  };
  std::vector<Chroma> plane(width * height);
  const auto luma = [](const std::uint8_t* p) { return std::round(0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]); };
  for (std::size_t y = 0; y < height * 2; ++y) {
    for (std::size_t x = 0; x < width * 2; ++x) {
      const std::uint8_t* const p = canvas.at(x, y);
      Chroma& chroma = plane[y / 2 * width + x / 2];
      chroma.cb += (p[2] - luma(p)) * 0.564 / 4;
      chroma.cr += (p[0] - luma(p)) * 0.713 / 4;
    }
  }
  for (Chroma& chroma : plane) chroma = {std::round(chroma.cb * saturation), std::round(chroma.cr * saturation)};
  const auto neighbour = [](std::size_t at, std::size_t count) {
    return at % 2 == 0 ? std::max<std::size_t>(at / 2, 1) - 1 : std::min(at / 2 + 1, count - 1);
  };
  for (std::size_t y = 0; y < height * 2; ++y) {
    const Chroma* const near = &plane[y / 2 * width];
    const Chroma* const far = &plane[neighbour(y, height) * width];
    for (std::size_t x = 0; x < width * 2; ++x) {
      const std::size_t left = x / 2, right = neighbour(x, width);
      const auto spread = [&](double Chroma::*of) {
        return (9 * near[left].*of + 3 * near[right].*of + 3 * far[left].*of + far[right].*of) / 16;
      };
      std::uint8_t* const p = canvas.at(x, y);
      const double light = luma(p), cb = spread(&Chroma::cb), cr = spread(&Chroma::cr);
      p[0] = sample(light + 1.402 * cr);
      p[1] = sample(light - 0.344 * cb - 0.714 * cr);
      p[2] = sample(light + 1.772 * cb);
    }
  }
}

/// Few colours, as an artist would take them, and a grid of thin lines.
void draw(Canvas& canvas) {
  paint(canvas, 0);
  for (std::uint8_t& value : canvas.pixels) value = static_cast<std::uint8_t>(value / 32 * 32 + 16);
  for (std::size_t y = 0; y < canvas.height; ++y) {
    for (std::size_t x = 0; x < canvas.width; ++x) {
      if ((x + y) % 160 < 2 || (3 * x + canvas.height - y) % 400 < 3) std::fill_n(canvas.at(x, y), 3, std::uint8_t{32});
    }
  }
}

void drawRectangles(Canvas& canvas) {
  Random random;
  for (int i = 0; i < 600; ++i) {
    const std::uint64_t bits = random.next();
    const std::size_t left = bits % canvas.width, top = (bits >> 16U) % canvas.height;
    const std::size_t right = std::min(canvas.width, left + 4 + (bits >> 32U) % 200);
    const std::size_t bottom = std::min(canvas.height, top + 4 + (bits >> 40U) % 150);
    const std::uint64_t colour = random.next();
    for (std::size_t y = top; y < bottom; ++y) {
      for (std::size_t x = left; x < right; ++x) {
        for (unsigned c = 0; c < 3; ++c) canvas.at(x, y)[c] = static_cast<std::uint8_t>(colour >> 8U * c);
      }
    }
  }
}

uikit::UIImage make(const std::string& kind, const std::string& size) {
  if (size.empty()) return uikit::UIImage::decode(foundation::contentsOf(kind));
  const std::string sides = size == "7MP" ? "3072x2304" : size == "12MP" ? "4032x3024" : size;
  Canvas canvas{std::stoul(sides), std::stoul(sides.substr(sides.find('x') + 1))};
  if (kind == "s" || kind == "jpeg") {
    paint(canvas, 4);
  } else if (kind == "cam" || kind == "grey" || kind == "near-grey") {
    // With this noise its PNG is about as large as that of "s".
    paint(canvas, 5.5);
    throughCamera(canvas, kind == "cam" ? 1 : kind == "grey" ? 0 : 0.05);
  } else if (kind == "drawn") {
    draw(canvas);
  } else if (kind == "hard-edge") {
    drawRectangles(canvas);
  } else if (kind == "flat") {
    for (std::size_t i = 0; i < canvas.pixels.size(); ++i)
      canvas.pixels[i] = std::array<std::uint8_t, 3>{60, 110, 150}[i % 3];
  }
  const auto image =
      uikit::UIImage::fromPixels(canvas.pixels, canvas.width, canvas.height, canvas.width * 3, uikit::PixelFormat::rgb);
  return kind == "jpeg" ? uikit::UIImage::decode(jpegByHand(image)) : image;
}

}  // namespace

const uikit::UIImage& picture(const std::string& kind, const std::string& size) {
  static std::map<std::pair<std::string, std::string>, uikit::UIImage> made;
  auto& image = made[{kind, size}];
  if (image.channels() == 0) image = make(kind, size);
  return image;
}

std::string label(const std::string& kind, const std::string& size) {
  return size.empty() ? "photo" + kind.substr(kind.rfind('/')) : kind + "/" + size;
}

}  // namespace tavlo::bench
