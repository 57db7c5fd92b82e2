// SPDX-License-Identifier: Apache-2.0
#include "agent/query/QueueSummary.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace Agent {

namespace {

using Kes::U64;

constexpr U64 whole = 1'000'000;  // millionths

U64 shareOf(U64 part, U64 all) {
  return all == 0 ? 0
                  : static_cast<U64>(static_cast<long double>(part) / static_cast<long double>(all) * whole);
}

void add(QueueSummary& summary, RecordRow const& row, TimeWindow const& window) {
  U64 const begin = std::max(row.timestamp, window.since);
  U64 const end = std::min(std::max(row.end(), begin), window.until);
  ++summary.bursts;
  summary.congested += std::max(end, begin) - begin;
  summary.longest = std::max(summary.longest, row.duration);
  summary.peak = std::max(summary.peak, row.length);
  summary.latency = std::max(summary.latency, row.latency);
  summary.drops += row.drops;
  summary.last = std::max(summary.last, row.timestamp);
  if (!row.open) return;
  summary.open = true;
  summary.openLength = std::max(summary.openLength, row.length);
}

auto painOf(QueueSummary const& summary) {
  return std::tuple(summary.drops, summary.congested, summary.peak);
}

}  // namespace

std::vector<QueueSummary> summariesOf(RecordSet const& records, TimeWindow const& window) {
  std::map<std::pair<std::string_view, QueueKey>, QueueSummary> byQueue;
  for (std::size_t i = 0; i < records.size(); ++i) {
    RecordRow const row = records[i];
    QueueSummary& summary = byQueue[{row.interface, row.queue}];
    summary.interface = row.interface;
    summary.queue = row.queue;
    summary.ofSum = row.kind == RecordRow::Kind::global;
    add(summary, row, window);
    if (summary.records.empty()) summary.thresholds = records.thresholdsOf(i);
    summary.records.push_back(i);
  }
  std::vector<QueueSummary> summaries;
  for (auto& [id, summary] : byQueue) {
    summary.share = shareOf(summary.congested, window.until - window.since);
    summaries.push_back(std::move(summary));
  }
  std::stable_sort(summaries.begin(), summaries.end(),
                   [](auto const& a, auto const& b) { return painOf(a) > painOf(b); });
  return summaries;
}

}  // namespace Agent
