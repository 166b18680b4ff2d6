#include "Cases.hpp"

#include <Foundation/Print.hpp>

#include <csignal>
#include <iostream>
#include <string_view>

// tavlo-benchmarks [--serve | PHOTO...] [google-benchmark's options]. With --serve it only serves, for other clients to
// measure, prints the two addresses and ends with its standard input.
int main(int count, char** arguments) {
  using namespace tavlo;
  std::signal(SIGPIPE, SIG_IGN);
  foundation::setPrintHandler([](std::string_view) {});
  const bench::Servers servers;
  benchmark::Initialize(&count, arguments);
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (words == std::vector<std::string>{"--serve"}) {
    std::cout << servers.plain.url() << "\n" << servers.tls.url() << std::endl;
    std::cin.get();
    return 0;
  }
  bench::addBuilderCases(words);
  bench::addStageCases(words);
  bench::addRecordCases(words);
  bench::addSessionCases(servers);
  benchmark::RunSpecifiedBenchmarks();
}
