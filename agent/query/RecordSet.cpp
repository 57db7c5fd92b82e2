// SPDX-License-Identifier: Apache-2.0
#include "agent/query/RecordSet.h"

#include <algorithm>
#include <stdexcept>

#include "agent/record/LinuxPortMetaDataDumper.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;
using Vorn::PortMetaData;

constexpr std::string_view nameOfSum = "N/A";
constexpr U32 noLog = ~U32{0};

LinuxEntry const& recordIn(Vorn::Entry::Ptr const& entry) {
  auto const* const record = dynamic_cast<LinuxEntry const*>(entry.get());
  if (record == nullptr) throw std::logic_error("a log holds what is no record of this agent");
  return *record;
}

// Visits the records of a queue of records, the newest first; ends when the visitor says false.
template <class Visit>
bool visitFromNewest(Vorn::EntryQueue const& queue, Visit visit) {
  Vorn::EntryQueue::Slots const& slots = queue.entrySlots();
  U32 slot = slots.tail();
  for (U32 left = slots.count(); left > 0; --left, slot = slots.before(slot))
    if (Vorn::Entry::Ptr const& entry = slots.slot(slot))
      if (!visit(recordIn(entry))) return false;
  return true;
}

// The queues of an interface that are congested now.
class OpenQueues {
 public:
  explicit OpenQueues(Vorn::PortData const& port) {
    for (PortMetaData::Ptr const& queue : port.portMetaDataIterator())
      if (queue->timeOfCongestionStart() != Vorn::Microseconds(0)) queues_.push_back(queue.get());
    unmet_ = queues_;
  }

  std::vector<PortMetaData const*> const& queues() const { return queues_; }
  // Whether there are some whose record was not met yet.
  bool anyUnmet() const { return !unmet_.empty(); }
  // Whether the record is of a burst that lasts: the newest one of its queue, and so the first that is met.
  bool meet(LinuxEntry const& record) {
    auto const isIts = [&](PortMetaData const* queue) { return queue->identifier() == record.queue(); };
    auto const at = std::find_if(unmet_.begin(), unmet_.end(), isIts);
    if (at == unmet_.end()) return false;
    bool const lasts = record.timestamp() >= (*at)->timeOfCongestionStart();
    unmet_.erase(at);
    return lasts;
  }

 private:
  std::vector<PortMetaData const*> queues_;
  std::vector<PortMetaData const*> unmet_;
};

U64 saturatedSum(U64 a, U64 b) { return a + std::min(b, ~a); }

U64 keyOf(RecordRow const& row, Query::Order order) {
  switch (order) {
    case Query::Order::time: return row.timestamp;
    case Query::Order::length: return row.length;
    case Query::Order::duration: return row.duration;
    case Query::Order::latency: return row.latency;
    case Query::Order::drops: return row.drops;
  }
  return 0;
}

}  // namespace

RecordSet::RecordSet(Query const& query, RecordFilter& filter, Vorn::CongestionData const& recorder,
                     BurstLedger const& ledger)
    : filter_(filter), recorder_(recorder), ledger_(ledger), onlySum_(query.report == Query::Report::global) {
  bool const hasSum = onlySum_ || query.all;
  bool const asksForFlows = query.report == Query::Report::who || query.flows;
  // A start record has no figures that could be asked for, and no flows.
  bool const hasStarts = !asksForFlows && !query.drops && !query.latency && query.minLength == 0 &&
                         query.minDuration == 0 && query.minLatency == 0;
  walk(
      [&](Found const& found, RecordRow const& row) {
        if (!filter_.holdsTime(row)) return;
        if (asksForFlows && row.flows == nullptr) {
          ++withoutFlows_;
          return;
        }
        found_.push_back(found);
        found_.back().key = row.timestamp;
      },
      filter_.window(), hasSum, hasStarts);
  order(query);
}

// Tells of each record that the filter holds and that may lie in the window, and of some that do not.
template <class Tell>
void RecordSet::walk(Tell tell, TimeWindow const& window, bool hasSum, bool hasStarts) {
  logs_.clear();
  if (!onlySum_) {
    for (auto const& [intfId, port] : recorder_.portDataMap())
      if (filter_.holdsInterface(intfId.shortName().str())) walkLog(tell, *port, window, hasStarts);
  }
  if (!hasSum || !recorder_.globalBufferChunk()) return;
  visitFromNewest(*recorder_.globalBufferChunk(), [&](LinuxEntry const& record) {
    RecordRow const row = record.row(nameOfSum);
    if (filter_.holdsFigures(row)) tell(Found{.what = &record, .log = noLog}, row);
    return true;
  });
}

