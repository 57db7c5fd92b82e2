// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/InterfaceLogs.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Agent {

namespace {

Vorn::Microseconds newestRecord(Vorn::PortData const& port) {
  Vorn::Chunk const* const chunk = port.chunkTail();
  if (chunk == nullptr || chunk->entrys() == 0) return {};
  return chunk->entry(chunk->entryTailIndex())->timestamp();
}

}  // namespace

InterfaceLogs::InterfaceLogs(Vorn::CongestionData::Ptr recorder, BurstLedger& ledger)
    : recorder_(std::move(recorder)), ledger_(ledger) {
  std::vector<std::pair<Vorn::Microseconds, Pylo::IntfId>> logs;
  for (auto const& [intfId, port] : recorder_->portDataMap()) logs.emplace_back(newestRecord(*port), intfId);
  std::stable_sort(logs.begin(), logs.end(), [](auto& a, auto& b) { return a.first < b.first; });
  for (auto& [time, intfId] : logs) gone_.addUnseen(std::move(intfId));
}

bool InterfaceLogs::handleQueuePresent(Pylo::IntfId const& intfId) {
  if (Kes::U32* const count = queues_.find(intfId)) {
    ++*count;
    return false;
  }
  queues_.put(intfId, 1);
  gone_.remove(intfId);
  return true;
}

bool InterfaceLogs::handleQueueGone(Pylo::IntfId const& intfId) {
  Kes::U32* const count = queues_.find(intfId);
  if (count == nullptr || --*count != 0) return false;
  queues_.del(intfId);
  if (!recorder_->portData(intfId)) return true;
  gone_.add(intfId);
  while (auto const forgotten = gone_.takeSurplus()) {
    recorder_->portDataDel(*forgotten);
    ledger_.forget(*forgotten);
  }
  return true;
}

}  // namespace Agent
