// SPDX-License-Identifier: Apache-2.0
#include "agent/query/RecordFilter.h"

#include <algorithm>

#include "Pylo/IntfId.h"
#include "Vorn/InterfacePattern.h"
#include "agent/query/TimeText.h"
#include "agent/record/LocalZone.h"

namespace Agent {

using Kes::U64;

namespace {

constexpr std::size_t mostAsked = 65536;

}  // namespace

TimeWindow TimeWindow::of(Query const& query, U64 now) {
  if (!query.last.empty() && !(query.since.empty() && query.until.empty()))
    throw QueryError("--last and --since or --until are two windows: give one");
  long const offset = LocalZone::ofReports().offset();
  TimeWindow window;
  if (!query.last.empty()) window = {now - std::min(now, spanFrom(query.last)), now};
  if (!query.since.empty()) window.since = momentFrom(query.since, now, offset);
  if (!query.until.empty()) window.until = momentFrom(query.until, now, offset);
  if (window.until < window.since)
    throw QueryError("--until " + query.until + " is before --since " + query.since);
  return window;
}

RecordFilter::RecordFilter(Query const& query, U64 now)
    : now_(now),
      window_(TimeWindow::of(query, now)),
      minLength_(query.minLength),
      minDuration_(query.minDuration),
      minLatency_(query.minLatency),
      drops_(query.drops) {
  for (std::string const& name : query.interfaces)
    names_.push_back({name, Pylo::IntfId(name).shortName().str()});
  for (std::string const& pattern : query.patterns)
    patterns_.push_back({pattern, Vorn::compilePattern(pattern)});
  for (std::string const& queue : query.queues) {
    QueueKey const key = QueueName::keyOf(queue);
    if (key == noQueue || QueueName::ofKey(key).text() != queue)
      throw QueryError("\"" + queue + "\" is no queue: write it as tc does, 1:20 or root");
    queues_.insert(key);
  }
}

bool RecordFilter::isWhole() const {
  return window_ == TimeWindow() && names_.empty() && patterns_.empty() && queues_.empty() &&
         minLength_ == 0 && minDuration_ == 0 && minLatency_ == 0 && !drops_;
}

bool RecordFilter::holdsInterface(std::string const& name) {
  if (names_.empty() && patterns_.empty()) return true;
  // While somebody follows, interfaces come and go without end.
  if (asked_.size() >= mostAsked) asked_.clear();
  auto const [at, isNew] = asked_.try_emplace(name);
  if (isNew) {
    at->second = std::any_of(names_.begin(), names_.end(),
                             [&name](Name const& one) { return one.shortName == name; }) ||
                 std::any_of(patterns_.begin(), patterns_.end(), [&name](Pattern const& pattern) {
                   return std::regex_match(name, pattern.expression);
                 });
  }
  return at->second;
}

bool RecordFilter::holdsQueue(RecordRow const& row) const {
  return queues_.empty() || row.kind == RecordRow::Kind::global || queues_.count(row.queue) != 0;
}

bool RecordFilter::holdsFigures(RecordRow const& row) const {
  return row.length >= minLength_ && row.duration >= minDuration_ && row.latency >= minLatency_ &&
         (!drops_ || row.drops != 0) && holdsQueue(row);
}

std::string RecordFilter::unmatched(std::vector<std::string> const& names) const {
  for (Name const& name : names_)
    if (std::find(names.begin(), names.end(), name.shortName) == names.end()) return name.asked;
  for (Pattern const& pattern : patterns_) {
    auto const matches = [&](std::string const& name) { return std::regex_match(name, pattern.expression); };
    if (std::none_of(names.begin(), names.end(), matches)) return pattern.text;
  }
  return "";
}

}  // namespace Agent
