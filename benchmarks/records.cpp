#include "Cases.hpp"
#include "Peers.hpp"
#include "Pictures.hpp"

#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <TavloCA/CredentialDocument.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <cstdlib>
#include <stdexcept>

namespace tavlo::bench {
namespace {

using foundation::Data;
using uikit::UIImage;

/// A fresh record of `children` passports.
std::shared_ptr<CredentialDocument> familyOf(std::size_t children) {
  auto family = make<CredentialDocument>();
  CredentialDocument::Children passports(children);
  for (auto& passport : passports) passport = make<Passport>();
  family->setChildren(std::move(passports));
  return family;
}

double difference(const UIImage& a, const UIImage& b) {
  if (a.pixels().size() != b.pixels().size() || a.width() != b.width()) throw std::runtime_error("other sides");
  double sum = 0;
  for (std::size_t i = 0; i < a.pixels().size(); ++i) sum += std::abs(a.pixels()[i] - b.pixels()[i]);
  return sum / static_cast<double>(a.pixels().size());
}

}  // namespace

void addRecordCases(const std::vector<std::string>& photos) {
  const auto addDecoding = [](const std::string& name, auto encoded, auto original, double tolerance) {
    addCase(
        "decode/" + name + "/ours",
        [=] {
          if (difference(UIImage::decode(encoded()), original()) > tolerance) throw std::runtime_error("other pixels");
          return counter("bytes", encoded().size());
        },
        [=] { benchmark::DoNotOptimize(UIImage::decode(encoded())); });
  };
  const auto portrait = [] { return picture("cam", "480x600"); };
  const auto sample = [](const char* name) {
    return lazily([=] { return foundation::contentsOf(std::string(TAVLO_SAMPLES_DIR "/pictures/portrait.") + name); });
  };
  const auto sampleImage = lazily([=] { return UIImage::decode(sample("jpg")()); });
  addDecoding("png/480x600", lazily([=] { return pngByHand(portrait()); }), portrait, 0);
  addDecoding("jpeg/480x600", lazily([=] { return jpegByHand(portrait()); }), portrait, 4);
  addDecoding("jpeg/120x160", sample("jpg"), sampleImage, 0);
  // The same picture, packed with other losses.
  addDecoding("jp2/120x160", sample("jp2"), sampleImage, 8);
  addDecoding("j2k/120x160", sample("j2k"), sampleImage, 8);

  for (const std::string& photo : photos) {
    const auto bytes = lazily([=] { return foundation::contentsOf(photo); });
    addDecoding(
        label(photo, ""), bytes, [=] { return picture(photo, ""); }, 0);
  }

  for (const auto& [name, type] :
       {std::pair{"p256", security::SecKeyType::ellipticCurve}, {"rsa3072", security::SecKeyType::rsa}}) {
    const auto generate = [type = type] { return security::generateKeyPair(type).publicKey->data(); };
    addProduct(std::string("key/new/") + name + "/ours", generate, [=](const Data& key) {
      if (key == generate()) throw std::runtime_error("two keys are the same");
    });
  }

  for (const std::size_t children : {1U, 1000U}) {
    const auto family = lazily([=] { return familyOf(children); });
    const auto json = lazily([=] { return foundation::JSONEncoder().encode(family()); });
    const auto decode = [=] { return foundation::JSONDecoder().decode<std::shared_ptr<CredentialDocument>>(json()); };
    const auto encode = [=] { return foundation::JSONEncoder().encode(family()); };
    const std::string size = "/" + std::to_string(children) + "/ours";
    addProduct("document/encode" + size, encode, [=](const Data& text) {
      if (foundation::JSONEncoder().encode(decode()) != text)
        throw std::runtime_error("the record reads back differently");
    });
    addCase(
        "document/decode" + size,
        [=] {
          if (decode()->description() != family()->description()) throw std::runtime_error("another record");
          return counter("bytes", json().size());
        },
        [=] { benchmark::DoNotOptimize(decode()); });
  }
}

}  // namespace tavlo::bench