// From the newest chunk back. One that begins too far behind the window holds nothing of it, and neither does
// what came before a record that lies too far in front of it.
template <class Tell>
void RecordSet::walkLog(Tell& tell, Vorn::PortData const& port, TimeWindow const& window, bool hasStarts) {
  auto const log = static_cast<U32>(logs_.size());
  logs_.push_back(&port);
  std::string_view const name = port.intfId().shortName().view();
  U64 const slack = ledger_.slack(port.intfId());
  OpenQueues open(port);
  bool goesOn = true;
  for (Vorn::Chunk const* chunk = port.chunkTail(); goesOn && chunk != nullptr;
       chunk = chunk->prevChunk().get()) {
    auto const first = chunk->entryIterator();
    // The newest chunk is looked at in any case: it has what is open.
    if (first && chunk != port.chunkTail() &&
        (*first)->timestamp().value() > saturatedSum(window.until, slack))
      continue;
    goesOn = visitFromNewest(*chunk, [&](LinuxEntry const& record) {
      RecordRow row = record.row(name);
      row.open = open.meet(record);
      if (filter_.holdsFigures(row)) tell(Found{.what = &record, .log = log, .open = row.open}, row);
      return open.anyUnmet() || saturatedSum(row.timestamp, slack) >= window.since;
    });
  }
  if (!hasStarts || port.chunkHead() == nullptr) return;
  auto const oldest = port.chunkHead()->entryIterator();
  for (PortMetaData const* queue : open.queues()) {
    RecordRow const row = startRow(*queue);
    if (oldest && queue->timeOfCongestionStart() < (*oldest)->timestamp() && filter_.holdsQueue(row))
      tell(Found{.what = queue, .log = log, .isStart = true, .open = true}, row);
  }
}

// What is equal keeps the order of the recorder's own reports: records by interface, then start records, then
// the sum.
void RecordSet::order(Query const& query) {
  auto const rankOf = [](Found const& found) { return found.log == noLog ? 2 : found.isStart ? 1 : 0; };
  bool const oldestFirst = query.form != Query::Form::text;
  // A log was walked from its newest record.
  if (oldestFirst && !query.order) {
    for (auto begin = found_.begin(); begin != found_.end();) {
      auto const end =
          std::find_if(begin, found_.end(), [begin](Found const& found) { return found.log != begin->log; });
      std::reverse(begin, end);
      begin = end;
    }
  }
  bool const ascending = oldestFirst && !query.order;
  std::stable_sort(found_.begin(), found_.end(), [&](Found const& a, Found const& b) {
    if (a.key != b.key) return ascending ? a.key < b.key : a.key > b.key;
    return rankOf(a) < rankOf(b);
  });
  if (query.order && *query.order != Query::Order::time) {
    for (Found& found : found_) found.key = keyOf(rowOf(found), *query.order);
    std::stable_sort(found_.begin(), found_.end(),
                     [](Found const& a, Found const& b) { return a.key > b.key; });
  }
  bool const byTime = query.order.value_or(Query::Order::time) == Query::Order::time;
  if (query.reverse && !byTime) std::reverse(found_.begin(), found_.end());
  if (query.count && *query.count < found_.size()) {
    auto const surplus = static_cast<std::ptrdiff_t>(found_.size() - *query.count);
    ascending ? found_.erase(found_.begin(), found_.begin() + surplus)
              : found_.erase(found_.end() - surplus, found_.end());
  }
  if (query.reverse && byTime) std::reverse(found_.begin(), found_.end());
}

RecordRow RecordSet::rowOf(Found const& found) const {
  if (found.isStart) return startRow(*static_cast<PortMetaData const*>(found.what));
  auto const& record = *static_cast<LinuxEntry const*>(found.what);
  RecordRow row = record.row(found.log == noLog ? nameOfSum : logs_[found.log]->intfId().shortName().view());
  row.open = found.open;
  return row;
}

Vorn::Thresholds RecordSet::thresholdsOf(std::size_t place) const {
  U32 const log = found_[place].log;
  return log == noLog
             ? Vorn::globalThresholds(recorder_.vornConfig(), recorder_.vornHwStatus())
             : Vorn::portThresholds(recorder_.vornConfig(), recorder_.vornHwStatus(), logs_[log]->intfId());
}

TimeWindow RecordSet::span(U64 now) const {
  TimeWindow window = filter_.window();
  U64 first = now;
  U64 last = now;
  for (std::size_t i = 0; i < size(); ++i) {
    RecordRow const row = (*this)[i];
    first = std::min(first, row.timestamp);
    last = std::max(last, row.end());
  }
  if (window.since == 0) window.since = std::min(first, window.until);
  window.until = std::max(std::min(window.until, last), window.since);
  return window;
}

RecordSet::Neighbours RecordSet::neighbours() {
  Neighbours result;
  walk(
      [&](Found const&, RecordRow const& row) {
        if (row.timestamp > filter_.window().until) {
          if (!result.after || row.timestamp < result.after->timestamp) result.after = row;
        } else if (!result.before || row.end() > result.before->end()) {
          result.before = row;
        }
      },
      TimeWindow(), onlySum_, /*hasStarts=*/false);
  return result;
}

}  // namespace Agent
