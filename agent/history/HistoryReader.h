// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Vorn/CongestionData.h"
#include "agent/burst/BurstLedger.h"

namespace Agent {

// What reading a saved history found.
struct HistoryRead {
  enum class Kind : std::uint8_t {
    whole,
    damaged,  // cut off, changed, or put together by nobody who keeps to the format
    newer,    // of a format that is not known yet: nothing of it is used
    foreign,  // no history
  };
  Kind kind = Kind::whole;
  std::string fault{};           // in plain words; empty when whole
  Vorn::Microseconds savedAt{};  // wall time; 0 when that was not read
  Kes::U32 poolLimit = 0;        // the saved recorder's; 0 when that was not read
  Kes::U64 records = 0;          // that the recorder has now
  Kes::U64 chunksLeftOut = 0;    // that its pool has no place for
};

// Reads a history (HistoryFormat.h) into a recorder that was just made and has no logs yet. Nothing in the
// bytes is trusted: each section is checked by its checksum and then field by field. What a section may take
// of memory is what an interface, a chunk or a record takes in the recorder: a hundred times its length at
// worst, for chunks with hardly a record. Damage ends the reading; everything before it, up to the last
// record, is in the recorder, which is sound in any case.
//
// The recorder's own limit of shared chunks holds: if there are more, the ones handed out longest ago are
// left out, as if the pool had needed them. Throws std::bad_alloc.
//
// The ledger, which was just made as well, gets the accounts that there are, and the order of each log.
HistoryRead readHistory(std::string_view bytes, Vorn::CongestionData& recorder, BurstLedger& ledger);

}  // namespace Agent
