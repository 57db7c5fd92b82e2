#include "agent/burst/InterfaceLogs.h"

namespace Agent {

void InterfaceLogs::handleQueuePresent(Pylo::IntfId const& intfId) {
  if (Kes::U32* const count = queues_.find(intfId)) {
    ++*count;
    return;
  }
  queues_.put(intfId, 1);
  std::erase(gone_, intfId);
}

void InterfaceLogs::handleQueueGone(Pylo::IntfId const& intfId) {
  constexpr std::size_t maxGone = 256;
  Kes::U32* const count = queues_.find(intfId);
  if (count == nullptr || --*count != 0) return;
  queues_.del(intfId);
  if (!recorder_->portData(intfId)) return;
  gone_.push_back(intfId);
  if (gone_.size() <= maxGone) return;
  recorder_->portDataDel(gone_.front());
  gone_.pop_front();
}

}  // namespace Agent
