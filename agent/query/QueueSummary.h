// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "agent/query/RecordSet.h"
#include "agent/record/ReportColumn.h"

namespace Agent {

// What a queue went through in a window.
struct QueueSummary {
  std::string_view interface;  // short name; borrowed from the recorder
  QueueKey queue = noQueue;
  bool ofSum = false;  // of the records of the global buffer
  Kes::U64 bursts = 0;
  Kes::U64 congested = 0;              // microseconds inside the window
  Kes::U64 share = 0;                  // of the window, in millionths
  Kes::U64 longest = 0;                // microseconds
  Kes::U32 peak = 0;                   // bytes
  Kes::U32 latency = 0;                // microseconds, the worst; 0: none is known
  Kes::U64 drops = 0;                  // packets
  Kes::U64 last = 0;                   // when its last burst began
  bool open = false;                   // it is congested now,
  Kes::U32 openLength = 0;             // so far up to so many bytes
  std::string bar{};                   // the same as a picture, where it is wanted
  Vorn::Thresholds thresholds{};       // of its interface; 0 where none are known
  std::vector<std::size_t> records{};  // its places in the set, in the set's order
};

// The columns of `vorn-show top`, told once (RecordColumns.h does the same for records).
inline constexpr ReportColumns<QueueSummary, 15> summaryColumns = [] {
  using Row = QueueSummary const&;
  return ReportColumns<QueueSummary, 15>{{
      {"interface",
       Unit::name,
       everywhere,
       {"Interface", 12, 1, 1},
       "short name",
       [](Row row) -> ReportValue { return row.interface; }},
      {"queue",
       Unit::name,
       everywhere,
       {"Queue", 6, 2, 1},
       "the queue as `tc` writes it",
       [](Row row) { return row.ofSum ? ReportValue() : QueueName::ofKey(row.queue); }},
      {"queue_id",
       Unit::count,
       everywhere,
       {},
       "the same as the number that it has by name",
       [](Row row) { return row.ofSum ? ReportValue() : Kes::U64{row.queue}; }},
      {"bursts",
       Unit::count,
       everywhere,
       {"Bursts", 6, 3, 1},
       "bursts that lasted at some time in the window",
       [](Row row) -> ReportValue { return row.bursts; }},
      {"congested_us",
       Unit::microseconds,
       everywhere,
       {},
       "microseconds of the window in which the queue was congested",
       [](Row row) -> ReportValue { return row.congested; }},
      {"congested_share",
       Unit::millionths,
       everywhere,
       {"Share", 8, 4, 1},
       "the same as a share of the window",
       [](Row row) -> ReportValue { return row.share; }},
      {"longest_us",
       Unit::microseconds,
       everywhere,
       {"Longest", 11, 5, 1},
       "microseconds that the longest burst lasted",
       [](Row row) -> ReportValue { return row.longest; }},
      {"peak_bytes",
       Unit::bytes,
       everywhere,
       {"Peak", 10, 6, 1},
       "the longest backlog that a look has found",
       [](Row row) -> ReportValue { return Kes::U64{row.peak}; }},
      {"worst_latency_us",
       Unit::microseconds,
       everywhere,
       {"Latency", 11, 7, 1},
       "the longest latency of a burst, in microseconds; none where none is known",
       [](Row row) { return row.latency == 0 ? ReportValue() : Kes::U64{row.latency}; }},
      {"drops",
       Unit::packets,
       everywhere,
       {"Drops", 6, 8, 1},
       "packets dropped",
       [](Row row) -> ReportValue { return row.drops; }},
      {"",
       Unit::second,
       textOnly,
       {"Last", 0, 9, 1},
       "",
       [](Row row) { return row.open ? ReportValue(std::string_view(row.bar)) : row.last; }},
      {"last_us",
       Unit::moment,
       everywhere,
       {},
       "when the last burst began, in microseconds since 1970; in text, where the queue is congested now, a "
       "bar "
       "that is full at the high threshold",
       [](Row row) -> ReportValue { return row.last; }},
      {"last",
       Unit::rfc3339,
       notInCsv,
       {},
       "the same as `last_us`, in RFC 3339",
       [](Row row) -> ReportValue { return row.last; }},
      {"open",
       Unit::flag,
       everywhere,
       {},
       "whether the queue is congested now",
       [](Row row) -> ReportValue { return Kes::U64{row.open}; }},
      {"open_length_bytes",
       Unit::bytes,
       everywhere,
       {},
       "the longest backlog so far of the burst that lasts; none where none does",
       [](Row row) { return row.open ? ReportValue(Kes::U64{row.openLength}) : ReportValue(); }},
  }};
}();

inline constexpr TextReportColumns<QueueSummary, summaryColumns.size()> summaryText{summaryColumns, 1};

// A queue each, the one that hurts most first: by drops, then by the time in which it was congested, then by
// its peak. `window` has both its ends (RecordSet::span).
std::vector<QueueSummary> summariesOf(RecordSet const& records, TimeWindow const& window);

}  // namespace Agent
