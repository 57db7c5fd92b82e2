// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Vorn/CongestionData.h"
#include "Vorn/VornUtils.h"
#include "agent/burst/BurstLedger.h"
#include "agent/query/Query.h"
#include "agent/query/RecordFilter.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/RecordRow.h"

namespace Agent {

// The records that a query finds, in its order: a list of references into a recorder that must not change
// meanwhile (a report is written by a process of its own, over a snapshot). It takes 24 bytes a record.
class RecordSet {
 public:
  // `ledger` knows how far the logs are from being in order of time, so that of a long history only what may
  // lie in the window is looked at. Throws std::logic_error where the recorder has records that are not this
  // agent's.
  RecordSet(Query const& query, RecordFilter& filter, Vorn::CongestionData const& recorder,
            BurstLedger const& ledger);

  std::size_t size() const { return found_.size(); }
  RecordRow operator[](std::size_t place) const { return rowOf(found_[place]); }
  // Bursts that the query was about and whose flows nobody counted: a query for flows leaves them out.
  std::size_t withoutFlows() const { return withoutFlows_; }
  // A number that tells the interface, or the sum, of the record at a place: short names may be alike.
  Kes::U32 logOf(std::size_t place) const { return found_[place].log; }
  // Those that the record at a place is judged by; 0 where none are known, as for a saved history.
  Vorn::Thresholds thresholdsOf(std::size_t place) const;

  // The window with both its ends: without a limit it begins with the earliest record, and it ends at `now`,
  // or with the last record, at the latest.
  TimeWindow span(Kes::U64 now) const;

  // Around an empty window, of the records that the filter holds otherwise: the one that ended last before it
  // and the first behind it.
  struct Neighbours {
    std::optional<RecordRow> before{};
    std::optional<RecordRow> after{};
  };
  Neighbours neighbours();

 private:
  struct Found {
    Kes::U64 key = 0;            // what it is ordered by
    void const* what = nullptr;  // a LinuxEntry; of a start record a Vorn::PortMetaData
    Kes::U32 log = 0;
    bool isStart = false;
    bool open = false;
  };

  RecordRow rowOf(Found const& found) const;
  template <class Tell>
  void walk(Tell tell, TimeWindow const& window, bool hasSum, bool hasStarts);
  template <class Tell>
  void walkLog(Tell& tell, Vorn::PortData const& port, TimeWindow const& window, bool hasStarts);
  void order(Query const& query);

  RecordFilter& filter_;
  Vorn::CongestionData const& recorder_;
  BurstLedger const& ledger_;
  bool const onlySum_;
  std::size_t withoutFlows_ = 0;
  std::vector<Vorn::PortData const*> logs_;  // of which records were looked at
  std::vector<Found> found_;
};

}  // namespace Agent
