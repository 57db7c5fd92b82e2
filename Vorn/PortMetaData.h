// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Ptr.h"
#include "Kes/Types.h"
#include "Pylo/IntfId.h"
#include "Vorn/Export.h"
#include "Vorn/Microseconds.h"

namespace Vorn {

// Running statistics and hardware placement of one monitored queue of an interface. Kept up through the
// setters by the components that feed the recorder; the recorder itself changes nothing here. The statistics
// report prints them, the entry reports show them as congestion-start records.
class VORN_EXPORT PortMetaData : public Kes::PtrInterface {
 public:
  using Ptr = Kes::Ptr<PortMetaData>;
  using PtrConst = Kes::Ptr<PortMetaData const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  PortMetaData(Kes::U32 identifier, Pylo::IntfId intfId);

  std::string_view fwkType() const override { return "Vorn::PortMetaData"; }

  // The key of this object inside its PortData, and the interface: fixed for life.
  Kes::U32 identifier() const { return identifier_; }
  Pylo::IntfId const& intfId() const { return intfId_; }

  // Congestion events; wraps at 2^32, and counterInc returns the new value. The statistics report leaves out
  // what has 0.
  Kes::U32 counter() const { return counter_; }
  virtual Kes::U32 counterInc(Kes::U32 amount);
  virtual void counterIs(Kes::U32 counter);
  // Largest queue length seen, in the units of Entry::qLen, and when.
  Kes::U32 maxQLen() const { return maxQLen_; }
  virtual void maxQLenIs(Kes::U32 maxQLen);
  Microseconds timeOfMaxQLen() const { return timeOfMaxQLen_; }
  virtual void timeOfMaxQLenIs(Microseconds const& time);
  // Start of the current congestion; 0 for none.
  Microseconds timeOfCongestionStart() const { return timeOfCongestionStart_; }
  virtual void timeOfCongestionStartIs(Microseconds const& time);

  // Line-card slot, forwarding chip and number of processor queues.
  Kes::U8 cardSlot() const { return cardSlot_; }
  virtual void cardSlotIs(Kes::U8 cardSlot);
  Kes::U8 chipIndex() const { return chipIndex_; }
  virtual void chipIndexIs(Kes::U8 chipIndex);
  Kes::U8 numCpuQueues() const { return numCpuQueues_; }
  virtual void numCpuQueuesIs(Kes::U8 numCpuQueues);
  // The fabric interface paired with the port; empty for none.
  Pylo::IntfId const& fabricPeerIntf() const { return fabricPeerIntf_; }
  virtual void fabricPeerIntfIs(Pylo::IntfId fabricPeerIntf);

 protected:
  ~PortMetaData() override;

 private:
  Kes::U32 const identifier_;
  Kes::U32 counter_ = 0;
  Pylo::IntfId const intfId_;
  Microseconds timeOfMaxQLen_;
  Microseconds timeOfCongestionStart_;
  Kes::U32 maxQLen_ = 0;
  Kes::U8 cardSlot_ = 0;
  Kes::U8 chipIndex_ = 0;
  Kes::U8 numCpuQueues_ = 0;
  Pylo::IntfId fabricPeerIntf_;
};

VORN_EXPORT PortMetaData::Ptr portMetaDataFactory(Kes::U32 identifier, Pylo::IntfId intfId);

}  // namespace Vorn
