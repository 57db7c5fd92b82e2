// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <regex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/query/Query.h"
#include "agent/record/RecordRow.h"

namespace Agent {

// The time that a query is about: microseconds since 1970, both ends included.
struct TimeWindow {
  Kes::U64 since = 0;
  Kes::U64 until = ~Kes::U64{0};

  // `now` is when the report is made. Throws QueryError.
  static TimeWindow of(Query const& query, Kes::U64 now);
  bool operator==(TimeWindow const&) const = default;
};

// Which records a query is about.
class RecordFilter {
 public:
  // Throws QueryError; std::regex_error for a pattern that is none.
  RecordFilter(Query const& query, Kes::U64 now);

  TimeWindow const& window() const { return window_; }
  // Whether it holds every record.
  bool isWhole() const;
  // Of a short name.
  bool holdsInterface(std::string const& name);
  // The sum is of all queues.
  bool holdsQueue(RecordRow const& row) const;
  // Of a record whose interface is held: all but the window.
  bool holdsFigures(RecordRow const& row) const;
  // Whether a burst lasted at some time in the window.
  bool holdsTime(RecordRow const& row) const {
    return row.timestamp <= window_.until && (row.open ? now_ : row.end()) >= window_.since;
  }

  // The first name or pattern of the query that means none of the `names`, for people; empty: each means one.
  std::string unmatched(std::vector<std::string> const& names) const;

 private:
  struct Pattern {
    std::string text;
    std::regex expression;
  };

  struct Name {
    std::string asked;
    std::string shortName;
  };

  Kes::U64 now_;
  TimeWindow window_;
  std::vector<Name> names_;
  std::vector<Pattern> patterns_;
  std::set<QueueKey> queues_;
  Kes::U32 minLength_;
  Kes::U64 minDuration_;
  Kes::U32 minLatency_;
  bool drops_;
  std::unordered_map<std::string, bool> asked_;  // interfaces of late, with the answer
};

}  // namespace Agent
