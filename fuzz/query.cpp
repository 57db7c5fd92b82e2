// SPDX-License-Identifier: Apache-2.0
// Queries of a history, as they come over the socket. Input: a request.

#include <regex>

#include "agent/query/QueryReport.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "fuzz/Harness.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Test::Bench bench;
  bench.recorder = Kes::makePtr<Vorn::CongestionData>(bench.status, bench.clock, bench.config,
                                                      Kes::makePtr<Agent::LinuxPortMetaDataDumper>());
  bench.recorder->allocateGlobalChunk();
  bench.clock->utcTimeIs(1'795'507'466.5);
  Agent::BurstFlows const flows{
      9, 3, {{{.etherType = Agent::FlowKey::ipv6}, 5, 2, 9, 1, "/\x1b,\""}, {{}, 9}}};
  for (Kes::U32 i = 1; i < 9; ++i) {
    Agent::CongestionUpdate const update{.timestamp = 1'795'507'460'000'000 + Kes::U64{i} * 100'000,
                                         .qLen = i * 1000,
                                         .drops = i % 3,
                                         .flows = i % 3 != 0 ? &flows : nullptr};
    auto const entry = Kes::makePtr<Agent::LinuxEntry>(i % 2 * 0x10010, i, update);
    i % 4 == 0 ? bench.recorder->doAddToGlobalLog(entry)
               : bench.recorder->doAddToLog(Pylo::IntfId(i % 3 == 0 ? "eth0" : "a,\x1b\""), entry);
  }
  try {
    Agent::Query const query = Agent::queryFrom("query " + Fuzz::Input(data, size).rest());
    Fuzz::check(Agent::queryFrom(Agent::requestFor(query)) == query, "round trip", Agent::requestFor(query));
    std::string const report = Test::Bench::written([&](std::FILE* out) {
      Agent::QueryReport(query, *bench.recorder, Agent::BurstLedger(), {"lo"}).write(out);
    });
    bool const isText = query.form != Agent::Query::Form::trace;
    Fuzz::check(!isText || (report.ends_with('\n') && report.find('\0') == std::string::npos), "report",
                report);
  } catch (Agent::QueryError const&) {
  } catch (std::regex_error const&) {
  }
  return 0;
}
