// SPDX-License-Identifier: Apache-2.0
#include "agent/record/ReportFooter.h"

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "Kes/Format.h"
#include "Vorn/InterfacePattern.h"
#include "agent/base/Printable.h"
#include "agent/record/InterfaceHistory.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/LocalZone.h"

namespace Agent {

namespace {

using Kes::U64;
using Vorn::CommandOptions;
using Vorn::Microseconds;

constexpr std::size_t mostNamed = 5;

// The interfaces of a report. As there, a pattern that follows on one that matches is not looked at.
class Selection {
 public:
  explicit Selection(CommandOptions const& options) : options_(options) {}

  bool holds(std::string const& name) {
    if (options_.allInterfaces) return true;
    for (std::size_t i = 0; i < options_.interfacePatterns.size(); ++i) {
      if (i == compiled_.size()) compiled_.push_back(Vorn::compilePattern(options_.interfacePatterns[i]));
      if (std::regex_match(name, compiled_[i])) return true;
    }
    return false;
  }

 private:
  CommandOptions const& options_;
  std::vector<std::regex> compiled_;
};

// When the oldest records began that the options' age limit lets pass.
Microseconds beginning(CommandOptions const& options, Vorn::CongestionData const& recorder) {
  U64 const now = Microseconds::fromSeconds(recorder.clock()->getUTCTime()).value();
  U64 const age = options.ageLimit * Microseconds::microsecondsInSecond();
  return Microseconds(options.ageLimit == 0 ? 0 : now - std::min(now, age));
}

bool hasLine(Vorn::Entry const& entry, CommandOptions const& options) {
  auto const* const record = options.drops ? dynamic_cast<LinuxEntry const*>(&entry) : nullptr;
  return record == nullptr || record->drops() != 0;
}

// The times of the records that the report has lines of, oldest first.
std::vector<Microseconds> timesOfLines(CommandOptions const& options, Vorn::CongestionData const& recorder,
                                       Selection& selection) {
  std::vector<Microseconds> times;
  for (auto const& [intfId, port] : recorder.portDataMap()) {
    if (!selection.holds(intfId.shortName().str())) continue;
    for (Vorn::Chunk::Ptr const& chunk : port->chunkIterator())
      for (Vorn::Entry::Ptr const& entry : chunk->entryIterator())
        if (hasLine(*entry, options)) times.push_back(entry->timestamp());
  }
  std::sort(times.begin(), times.end());
  return times;
}

std::vector<InterfaceHistory> holesOf(CommandOptions const& options, Vorn::CongestionData const& recorder) {
  Selection selection(options);
  std::vector<InterfaceHistory> holes = interfaceHistories(recorder);
  Microseconds const since = beginning(options, recorder);
  std::erase_if(holes, [&](InterfaceHistory const& history) {
    return history.lost == 0 || history.whole < since || !selection.holds(history.name);
  });
  if (options.entryCount == 0 || holes.empty()) return holes;
  std::vector<Microseconds> const times = timesOfLines(options, recorder, selection);
  std::erase_if(holes, [&](InterfaceHistory const& history) {
    auto const later = std::upper_bound(times.begin(), times.end(), history.whole);
    return times.end() - later >= std::ptrdiff_t{options.entryCount};
  });
  return holes;
}

}  // namespace

Kes::String footerFor(CommandOptions const& options, Vorn::CongestionData const& recorder) {
  if (options.report != CommandOptions::Report::text) return {};
  return holesText(holesOf(options, recorder));
}

std::string holesText(std::vector<InterfaceHistory> const& holes) {
  if (holes.empty()) return {};
  std::string text = "\nNot all of this history is left, as the pool of records was too small:\n";
  std::size_t const named = std::min(holes.size(), mostNamed);
  for (std::size_t i = 0; i < named; ++i) {
    InterfaceHistory const& hole = holes[i];
    text += Kes::format("  %-12s whole since %s; %s from before are lost\n",
                        printable(hole.name, longestShownName), LocalZone::ofReports().moment(hole.whole),
                        recordsText(hole.lost))
                .str();
  }
  if (holes.size() == named) return text;
  return text + Kes::format("  and %u more, of which %s are lost\n", holes.size() - named,
                            recordsText(lostOf(holes, named)))
                    .str();
}

}  // namespace Agent
