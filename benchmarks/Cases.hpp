#pragma once

#include "Memory.hpp"
#include "Server.hpp"

#include <benchmark/benchmark.h>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace tavlo::bench {

// Each case is named group/input/size/who; benchmarks/table.py compares those that differ in `who` alone.

/// `run` is timed; its result, for one call, goes with the case as counters: name and value.
using Counters = std::vector<std::pair<std::string, double>>;

/// Registers a case that times `run()`, or `run(state)` where it pauses the clock. `prepare` is called once before
/// anything is timed, and gives the counters or throws when the product is wrong, which fails the case; `warmUp` before
/// each repetition.
template <class Prepare, class Run>
void addCase(const std::string& name, Prepare prepare, Run run, const std::function<void()>& warmUp = nullptr) {
  auto prepared = std::make_shared<std::optional<Counters>>();
  const auto measure = [prepare, run, warmUp, prepared](benchmark::State& state) {
    try {
      if (!*prepared) *prepared = prepare();
      if (warmUp) warmUp();
      for (auto _ : state) {
        if constexpr (std::is_invocable_v<Run, benchmark::State&>) {
          run(state);
        } else {
          run();
        }
      }
      for (const auto& [key, value] : **prepared) state.counters[key] = value;
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
    }
  };
  benchmark::RegisterBenchmark(name.c_str(), measure)->UseRealTime()->Unit(benchmark::kMillisecond);
}

/// One counter.
[[nodiscard]] inline Counters counter(const char* name, std::size_t value) {
  return {{name, static_cast<double>(value)}};
}

/// A case that times `make`, checks its product with `check`, and tells the product's size and the memory it took.
template <class Make, class Check>
void addProduct(const std::string& name, Make make, Check check) {
  addCase(
      name,
      [make, check] {
        // The first call makes the inputs too, which are not its own.
        std::optional<decltype(make())> product = make();
        product.reset();
        const std::size_t peak = peakMemory([&] { product.emplace(make()); });
        check(*product);
        auto counters = counter("bytes", product->size());
        counters.emplace_back("peak", peak);
        return counters;
      },
      [make] { benchmark::DoNotOptimize(make()); });
}

/// `make()`, made when it is first asked for: a run need not make what its filter leaves out.
template <class Make>
[[nodiscard]] auto lazily(Make make) {
  const auto made = std::make_shared<std::optional<decltype(make())>>();
  return [ make, made ]() -> const auto& {
    if (!*made) *made = make();
    return **made;
  };
}

/// The request, its pictures and its texts. `photos` are paths of pictures to measure beside the made ones.
void addBuilderCases(const std::vector<std::string>& photos);
void addStageCases(const std::vector<std::string>& photos);
/// Portraits, keys and documents.
void addRecordCases(const std::vector<std::string>& photos);
void addSessionCases(const Servers& servers);

}  // namespace tavlo::bench
