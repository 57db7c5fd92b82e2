// SPDX-License-Identifier: Apache-2.0
// made_reports DIRECTORY RECORDS: a made history of so many records as a page, a trace and comma-separated
// lines, the trace's time in microseconds on the standard output. Names are such as a page and a terminal
// would obey.

#include <ctime>
#include <iostream>

#include "agent/query/QueryReport.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "tests/support.h"

using namespace Agent;

int main(int, char** arguments) {
  Test::Bench bench;
  bench.recorder = Kes::makePtr<Vorn::CongestionData>(bench.status, bench.clock, bench.config,
                                                      Kes::makePtr<LinuxPortMetaDataDumper>());
  bench.recorder->numSharedChunksIs(1000);
  bench.config->defaultThresholdsConfigIs({262'144, 65'536, true});
  Kes::U64 const count = std::stoull(arguments[2]);
  Kes::U64 moment = 1'795'507'200'000'000;
  for (Kes::U64 i = 0; i < count; ++i) {
    constexpr char const* names[] = {"uplink", "access", "</script><script>alert(1)</script>",
                                     "<img src=x onerror=alert(1)>'\"&amp;\x1b[31m\xe2\x80\xae"};
    Kes::U64 const some = Kes::hashNumber(i + 1) >> 16;
    moment += 12'000 + some % 60'000 * (some / 64 % 64 == 0 ? 300 : 1);
    auto const length = static_cast<Kes::U32>(15'000 + some / 7 % 300'000 * (some / 11 % 97) / 97);
    auto const drops = static_cast<Kes::U32>(length > 250'000 ? some % 150 : 0);
    auto const entry = Kes::makePtr<LinuxEntry>(static_cast<QueueKey>(some / 13 % 2 * 0x10010), 0x80010000,
                                                CongestionUpdate{.timestamp = moment,
                                                                 .qLen = length,
                                                                 .peakBound = length + 12'112,
                                                                 .drops = drops,
                                                                 .latency = length / 13});
    entry->durationIs(Test::us(i % 40 == 39 ? 400'000 : 800 + some % 9'000));
    Pylo::IntfId const intfId(names[some / 5 % 4]);
    bench.recorder->doAddToLog(intfId, entry);
    if (i != 2 && i + 1 != count) continue;
    auto const queue = Vorn::portMetaDataFactory(i == 2 ? 0x10020 : entry->queue(), intfId);
    queue->timeOfCongestionStartIs(Test::us(i == 2 ? 1'795'507'200'000'000 : moment));
    bench.recorder->portData(intfId)->portMetaDataIs(queue);
  }
  bench.clock->utcTimeIs(Vorn::Microseconds::toSeconds(Test::us(moment + 2'000'000)));
  auto const write = [&](char const* file, Query const& query, QueryReport::Origin origin = {}) {
    std::clock_t const begin = std::clock();
    std::FILE* const out = std::fopen((std::string(arguments[1]) + '/' + file).c_str(), "w");
    QueryReport(query, *bench.recorder, BurstLedger(), {}, origin).write(out);
    std::fclose(out);
    return std::clock() - begin;
  };
  write("records.csv", {.form = Query::Form::csv});
  write("page.html", {.report = Query::Report::timeline, .form = Query::Form::html});
  write("saved.pb", {.form = Query::Form::trace, .count = 3}, QueryReport::Origin::file);
  std::cout << write("trace.pb", {.form = Query::Form::trace}) * 1'000'000 / CLOCKS_PER_SEC << '\n';
}
