#include <Foundation/Print.hpp>
#include <TavloReader/Log.hpp>

#include "fuzz/fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  [[maybe_unused]] static const bool isReady = [] {
    tavlo::foundation::setPrintHandler([](std::string_view) {});
    tavlo::reader::Log::setHandler([](auto, std::string_view) {});
    tavlo::fuzz::run({});  // What a library makes at its first use is not part of an input's memory.
    return true;
  }();
  tavlo::fuzz::run({bytes, size});
  return 0;
}
