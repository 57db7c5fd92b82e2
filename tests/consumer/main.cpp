// SPDX-License-Identifier: Apache-2.0
// Just enough of a host to need all three libraries: their headers, their symbols, their start-up.
#include <Vorn/Vorn.h>

#include <cstdio>

struct Record final : Vorn::Entry {
  using Entry::Entry;
  Kes::S32 dumpEntry(Kes::VoidPtr out, Kes::CharPtrConst time, Kes::CharPtrConst name, bool) const override {
    return std::fprintf(static_cast<std::FILE*>(out), "%s %s %u\n", time, name, qLen()) > 0 ? 0 : -1;
  }
};

int main() {
  auto const recorder = Kes::makePtr<Vorn::CongestionData>(
      Kes::makePtr<Vorn::Hardware::Status>(), Vorn::testClockFactory(), Kes::makePtr<Vorn::Config>(),
      Kes::makePtr<Vorn::PortMetaDataDumper>());
  recorder->doAddToLog(Pylo::IntfId("Ethernet1"), Kes::makePtr<Record>(30'000, Vorn::Microseconds(7)));
  recorder->doMergeAndDumpEntries(stdout, "", "", "");
  std::printf("types %s\n", Vorn::typesRegistered() ? "registered" : "unknown");
}
