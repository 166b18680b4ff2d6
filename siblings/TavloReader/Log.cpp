#include <TavloReader/Log.hpp>

#include <Foundation/SharedService.hpp>

#include <array>
#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

namespace tavlo::reader {

namespace {

void writeToStandardError(Log::Level level, std::string_view message) {
  static constexpr std::array<std::string_view, 4> names = {"debug", "info", "warning", "error"};
  std::string line = "TavloReader ";
  line.append(names.at(static_cast<std::size_t>(level))).append(": ").append(message).append("\n");
  std::fwrite(line.data(), 1, line.size(), stderr);  // one call under one lock, so that lines never mix
}

constinit std::atomic threshold = Log::Level::info;
constinit foundation::SharedService<Log::Handler> handlerInForce([] {
  return std::make_shared<Log::Handler>(writeToStandardError);
});

}  // namespace

Log::Level Log::setThreshold(Level level) {
  return threshold.exchange(level);
}

Log::Handler Log::setHandler(Handler handler) {
  auto other = handler ? std::make_shared<Handler>(std::move(handler)) : nullptr;
  const auto previous = handlerInForce.exchange(std::move(other));
  return previous ? *previous : Handler();
}

void Log::write(Level level, std::string_view message) {
  if (level < threshold) return;
  (*handlerInForce.get())(level, message);
}

}  // namespace tavlo::reader
