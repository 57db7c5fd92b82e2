// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <type_traits>

namespace Bench {

// What `work` returns when a child process does it. A child of a process that has done nothing yet finds an
// untouched heap: no measurement then depends on what was measured before it.
template <class Work>
auto resultOfChild(Work work) {
  using Result = decltype(work());
  static_assert(std::is_trivially_copyable_v<Result>);
  int ends[2];
  std::fflush(stdout);
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  pid_t const child = fork();
  if (child == -1) throw std::runtime_error("no child process");
  if (child == 0) {
    try {
      Result const result = work();
      std::fflush(stdout);
      _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
    } catch (std::exception const& failure) {
      std::fprintf(stderr, "%s\n", failure.what());
      _exit(1);
    }
  }
  close(ends[1]);
  Result result{};
  bool const whole = read(ends[0], &result, sizeof result) == sizeof result;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (!whole) throw std::runtime_error("a measurement has failed");
  return result;
}

}  // namespace Bench
