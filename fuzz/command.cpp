// SPDX-License-Identifier: Apache-2.0
// Commands of reports. Input: the length of a delimiter, the delimiter, a command.

#include <regex>

#include "Vorn/CommandOptions.h"
#include "fuzz/Harness.h"

namespace {

void checkSplit(std::string const& text, std::string const& delimiter) {
  std::vector<std::string> pieces;
  Vorn::split(text, delimiter, pieces);
  std::string joined;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    Fuzz::check(delimiter.empty() || pieces[i].find(delimiter) == std::string::npos, "uncut", pieces[i]);
    joined += (i == 0 ? "" : delimiter) + pieces[i];
  }
  bool const ends = !delimiter.empty() && text.ends_with(delimiter);
  Fuzz::check(joined == text || (ends && joined + delimiter == text), "pieces", joined);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  std::string const delimiter = input.text(input.below(4));
  std::string const command = input.rest();
  checkSplit(command, delimiter);

  Test::Bench bench;
  for (char const* name : {"Ethernet1", "Ethernet13/2", "Fabric1"})
    for (Kes::U32 i = 0; i < 3; ++i) bench.append(name, Test::record(i, ++bench.time));
  bench.port("Fabric1")->newPortMetaData(Vorn::portMetaDataFactory(1, Pylo::IntfId("Fabric1")));
  bench.port("Fabric1")->portMetaData(1)->timeOfCongestionStartIs(Test::us(900));
  bool const globals = command.size() % 2 == 0;
  if (globals) {
    bench.recorder->allocateGlobalChunk();
    bench.recorder->doAddToGlobalLog(Test::record(7, 1004));
  }
  using Options = Vorn::CommandOptions;
  Options const options = Vorn::parseCommand(command);
  try {
    std::string const report = bench.report(command);
    std::string const begin = "\nReport generated at 0.000000\n" + std::string(Test::header);
    Fuzz::check(report.starts_with(begin), "begin", report);
    bool const empty = options.report == Options::Report::globalBuffer && !globals;
    Fuzz::check(empty ? report == begin : report.ends_with(Test::footer), "end", report);
    // Four lines of frame; the start record may come on top of the limit.
    auto const lines = std::count(report.begin(), report.end(), '\n');
    if (options.report == Options::Report::text && !options.showAll && options.entryCount != 0)
      Fuzz::check(lines <= 4 + 1 + std::int64_t{options.entryCount}, "lines", report);
    if (options.report == Options::Report::csv && options.allInterfaces)
      Fuzz::check(lines == 4 + 10 + (options.showAll && globals), "all lines", report);
  } catch (std::regex_error const&) {
    Fuzz::check(!options.interfacePatterns.empty(), "error", command);
  }
  Fuzz::check(bench.recorder->checkInvariants().empty(), "invariants", command);
  return 0;
}
