#pragma once

#include <benchmark/benchmark.h>

#include <exception>
#include <string>

#include "bench/Workload.h"

// What the suites on Google Benchmark share. SuiteMain.cpp has their main.
namespace Bench {

// Every suite defines it. A smoke test gets the smallest sizes only. May throw Skipped.
void addCases(bool smoke);

// Whether a case has failed: the program's exit status then tells.
inline bool suiteFailed = false;

inline void fail(benchmark::State& state, std::exception const& failure) {
  suiteFailed = true;
  state.SkipWithError(failure.what());
}

// A case in batches. make() builds what is measured, outside of the measured time: run(operations) of it
// returns the seconds that so many operations took, and check() throws where their result is wrong; a case
// without it checks in run(). "each" is the time of one operation.
template <class Make>
void addCase(std::string const& name, bool smoke, U64 operations, Make make) {
  auto const body = [operations, make](benchmark::State& state) {
    try {
      auto const measured = make();
      double seconds = 0;
      for (auto _ : state) {
        double const batch = measured->run(operations);
        state.SetIterationTime(batch);
        seconds += batch;
      }
      if constexpr (requires { measured->check(); }) measured->check();
      state.counters["each"] =
          seconds / (static_cast<double>(state.iterations()) * static_cast<double>(operations));
    } catch (std::exception const& failure) {
      fail(state, failure);
    }
  };
  benchmark::RegisterBenchmark(name.c_str(), body)
      ->UseManualTime()
      ->Iterations(smoke ? 1 : 10)
      ->Unit(benchmark::kMillisecond);
}

// A case that is one expression, of which Google Benchmark chooses the repetitions.
template <class Operation>
void addLoop(std::string const& name, Operation operation) {
  benchmark::RegisterBenchmark(name.c_str(), [operation](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(operation());
  });
}

inline std::string sized(std::string const& name, U32 ports) { return name + '/' + std::to_string(ports); }

}  // namespace Bench
