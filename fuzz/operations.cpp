// SPDX-License-Identifier: Apache-2.0
// A recorder and its model, compared after each operation. Input: what to choose, operation after operation.

#include "fuzz/Harness.h"
#include "tests/model/Driver.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  {
    unsigned const seed = 21 + input.below(9);  // those with few ports and quick checks
    Test::Driver driver(seed, [&](Kes::U32 limit) {
      Kes::U32 const high = limit > 256 ? input.byte() << 8 : 0;
      return (high | input.byte()) % limit;
    });
    for (int step = 0; step < 60 && !input.empty(); ++step) {
      driver.step();
      std::string const difference = driver.difference();
      Fuzz::check(difference.empty(), "difference", difference);
      std::string const ofReports = step % 4 == 0 ? driver.differenceOfReports() : "";
      Fuzz::check(ofReports.empty(), "report", ofReports);
    }
  }
  Fuzz::check(Test::TestEntry::alive == 0, "records outlive the recorder");
  return 0;
}
