// SPDX-License-Identifier: Apache-2.0
// What the probe makes of the packets of a queue. Input: one choice a byte.

#include "fuzz/Harness.h"
#include "tests/model/ProbeModel.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  std::string const fault =
      Model::probeFault(static_cast<int>(std::min<std::size_t>(size / 4, 500)),
                        [&](Kes::U32 below) { return input.empty() ? 0 : input.byte() % below; });
  Fuzz::check(fault.empty(), fault.c_str());
  return 0;
}
