// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/InterfaceLogs.h"

namespace Agent {

InterfaceLogs::InterfaceLogs(Vorn::CongestionData::Ptr recorder) : recorder_(std::move(recorder)) {
  for (auto const& [intfId, port] : recorder_->portDataMap()) gone_.push_back(intfId);
}

bool InterfaceLogs::handleQueuePresent(Pylo::IntfId const& intfId) {
  if (Kes::U32* const count = queues_.find(intfId)) {
    ++*count;
    return false;
  }
  queues_.put(intfId, 1);
  std::erase(gone_, intfId);
  return true;
}

bool InterfaceLogs::handleQueueGone(Pylo::IntfId const& intfId) {
  constexpr std::size_t maxGone = 256;
  Kes::U32* const count = queues_.find(intfId);
  if (count == nullptr || --*count != 0) return false;
  queues_.del(intfId);
  if (!recorder_->portData(intfId)) return true;
  gone_.push_back(intfId);
  for (; gone_.size() > maxGone; gone_.pop_front()) recorder_->portDataDel(gone_.front());
  return true;
}

}  // namespace Agent
