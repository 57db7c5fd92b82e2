// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <string>

#include "Vorn/CommandOptions.h"
#include "agent/record/RecordRow.h"
#include "agent/record/ReportColumn.h"

// The columns of a record, told once: all forms of the reports of records, their titles and names, and what
// documents them are made from this table. A new column is one more line, at the end since programs may
// count, and in `views` and `place` where it shall stand in text.
namespace Agent {

// The text reports of records, 100 characters wide at most with ordinary names and values.
namespace RecordView {
inline constexpr unsigned records = 1;
inline constexpr unsigned drops = 2;
inline constexpr unsigned latency = 4;
inline constexpr unsigned global = 8;
inline constexpr unsigned start = 16;  // of start records; words follow
}  // namespace RecordView

namespace RecordFields {

inline ReportValue type(RecordRow const& row) {
  constexpr std::string_view names[] = {"record", "start", "global"};
  return names[static_cast<std::size_t>(row.kind)];
}
// The sum is of no one queue.
inline ReportValue queue(RecordRow const& row) {
  return row.kind == RecordRow::Kind::global ? ReportValue() : QueueName::ofKey(row.queue);
}
inline ReportValue queueId(RecordRow const& row) {
  return row.kind == RecordRow::Kind::global ? ReportValue() : Kes::U64{row.queue};
}
inline ReportValue handle(RecordRow const& row) {
  return row.handle == 0 ? ReportValue() : QueueName::ofHandle(row.handle);
}
// A start record has no figures.
inline ReportValue figure(RecordRow const& row, Kes::U64 value) {
  return row.kind == RecordRow::Kind::start ? ReportValue() : value;
}
inline ReportValue latency(RecordRow const& row) {
  return row.latency == 0 ? ReportValue() : Kes::U64{row.latency};
}

}  // namespace RecordFields

inline constexpr ReportColumns<RecordRow, 13> recordColumns = [] {
  using namespace RecordFields;
  using Row = RecordRow const&;
  using namespace RecordView;
  constexpr unsigned ofQueues = records | RecordView::drops | RecordView::latency | start;
  return ReportColumns<RecordRow, 13>{{
      {"type",
       Unit::name,
       everywhere,
       {},
       "`record`, `start` (a congestion that lasts and began before the oldest record that its interface "
       "still "
       "has) or `global` (the sum over all queues)",
       &type},
      {"interface",
       Unit::name,
       everywhere,
       {"Interface", 12, 2, ofQueues},
       "short name",
       [](Row row) -> ReportValue { return row.interface; }},
      {"queue",
       Unit::name,
       everywhere,
       {"Queue", 6, 3, ofQueues},
       "the class or slot that the queue hangs in, as `tc` writes it; `root` for an interface's only queue",
       &queue},
      {"queue_id",
       Unit::count,
       everywhere,
       {},
       "the same as the number that it has by name (`portMetaData[65568]`): major and minor of its class in "
       "one "
       "(1:20 is hexadecimal 00010020), 0 for `root`",
       &queueId},
      {"handle",
       Unit::name,
       everywhere,
       {},
       "the name of the queueing discipline; none for one that the kernel made by itself",
       &handle},
      {"timestamp_us",
       Unit::moment,
       everywhere,
       {"Time", 26, 1, ofQueues | global},
       "when the queue began to build up, in microseconds since 1970, UTC: between the last look that found "
       "it "
       "quiet and the first that did not, as close as the bytes sent meanwhile tell",
       [](Row row) -> ReportValue { return row.timestamp; }},
      {"duration_us",
       Unit::microseconds,
       everywhere,
       {"Duration", 12, 6, records | RecordView::drops | global},
       "microseconds from where the queue grew beyond the start threshold to where it had drained",
       [](Row row) { return figure(row, row.duration); },
       "vorn_burst_duration_seconds"},
      {"queue_length_bytes",
       Unit::bytes,
       everywhere,
       {"Length", 10, 4, records | RecordView::latency | global},
       "the longest backlog that a look has found",
       [](Row row) { return figure(row, row.length); },
       "vorn_burst_peak_bytes"},
      {"peak_at_most_bytes",
       Unit::bytes,
       everywhere,
       {"Peak up to", 10, 5, records | global},
       "what the true peak, somewhere between two looks, cannot have exceeded",
       [](Row row) { return figure(row, row.peakBound); }},
      {"latency_us",
       Unit::microseconds,
       everywhere,
       {"Latency", 11, 7, records | RecordView::latency},
       "microseconds that the last byte of that backlog waited until it had left, as measured; none while it "
       "is "
       "still there, when it never left, and when the next burst began before it had left",
       &RecordFields::latency,
       "vorn_burst_latency_seconds"},
      {"drops",
       Unit::packets,
       everywhere,
       {"Drops", 6, 8, records | RecordView::drops | global},
       "packets dropped meanwhile",
       [](Row row) { return figure(row, row.drops); },
       "vorn_dropped_packets"},
      {"time",
       Unit::rfc3339,
       notInCsv,
       {},
       "the same as `timestamp_us`, in RFC 3339",
       [](Row row) -> ReportValue { return row.timestamp; }},
      {"open",
       Unit::flag,
       notInCsv,
       {},
       "whether the burst lasts, so that the figures are those so far",
       [](Row row) -> ReportValue { return Kes::U64{row.open || row.kind == RecordRow::Kind::start}; }},
  }};
}();

// Writes the row's line to a stdio stream: 0, or -1 when the stream fails.
Kes::S32 writeTextLine(std::FILE* out, RecordRow const& row, unsigned view);
Kes::S32 writeCsvLine(std::FILE* out, RecordRow const& row);

// The line of titles above such text lines, and that of field names above comma-separated ones.
std::string recordTitles(unsigned view);
std::string recordFieldNames();

// What stands above the recorder's own report that `options` ask for: a line with the titles of its columns,
// or with the field names of a comma-separated one.
Kes::String columnsFor(Vorn::CommandOptions const& options);

}  // namespace Agent
