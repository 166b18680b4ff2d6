#include <Foundation/Print.hpp>
#include <Foundation/SharedService.hpp>

#include <cstdio>
#include <memory>
#include <utility>

namespace tavlo::foundation {

namespace {

void printToStandardOutput(std::string_view line) {
  // One lock around both pieces: lines of several threads never mix.
  flockfile(stdout);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
  funlockfile(stdout);
}

constinit SharedService<PrintHandler> handlerInForce([] {
  return std::make_shared<PrintHandler>(printToStandardOutput);
});

}  // namespace

void print(std::string_view line) {
  (*handlerInForce.get())(line);
}

PrintHandler setPrintHandler(PrintHandler handler) {
  auto other = handler ? std::make_shared<PrintHandler>(std::move(handler)) : nullptr;
  const auto previous = handlerInForce.exchange(std::move(other));
  return previous ? *previous : PrintHandler(printToStandardOutput);
}

}  // namespace tavlo::foundation
