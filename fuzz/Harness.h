// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size);

// What the harnesses share. Each takes any bytes for an input and aborts where a promise is broken.
namespace Fuzz {

inline void check(bool holds, char const* what, std::string const& about = "") {
  if (holds) return;
  std::fprintf(stderr, "broken: %s: %s\n", what, about.c_str());
  std::abort();
}

// The bytes of an input, taken from the front. Behind its end there are zeros.
class Input {
 public:
  Input(unsigned char const* data, std::size_t size) : rest_(reinterpret_cast<char const*>(data), size) {}

  bool empty() const { return rest_.empty(); }
  Kes::U32 below(Kes::U32 limit) { return byte() % limit; }
  Kes::U32 byte() {
    std::string const one = text(1);
    return one.empty() ? 0 : static_cast<unsigned char>(one[0]);
  }
  std::string text(std::size_t size) {
    std::string const taken(rest_.substr(0, size));
    rest_.remove_prefix(taken.size());
    return taken;
  }
  std::string rest() { return text(rest_.size()); }

 private:
  std::string_view rest_;
};

}  // namespace Fuzz
