#include "agent/burst/InterfaceLogs.h"

namespace Agent {

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
  if (gone_.size() <= maxGone) return true;
  recorder_->portDataDel(gone_.front());
  gone_.pop_front();
  return true;
}

}  // namespace Agent
