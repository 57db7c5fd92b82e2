// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "agent/record/ReportColumn.h"

namespace Agent {

// How often a queue was congested; without a queue: the sum over all.
struct StatisticsRow {
  std::string_view interface;  // short name; borrowed
  std::optional<QueueKey> queue;
  Kes::U32 bursts = 0;
};

// The columns of the statistics, told once (RecordColumns.h does the same for records).
inline constexpr ReportColumns<StatisticsRow, 4> statisticsColumns = {{
    {"interface",
     Unit::name,
     everywhere,
     {"Interface", 12, 1, 1},
     "short name, `N/A` for the sum over all",
     [](StatisticsRow const& row) -> ReportValue { return row.interface; }},
    {"queue",
     Unit::name,
     everywhere,
     {"Queue", 6, 2, 1},
     "the queue as `tc` writes it",
     [](StatisticsRow const& row) {
       return row.queue ? ReportValue(QueueName::ofKey(*row.queue)) : ReportValue();
     }},
    {"queue_id",
     Unit::count,
     everywhere,
     {},
     "the same as the number that it has by name",
     [](StatisticsRow const& row) { return row.queue ? ReportValue(Kes::U64{*row.queue}) : ReportValue(); }},
    {"bursts",
     Unit::count,
     everywhere,
     {"Bursts", 10, 3, 1},
     "how often it was congested, since the agent's start or the beginning of a history that is kept",
     [](StatisticsRow const& row) -> ReportValue { return Kes::U64{row.bursts}; },
     "vorn_bursts"},
}};

inline constexpr TextReportColumns<StatisticsRow, statisticsColumns.size()> statisticsText{statisticsColumns,
                                                                                           1};

}  // namespace Agent
