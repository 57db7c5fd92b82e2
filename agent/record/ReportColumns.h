// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/String.h"
#include "Vorn/CommandOptions.h"
#include "agent/record/ReportLine.h"

namespace Agent {

// The columns of the text reports, 100 characters wide at most with ordinary names and values. In the order
// in which each report has them:
//   records             time interface queue length peakBound duration latency drops
//   start records       time interface queue, then words
//   drops report        time interface queue duration drops
//   latency report      time interface queue length latency
//   global buffer       time length peakBound duration drops
//   statistics          interface queue bursts
namespace columns {
using enum Column::Align;
inline constexpr Column time = {"Time", 26, left};
inline constexpr Column interface = {"Interface", 12, left};
inline constexpr Column queue = {"Queue", 6, left};
inline constexpr Column length = {"Length", 10, right};
inline constexpr Column peakBound = {"Peak up to", 10, right};
inline constexpr Column duration = {"Duration", 12, right};
inline constexpr Column latency = {"Latency", 11, right};
inline constexpr Column drops = {"Drops", 6, right};
inline constexpr Column bursts = {"Bursts", 10, right};
}  // namespace columns

// The fields of every comma-separated line, whose first one tells a record from a start record and a record
// of the global buffer. Times are microseconds, lengths bytes. A field that a line does not have is empty.
inline constexpr std::string_view csvColumns =
    "type,interface,queue,queue_id,handle,timestamp_us,duration_us,queue_length_bytes,peak_at_most_bytes,"
    "latency_us,drops\n";

// What stands above the report that `options` ask for: a line with the titles of its columns, or with the
// field names of a comma-separated one.
Kes::String columnsFor(Vorn::CommandOptions const& options);

}  // namespace Agent
