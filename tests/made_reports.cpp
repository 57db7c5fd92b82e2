// SPDX-License-Identifier: Apache-2.0
// made_reports DIRECTORY RECORDS: a made history of so many records as a page, a trace and comma-separated
// lines, the trace's time in microseconds on the standard output. Names are such as a page and a terminal
// would obey.

#include <chrono>
#include <fstream>
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
    entry->durationIs(Test::us(800 + some % 9'000));
    bench.recorder->doAddToLog(Pylo::IntfId(names[some / 5 % 4]), entry);
  }
  bench.clock->utcTimeIs(Vorn::Microseconds::toSeconds(Test::us(moment + 2'000'000)));
  auto const write = [&](char const* file, Query const& query) {
    auto const begin = std::chrono::steady_clock::now();
    std::FILE* const out = std::fopen((std::string(arguments[1]) + '/' + file).c_str(), "w");
    QueryReport(query, *bench.recorder, {}).write(out);
    std::fclose(out);
    return std::chrono::steady_clock::now() - begin;
  };
  write("records.csv", {.form = Query::Form::csv});
  write("page.html", {.report = Query::Report::timeline, .form = Query::Form::html});
  auto const spent = write("trace.pb", {.form = Query::Form::trace});
  std::cout << std::chrono::duration_cast<std::chrono::microseconds>(spent).count() << '\n';
}
