// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/query/RecordSet.h"
#include "agent/record/FlowColumns.h"

namespace Agent {

// The flows of each record of a set, in the set's order. Of a set that leaves out those without flows.
class FlowsOfBursts {
 public:
  explicit FlowsOfBursts(RecordSet const& records);

  std::size_t size() const { return places_.size(); }
  FlowRow operator[](std::size_t place) const;

 private:
  RecordSet const& records_;
  std::vector<std::pair<Kes::U32, Kes::U32>> places_;  // of the record and of the flow in it
};

// What the flows of a queue add up to over the records of such a set, a flow each: those of most bytes first,
// unless the query has another order; the first so many that it asks for.
class FlowSums {
 public:
  FlowSums(RecordSet const& records, Query const& query);

  std::size_t size() const { return sums_.size(); }
  FlowRow operator[](std::size_t place) const;

 private:
  struct Queue {
    std::string_view interface {};
    QueueKey key = noQueue;
    Kes::U64 bytes = 0;
    Kes::U64 packets = 0;
  };
  struct Sum {
    Queue const* queue = nullptr;
    FlowKey const* key = nullptr;  // in the recorder, as its control group is
    std::string_view cgroup{};
    Kes::U64 bytes = 0;
    Kes::U64 packets = 0;
    Kes::U64 error = 0;
    Kes::U64 drops = 0;
    Kes::U64 bursts = 0;
    Kes::U64 last = 0;
    bool open = false;
  };

  void order(Query const& query);

  std::map<std::pair<Kes::U32, QueueKey>, Queue> queues_;
  std::vector<Sum> sums_;
};

// The same in text, with titles. `view` is that of the records' lines (RecordView), which stand above their
// flows.
void writeFlowsOfBursts(RecordSet const& records, unsigned view, std::FILE* out);
void writeFlowSums(FlowSums const& sums, std::FILE* out);

// How many bursts such a set has left out; empty for none.
std::string withoutFlowsText(RecordSet const& records);

}  // namespace Agent
