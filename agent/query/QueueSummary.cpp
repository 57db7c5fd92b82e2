// SPDX-License-Identifier: Apache-2.0
#include "agent/query/QueueSummary.h"

#include <algorithm>
#include <map>
#include <optional>
#include <tuple>
#include <utility>

namespace Agent {

namespace {

using Kes::U64;

// A queue's summary while it is made.
struct Sum {
  QueueSummary summary{};
  // Clipped to the window: from when on the record of a burst that lasts counts, and a congestion whose first
  // record is gone. Both are the same burst, which went on in a new record.
  std::optional<U64> openSince{};
  std::optional<U64> startedAt{};

  void add(RecordRow const& row, TimeWindow const& window) {
    U64 const begin = std::max(row.timestamp, window.since);
    U64 const end = row.open ? window.until : std::min(std::max(row.end(), begin), window.until);
    summary.last = std::max(summary.last, row.timestamp);
    summary.open |= row.open;
    if (row.kind == RecordRow::Kind::start) {
      startedAt = std::min(begin, window.until);
      summary.longest = std::max(summary.longest, window.until - std::min(window.until, row.timestamp));
      return;
    }
    ++summary.bursts;
    summary.congested += std::max(end, begin) - begin;
    summary.longest = std::max(summary.longest, row.duration);
    summary.peak = std::max(summary.peak, row.length);
    summary.latency = std::max(summary.latency, row.latency);
    summary.drops += row.drops;
    if (!row.open) return;
    openSince = std::min(begin, window.until);
    summary.openLength = std::max(summary.openLength, row.length);
  }
  void finish(TimeWindow const& window) {
    if (!startedAt) return;
    if (!openSince) ++summary.bursts;
    U64 const until = openSince.value_or(window.until);
    summary.congested += until - std::min(until, *startedAt);
  }
};

auto painOf(QueueSummary const& summary) {
  return std::tuple(summary.drops, summary.congested, summary.peak);
}

}  // namespace

std::vector<QueueSummary> summariesOf(RecordSet const& records, TimeWindow const& window) {
  std::map<std::tuple<std::string_view, QueueKey, Kes::U32>, Sum> byQueue;
  for (std::size_t i = 0; i < records.size(); ++i) {
    RecordRow const row = records[i];
    Sum& sum = byQueue[{row.interface, row.queue, records.logOf(i)}];
    QueueSummary& summary = sum.summary;
    if (summary.records.empty()) {
      summary.interface = row.interface;
      summary.queue = row.queue;
      summary.ofSum = row.kind == RecordRow::Kind::global;
      summary.thresholds = records.thresholdsOf(i);
    }
    sum.add(row, window);
    summary.records.push_back(i);
  }
  std::vector<QueueSummary> summaries;
  for (auto& [id, sum] : byQueue) {
    sum.finish(window);
    sum.summary.share = millionthsOf(sum.summary.congested, window.until - window.since);
    summaries.push_back(std::move(sum.summary));
  }
  std::stable_sort(summaries.begin(), summaries.end(),
                   [](auto const& a, auto const& b) { return painOf(a) > painOf(b); });
  return summaries;
}

}  // namespace Agent
