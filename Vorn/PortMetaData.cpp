// SPDX-License-Identifier: Apache-2.0
#include "Vorn/PortMetaData.h"

namespace Vorn {

PortMetaData::PortMetaData(Kes::U32 identifier, Pylo::IntfId intfId)
    : identifier_(identifier), intfId_(std::move(intfId)) {}

PortMetaData::~PortMetaData() = default;

Kes::U32 PortMetaData::counterInc(Kes::U32 amount) { return counter_ += amount; }
void PortMetaData::counterIs(Kes::U32 counter) { counter_ = counter; }
void PortMetaData::maxQLenIs(Kes::U32 maxQLen) { maxQLen_ = maxQLen; }
void PortMetaData::timeOfMaxQLenIs(Microseconds const& time) { timeOfMaxQLen_ = time; }
void PortMetaData::timeOfCongestionStartIs(Microseconds const& time) { timeOfCongestionStart_ = time; }
void PortMetaData::cardSlotIs(Kes::U8 cardSlot) { cardSlot_ = cardSlot; }
void PortMetaData::chipIndexIs(Kes::U8 chipIndex) { chipIndex_ = chipIndex; }
void PortMetaData::numCpuQueuesIs(Kes::U8 numCpuQueues) { numCpuQueues_ = numCpuQueues; }
void PortMetaData::fabricPeerIntfIs(Pylo::IntfId fabricPeerIntf) {
  fabricPeerIntf_ = std::move(fabricPeerIntf);
}

PortMetaData::Ptr portMetaDataFactory(Kes::U32 identifier, Pylo::IntfId intfId) {
  return Kes::makePtr<PortMetaData>(identifier, std::move(intfId));
}

}  // namespace Vorn
