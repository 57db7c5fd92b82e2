// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Vorn/CongestionData.h"
#include "agent/query/Query.h"
#include "agent/query/RecordFilter.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/RecordRow.h"

namespace Agent {

// The records that a query finds, in its order: a list of references into a recorder that must not change
// meanwhile (a report is written by a process of its own, over a snapshot).
class RecordSet {
 public:
  // Throws as RecordFilter does.
  RecordSet(Query const& query, RecordFilter& filter, Vorn::CongestionData const& recorder);

  std::size_t size() const { return found_.size(); }
  RecordRow operator[](std::size_t place) const { return rowOf(found_[place]); }

  // The neighbours of an empty window among the records that fit otherwise: the last one before it and the
  // first behind it.
  std::optional<RecordRow> before() const;
  std::optional<RecordRow> after() const;

 private:
  struct Log {
    Vorn::PortData const* port;
    std::string_view name;  // short, the port's own
  };
  // A record, or a queue whose congestion began before its interface's oldest record.
  struct Found {
    Kes::U64 key;  // what it is ordered by
    void const* what;
    Kes::U32 log;
    bool isStart;
    bool open;
  };

  RecordRow rowOf(Found const& found) const;
  void addLog(Query const& query, RecordFilter& filter, Vorn::PortData const& port);
  void addGlobal(RecordFilter const& filter, Vorn::GlobalBufferChunk const& log);
  void consider(RecordFilter const& filter, RecordRow const& row, Found found);
  void order(Query const& query);

  std::vector<Log> logs_;
  std::vector<Found> found_;
  std::optional<Found> before_;
  std::optional<Found> after_;
};

}  // namespace Agent
