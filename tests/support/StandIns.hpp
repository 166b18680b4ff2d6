#pragma once

#include <Foundation/StandIn.hpp>
#include <Foundation/URLSession.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <TavloReader/Log.hpp>
#include <TavloStore/Util.hpp>
#include <UIKit/UIDevice.hpp>

#include <map>

#include "support/Printed.hpp"

/// Services that a test puts in place of the real ones, with foundation::StandIn.
namespace tavlo::test {

struct FakeDevice final : uikit::UIDevice {
  explicit FakeDevice(std::string its, std::optional<std::string> name = {})
      : version(std::move(its)), machine(std::move(name)) {}
  [[nodiscard]] std::string systemVersion() const override { return version; }
  [[nodiscard]] std::optional<std::string> model() const override { return machine; }
  const std::string version;
  const std::optional<std::string> machine;
};

struct FakeKey final : security::SecKey {
  [[nodiscard]] foundation::Data data() const override { return {0x04, 0xAB}; }
};

/// Keeps the requests and answers each on the caller's thread with what it was given; throws the error if it `refuses`.
struct FakeSession final : foundation::URLSession {
  std::vector<foundation::URLRequest> requests;
  std::optional<foundation::Data> body;
  std::exception_ptr error;
  bool refuses = false;

  void start(foundation::URLRequest request, CompletionHandler handler) override {
    if (refuses) std::rethrow_exception(error);
    requests.push_back(std::move(request));
    handler(body, std::nullopt, error);
  }
};

/// Keeps images in memory; refuses while `broken`.
struct FakeImageStore final : common::ImageStore {
  std::map<std::string, uikit::UIImage, std::less<>> images;
  bool broken = false;

  [[nodiscard]] std::optional<std::string> persist(const uikit::UIImage& image) override {
    if (broken) return std::nullopt;
    const std::string name = "image-" + std::to_string(images.size() + 1);
    images.emplace(name, image);
    return name;
  }
  [[nodiscard]] std::optional<uikit::UIImage> load(std::string_view name) override {
    const auto found = images.find(name);
    return found == images.end() ? std::nullopt : std::optional(found->second);
  }
};

/// Catches the log messages of its scope as "level: text".
class Logged : public Lines {
 public:
  ~Logged() { reader::Log::setHandler(std::move(previous_)); }

 private:
  reader::Log::Handler previous_ = reader::Log::setHandler([this](reader::Log::Level level, std::string_view message) {
    static constexpr const char* names[] = {"debug: ", "info: ", "warning: ", "error: "};
    add(names[static_cast<std::size_t>(level)] + std::string(message));
  });
};

}  // namespace tavlo::test
