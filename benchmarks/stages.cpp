#include "Cases.hpp"
#include "Peers.hpp"
#include "Pictures.hpp"

#include <Foundation/Hex.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/Print.hpp>
#include <TavloCA/TavloCA.internal.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <iostream>
#include <stdexcept>
#include <thread>

namespace tavlo::bench {
namespace {

using foundation::Data;

/// Standard output goes, for the life of this object, through a pipe to a reader that drops it.
class DrainedOutput {
 public:
  DrainedOutput() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("there is no pipe");
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    reader_ = std::jthread([from = ends[0]] {
      for (char part[65536]; read(from, part, sizeof part) > 0;) continue;
      close(from);
    });
    foundation::setPrintHandler({});
  }
  ~DrainedOutput() {
    std::cout.flush();
    foundation::setPrintHandler([](std::string_view) {});
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }
  DrainedOutput(const DrainedOutput&) = delete;
  DrainedOutput& operator=(const DrainedOutput&) = delete;

 private:
  const int saved_ = dup(STDOUT_FILENO);
  std::jthread reader_;
};

void addPNG(const std::string& kind, const std::string& size) {
  const auto add = [&](const std::string& who, auto encode) {
    addProduct(
        "png/" + label(kind, size) + "/" + who, [=] { return encode(picture(kind, size)); },
        [=](const Data& png) { checkPNG(png, picture(kind, size)); });
  };
  add("ours", [](const uikit::UIImage& image) { return uikit::UIImagePNGRepresentation(image).value(); });
  add("by-hand", pngByHand);
  add("libpng-huffman", pngByHuffman);
  add("libdeflate", pngByLibdeflate);
}

void addText(const std::string& size, std::size_t count) {
  const auto bytes = [count] { return picture("s", "7MP").pixels().first(count); };
  const Data key{4, 1, 2};
  const auto hex = lazily([=] { return hexByHand(bytes()); });
  const auto base64 = lazily([=] { return base64ByHand(bytes()); });
  const auto json = lazily([=] { return jsonByHand({}, base64(), key); });
  const auto record = lazily([=] {
    Verification verification;
    verification.version = "1.0";
    verification.signing.mdlPublicKey = foundation::toHexString(key);
    verification.biometry.selfie = base64();
    return verification;
  });
  const auto addGroup = [&](const std::string& group, const auto& text, auto ours, auto byHand, auto check) {
    const std::string name = group + "/bytes/" + size + "/";
    addProduct(name + "ours", ours, check);
    addProduct(name + "by-hand", byHand, check);
    // The floor of a text that costs nothing to make: a copy of it.
    addProduct(
        name + "memcpy", [=] { return std::string(text()); }, check);
  };
  addGroup(
      "hex", hex, [=] { return foundation::toHexString(bytes()); }, [=] { return hexByHand(bytes()); },
      [=](const std::string& text) { checkHex(text, bytes()); });
  addGroup(
      "base64url", base64, [=] { return common::base64UrlEncodedString(bytes()).value(); },
      [=] { return base64ByHand(bytes()); }, [=](const std::string& text) { checkBase64(text, bytes()); });
  addGroup(
      "json", json, [=] { return foundation::JSONEncoder().encode(record()); },
      [=] { return jsonByHand({}, base64(), key); }, [=](const auto& text) { checkJSON(viewOf(text), json()); });

  const auto addPrinter = [&](const std::string& who, auto print) {
    addCase(
        "print/pipe/" + size + "/" + who, [=] { return counter("bytes", json().size()); },
        [=] {
          const DrainedOutput drained;
          print(json());
        });
  };
  addPrinter("ours", [](const std::string& line) { foundation::print(line); });
  addPrinter("by-hand", [](const std::string& line) { std::cout << line << std::endl; });
}

}  // namespace

void addStageCases(const std::vector<std::string>& photos) {
  for (const std::string kind : {"s", "cam"}) {
    for (const std::string size : {"640x480", "1280x960", "7MP", "12MP"}) addPNG(kind, size);
  }
  for (const std::string kind : {"jpeg", "near-grey", "grey", "drawn", "hard-edge", "flat"}) {
    addPNG(kind, "1280x960");
  }
  for (const std::string& photo : photos) addPNG(photo, "");
  addText("1MB", 1'000'000);
  addText("20MB", 20'000'000);
}

}  // namespace tavlo::bench
