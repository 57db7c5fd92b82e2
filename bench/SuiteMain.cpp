// The main of all suites: Google Benchmark's options, and --smoke, which runs each case once with the
// smallest sizes. Exits with 1 when a result was wrong, and with 77 where the suite cannot run.

#include <cstdio>
#include <cstring>
#include <vector>

#include "bench/Suite.h"

int main(int argc, char** argv) {
  static char shortest[] = "--benchmark_min_time=0.001";
  std::vector<char*> arguments(argv, argv + argc);
  bool smoke = false;
  for (char*& argument : arguments) {
    if (std::strcmp(argument, "--smoke") != 0) continue;
    smoke = true;
    argument = shortest;
  }
  int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  benchmark::AddCustomContext("compiler", VORN_BENCH_COMPILER);
  benchmark::AddCustomContext("flags", VORN_BENCH_FLAGS);
  try {
    Bench::addCases(smoke);
  } catch (Bench::Skipped const& skipped) {
    std::printf("skipped: %s\n", skipped.what());
    return 77;
  }
  bool const any = benchmark::RunSpecifiedBenchmarks() > 0;
  benchmark::ClearRegisteredBenchmarks();  // and with them what their cases hold
  benchmark::Shutdown();
  return any && !Bench::suiteFailed ? 0 : 1;
}
