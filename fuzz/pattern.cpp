// SPDX-License-Identifier: Apache-2.0
// Interface patterns: what compiling and matching one may cost, and that the answer is the standard's.
// Input: the length of a name, the name, a pattern.

#include <pthread.h>
#include <time.h>

#include <functional>
#include <regex>

#include "Vorn/InterfacePattern.h"
#include "Vorn/internal/InterfaceFilter.h"
#include "fuzz/Harness.h"

namespace {

// What is promised. Instrumented or unoptimised code takes several times as much and is held to a multiple,
// so that also there nothing grows without bounds.
#if defined(VORN_SANITIZED) || !defined(__OPTIMIZE__)
constexpr std::size_t factor = 16;
#else
constexpr std::size_t factor = 1;
#endif
constexpr std::size_t stackLimit = factor * 256 * 1024;
constexpr double secondsLimit = 0.1 * factor;

struct Run {
  std::function<void()> work;
  double seconds = 0;
  std::size_t stack = 0;
};

void* perform(void* argument) {
  Run& run = *static_cast<Run*>(argument);
  run.work();
  timespec used;
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  run.seconds = static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
  return nullptr;
}

// Does the work on a painted stack of its own and looks how far down the paint is gone.
Run costOf(std::function<void()> work) {
  Run run{std::move(work)};
  static std::string const paint(4096, 'p');
  alignas(4096) static char stack[2 * stackLimit];
  static char* const end = stack + sizeof stack;
  [[maybe_unused]] static void* const painted = std::memset(stack, paint[0], sizeof stack);
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setstack(&attributes, stack, sizeof stack);
  pthread_t thread;
  Fuzz::check(::pthread_create(&thread, &attributes, perform, &run) == 0, "no thread");
  ::pthread_join(thread, nullptr);
  ::pthread_attr_destroy(&attributes);
  char* deepest = stack;
  while (std::memcmp(deepest, paint.data(), paint.size()) == 0) deepest += paint.size();
  run.stack = static_cast<std::size_t>(end - deepest);
  std::memset(deepest, paint[0], run.stack);
  return run;
}

// "yes", "no", or the number of the error.
std::string answerOf(std::function<bool()> const& question) {
  try {
    return question() ? "yes" : "no";
  } catch (std::regex_error const& error) {
    return "error " + std::to_string(error.code());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  std::string const name = input.text(input.below(65));
  std::string const pattern = input.rest();
  if (pattern.size() > 4096) return 0;

  // The first thread also pays for finding its functions.
  static std::size_t const ofThread = (costOf([] {}), costOf([] {}).stack);
  std::string compiled;
  Run const cost = costOf(
      [&] { compiled = answerOf([&] { return std::regex_match(name, Vorn::compilePattern(pattern)); }); });
  std::size_t const stackUsed = std::max(cost.stack, ofThread) - ofThread;
  Fuzz::check(stackUsed <= stackLimit, "stack", std::to_string(stackUsed) + " bytes: " + pattern);
  Fuzz::check(cost.seconds <= secondsLimit, "time", std::to_string(cost.seconds) + " s: " + pattern);

  Vorn::CommandOptions options;
  options.allInterfaces = false;
  options.interfacePatterns = {pattern};
  Vorn::InterfaceFilter filter(options);
  for (int asked = 0; asked < 2; ++asked)
    Fuzz::check(answerOf([&] { return filter.matches(name); }) == compiled, "filter", pattern);

  // Where the standard's matcher, which backtracks, is sure to end soon.
  bool const small =
      pattern.size() <= 24 && pattern.find('{') == std::string::npos &&
      std::count_if(pattern.begin(), pattern.end(), [](char c) { return std::strchr("*+?|", c); }) <= 2;
  if (!small || compiled.starts_with("error")) return 0;
  for (std::string const& like :
       {name.substr(0, 8), name.substr(0, 5) + "1\n", name.substr(0, 2), "x" + name.substr(0, 3)}) {
    bool const expected = std::regex_match(like, std::regex(pattern));
    Fuzz::check(std::regex_match(like, Vorn::compilePattern(pattern)) == expected, "standard", pattern);
    Fuzz::check(filter.matches(like) == expected, "filter and standard", pattern);
  }
  return 0;
}
