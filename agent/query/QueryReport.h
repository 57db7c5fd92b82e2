// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "Vorn/CongestionData.h"
#include "agent/query/Query.h"
#include "agent/query/RecordFilter.h"
#include "agent/query/RecordSet.h"
#include "agent/record/InterfaceHistory.h"

namespace Agent {

// The columns of text that its records are shown with (RecordView).
unsigned viewOf(Query const& query);

// The report that a query asks for, over a recorder that does not change meanwhile: a snapshot, or a saved
// history. Its time is the recorder's. Reports without limits have the lines of the recorder's own reports,
// in their order.
//
// It is made in a process of its own: the zone of its times is set for all of the process.
class QueryReport {
 public:
  // Whose records they are: this machine's, by its recorder's clock, or those of a file.
  enum class Origin : Kes::U8 { agent, file };

  // Compiles and tries the patterns, which takes what time they take. `present` are interfaces that need no
  // record to be meant. Throws QueryError; std::regex_error for a pattern that is none.
  QueryReport(Query query, Vorn::CongestionData const& recorder, BurstLedger const& ledger,
              std::vector<std::string> const& present, Origin origin = Origin::agent);

  // The stream tells by its error flag whether all was written. Returns what was asked for that there is not,
  // for people; empty: all is there.
  std::string write(std::FILE* out);

 private:
  void writeRecords(std::FILE* out);
  void writeTop(std::FILE* out);
  void writeWho(std::FILE* out);
  void writeTopFlows(std::FILE* out);
  void writeTimeline(std::FILE* out);
  void writeStatistics(std::FILE* out);
  void writeHead(std::FILE* out) const;
  void writeSpan(std::FILE* out, TimeWindow const& span) const;
  Query ofAllRecords() const;
  void writeNothing(std::FILE* out, RecordSet& records);
  std::vector<InterfaceHistory> holes(RecordSet const& records);

  Query const query_;
  Vorn::CongestionData const& recorder_;
  BurstLedger const& ledger_;
  Origin const origin_;
  Kes::Seconds const time_;
  Kes::U64 const now_;
  RecordFilter filter_;
  std::string unmatched_;  // a name or pattern that means no interface
};

}  // namespace Agent
