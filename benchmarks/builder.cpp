#include "Cases.hpp"
#include "Peers.hpp"
#include "Pictures.hpp"
#include "Timing.hpp"

#include <Foundation/Data.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <sys/mman.h>

#include <cstring>
#include <numeric>

namespace tavlo::bench {
namespace {

struct Inputs {
  reader::NFCPassportModel model = reader::readDocument(std::filesystem::path(TAVLO_SAMPLES_DIR "/td3-jpeg")).model;
  DataGroups groups;
  security::SecKeyPair key = security::generateKeyPair(security::SecKeyType::ellipticCurve);

  Inputs() {
    for (const auto& [id, group] : model.dataGroupsRead()) groups.push_back(group);
  }
};

/// The least that any builder must do: read the pixels once, and write a body once to memory new to the process.
void readAndWrite(foundation::DataView pixels, std::size_t bodySize) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i + 8 <= pixels.size(); i += 8) {
    std::uint64_t part;
    std::memcpy(&part, pixels.data() + i, sizeof part);
    sum += part;
  }
  benchmark::DoNotOptimize(sum);
  // cppcheck-suppress invalidFunctionArg ; a mapping of no file has the descriptor -1 (mmap(2))
  void* const body = mmap(nullptr, bodySize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (body == MAP_FAILED) throw std::bad_alloc();
  std::memset(body, 'x', bodySize);
  benchmark::DoNotOptimize(body);
  munmap(body, bodySize);
}

}  // namespace

void addBuilderCases(const std::vector<std::string>& photos) {
  const auto inputs = std::make_shared<const Inputs>();
  const auto build = [inputs](const uikit::UIImage& selfie) {
    auto body = TavloCA::verificationObject(inputs->groups, selfie, *inputs->key.publicKey);
    if (!body) throw std::runtime_error("there is no request");
    return *std::move(body);
  };
  const auto add = [&](const std::string& kind, const std::string& size) {
    const std::string name = "builder/" + label(kind, size) + "/";
    const auto check = [=](const auto& body) {
      checkBody(viewOf(body), inputs->model, picture(kind, size), *inputs->key.publicKey);
    };
    addProduct(
        name + "ours", [=] { return build(picture(kind, size)); }, check);
    addProduct(
        name + "by-hand", [=] { return bodyByHand(inputs->model, picture(kind, size), *inputs->key.publicKey); },
        check);
    const auto bodySize = lazily([=] { return build(picture(kind, size)).size(); });
    addCase(
        name + "floor", [=] { return counter("bytes", bodySize()); },
        [=] { readAndWrite(picture(kind, size).pixels(), bodySize()); });
  };
  for (const char* kind : {"s", "cam"}) {
    for (const char* size : {"640x480", "1280x960", "7MP", "12MP"}) add(kind, size);
  }
  for (const std::string& photo : photos) add(photo, "");

  const auto buildSmall = [=] { return build(picture("cam", "160x120")); };
  addCase(
      "earlier-calls/builder/2000/ours",
      [=] {
        return Counters{{"late-over-early", lateOverEarly(2'000, buildSmall)}};
      },
      buildSmall);
}

}  // namespace tavlo::bench
