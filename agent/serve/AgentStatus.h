// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "Vorn/CongestionData.h"
#include "agent/base/AgentClock.h"
#include "agent/base/Failures.h"
#include "agent/base/Journal.h"
#include "agent/burst/CongestionFeed.h"
#include "agent/burst/Source.h"
#include "agent/history/HistoryKeeper.h"
#include "agent/record/InterfaceHistory.h"
#include "agent/serve/CommandServer.h"

namespace Agent {

// What the agent itself is doing, and how much of its history is left: all of it plain values, as they were
// when statusOf read them.
struct AgentStatus {
  // When the agent began, by both of its clocks.
  struct Beginning {
    Vorn::Microseconds wallTime{};
    std::chrono::steady_clock::time_point moment{};
  };

  Beginning beginning{};
  Vorn::Microseconds now{};
  std::chrono::microseconds uptime{};
  SourceStatus source{};
  Kes::U64 bursts = 0;
  AgentClock::Status clock{};
  Vorn::CongestionData::Counts counts{};  // across restarts, where the history is kept
  Vorn::CongestionData::ChunkCounts chunks{};
  Kes::U32 poolLimit = 0;
  bool poolGrows = false;
  std::string poolFault{};  // empty: none
  JournalStatus messages{};
  std::optional<HistoryKeeper::Status> history{};  // nothing where none is kept
  CommandServer::Status clients{};
  FailureStatus failures{};
  std::vector<InterfaceHistory> interfaces{};  // the one that has lost most first

  // For people: lines of 100 columns at most, but for long names.
  std::string text() const;
  // For programs: one object. The stream tells by its error flag whether all was written.
  void writeJson(std::FILE* out) const;

  // The time of which nothing is recorded because no agent ran, or kept because the last one ended at once:
  // from when the history that was read back had been saved until this agent began.
  struct Gap {
    Vorn::Microseconds from;
    Vorn::Microseconds to;
  };
  std::optional<Gap> gap() const;
};

// What it is read from.
struct StatusSources {
  Vorn::CongestionData const& recorder;
  Source const& source;
  CongestionFeed const& feed;
  AgentClock const& clock;
  HistoryKeeper const* history;  // null: none is kept
  CommandServer const& server;
  AgentStatus::Beginning beginning;
};

AgentStatus statusOf(StatusSources const& sources);

}  // namespace Agent
