// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/Workload.h"

namespace Bench {

// What somebody would write from the standard library: a hash map by interface name, and in it a bounded
// queue of shared records.
class DequeLog {
 public:
  static constexpr std::size_t firsts = 0;
  static constexpr std::size_t least = capacity;

  explicit DequeLog(Workload const& workload) : names_(workload.names()) {}

  void append(U32 port, U32 qLen, U64 timestamp) {
    Queue& records = logs_[names_[port]];
    if (records.size() == capacity) records.pop_front();
    records.push_back(std::make_shared<Record>(Record{timestamp, 0, qLen, false}));
  }

  std::vector<Kept> kept(U32 port) const {
    std::vector<Kept> records;
    for (auto const& record : logs_.at(names_[port]))
      records.push_back({record->timestamp, record->duration, record->qLen});
    return records;
  }

 private:
  struct Record {
    U64 timestamp;
    U64 duration;
    U32 qLen;
    bool alwaysLog;
  };
  using Queue = std::deque<std::shared_ptr<Record>>;

  std::vector<std::string> const& names_;
  std::unordered_map<std::string, Queue> logs_;
};

}  // namespace Bench
