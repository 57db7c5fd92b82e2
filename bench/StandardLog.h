#pragma once

#include <cstdio>
#include <deque>
#include <memory>
#include <unordered_map>

#include "Kes/Strep.h"
#include "bench/ReportLine.h"
#include "bench/Workload.h"
#ifdef VORN_BENCH_BOOST
#include <boost/circular_buffer.hpp>
#endif

// What somebody would write from the standard library and Boost: a hash map by interface name, and in it a
// bounded queue of shared records.
namespace Bench {

struct PlainRecord {
  U64 timestamp;
  U64 duration;
  U32 qLen;
  bool alwaysLog;
};

class BoundedDeque {
 public:
  void append(std::shared_ptr<PlainRecord> record) {
    if (records_.size() == capacity) records_.pop_front();
    records_.push_back(std::move(record));
  }
  auto begin() const { return records_.begin(); }
  auto end() const { return records_.end(); }

 private:
  std::deque<std::shared_ptr<PlainRecord>> records_;
};

#ifdef VORN_BENCH_BOOST
class BoundedCircularBuffer {
 public:
  void append(std::shared_ptr<PlainRecord> record) { records_.push_back(std::move(record)); }
  auto begin() const { return records_.begin(); }
  auto end() const { return records_.end(); }

 private:
  boost::circular_buffer<std::shared_ptr<PlainRecord>> records_{capacity};
};
#endif

template <class Queue>
class StandardLog {
 public:
  static constexpr std::size_t firsts = 0;
  static constexpr std::size_t least = capacity;

  explicit StandardLog(Workload const& workload) : names_(workload.names()) {}

  void append(U32 port, U32 qLen, U64 timestamp) {
    logs_[names_[port]].append(std::make_shared<PlainRecord>(PlainRecord{timestamp, 0, qLen, false}));
  }

  std::vector<Kept> kept(U32 port) const {
    std::vector<Kept> records;
    for (auto const& record : logs_.at(names_[port]))
      records.push_back({record->timestamp, record->duration, record->qLen});
    return records;
  }

  // All records in the order of their times: gathered, sorted, written.
  void report(std::FILE* out, std::vector<std::string> const& shortNames) const {
    std::vector<std::pair<PlainRecord const*, U32>> all;
    for (U32 port = 0; port < names_.size(); ++port)
      if (auto const log = logs_.find(names_[port]); log != logs_.end())
        for (auto const& record : log->second) all.emplace_back(record.get(), port);
    std::sort(all.begin(), all.end(),
              [](auto const& a, auto const& b) { return a.first->timestamp < b.first->timestamp; });
    for (auto const& [record, port] : all) {
      Kes::DecimalText const time(record->timestamp);
      writeLine(out, {time.charPtr(), shortNames[port].c_str(), record->qLen, record->duration}, ',');
    }
  }

 private:
  std::vector<std::string> const& names_;
  std::unordered_map<std::string, Queue> logs_;
};

using DequeLog = StandardLog<BoundedDeque>;
#ifdef VORN_BENCH_BOOST
using CircularBufferLog = StandardLog<BoundedCircularBuffer>;
#endif

}  // namespace Bench
