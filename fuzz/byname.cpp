// SPDX-License-Identifier: Apache-2.0
// What is asked for and changed by name. Input: requests, one a line.

#include <syslog.h>
#include <unistd.h>

#include "agent/base/Protocol.h"
#include "agent/query/Query.h"
#include "agent/serve/OwnRequests.h"
#include "fuzz/Harness.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  // Changes are noted in the system log, which has seen enough of them.
  static bool const silent = (::setlogmask(LOG_MASK(LOG_EMERG)), true);
  Fuzz::Input input(data, size);
  std::vector<std::string> requests;
  Vorn::split(input.rest(), "\n", requests);
  {
    Test::Bench bench;
    for (Kes::U32 i = 0; i < 4; ++i) bench.update("eth0", 1500, 1000 + i, 0, 7);
    bench.append("a]b", Test::record(9, 3000));
    // Full, and but for its first slots of holes.
    bench.port("eth0")->chunkTail()->entryMetadataIs({Vorn::EntryIndex(), Vorn::entriesPerChunk});
    bench.update("eth0", 1500, 2000, 0, 7);
    bench.port("eth0")->newPortMetaData(Vorn::portMetaDataFactory(65537, Pylo::IntfId("eth0")));
    bench.recorder->allocateGlobalChunk();
    bench.recorder->doAddToGlobalLog(Test::record(5, 1000));
    Agent::BurstLedger const ledger;
    Agent::OwnRequests const answer(
        bench.recorder, ledger, [] { return Agent::AgentStatus(); }, [] { return "none"; },
        [] { return std::vector<std::string>(); }, [] {});
    int const records = Test::TestEntry::alive;
    for (std::string const& request : requests) {
      if (Agent::isQuery(Agent::Protocol::requestIn(request))) continue;  // is about this agent's own records
      // A refusal is an answer too; nothing is thrown.
      auto const answered = answer(request, ::geteuid());
      if (answered && answered->failure.empty()) {
        std::string const text = answered->writer ? Test::Bench::written(answered->writer) : answered->text;
        Fuzz::check(text.ends_with('\n'), "answer", request);
      }
      std::string const broken = bench.recorder->checkInvariants();
      Fuzz::check(broken.empty(), "invariants", broken + ": " + request);
      Fuzz::check(Test::TestEntry::alive == records, "records", request);
    }
    // The recorder goes on: its logs, its pool and its reports.
    bench.fill("eth0", 1, 2 * Vorn::entriesPerChunk);
    Fuzz::check(bench.report("csv").ends_with(Test::footer), "report");
  }
  Fuzz::check(Test::TestEntry::alive == 0 && silent, "records outlive the recorder");
  return 0;
}
