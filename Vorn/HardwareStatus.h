// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Ptr.h"
#include "Kes/Types.h"
#include "Vorn/Export.h"

namespace Vorn::Hardware {

// What the hardware's driver reports of its capabilities and defaults. Owned by the host, read by the
// recorder on every use. Thresholds are in the units of Entry::qLen.
class VORN_EXPORT Status : public Kes::PtrInterface {
 public:
  using Ptr = Kes::Ptr<Status>;
  using PtrConst = Kes::Ptr<Status const>;

  std::string_view fwkType() const override { return "Vorn::Hardware::Status"; }

  // Whether the feature runs while the operator has not configured it.
  bool vornEnabledByDefault() const { return vornEnabledByDefault_; }
  void vornEnabledByDefaultIs(bool enabled) { vornEnabledByDefault_ = enabled; }

  // Ports.
  Kes::U32 defHighThreshold() const { return defHighThreshold_; }
  void defHighThresholdIs(Kes::U32 threshold) { defHighThreshold_ = threshold; }
  Kes::U32 defLowThreshold() const { return defLowThreshold_; }
  void defLowThresholdIs(Kes::U32 threshold) { defLowThreshold_ = threshold; }

  // CPU ports (isVornCpuPort).
  Kes::U32 defCpuHighThreshold() const { return defCpuHighThreshold_; }
  void defCpuHighThresholdIs(Kes::U32 threshold) { defCpuHighThreshold_ = threshold; }
  Kes::U32 defCpuLowThreshold() const { return defCpuLowThreshold_; }
  void defCpuLowThresholdIs(Kes::U32 threshold) { defCpuLowThreshold_ = threshold; }

  // The global buffer.
  Kes::U32 defGlobalBufHighThreshold() const { return defGlobalBufHighThreshold_; }
  void defGlobalBufHighThresholdIs(Kes::U32 threshold) { defGlobalBufHighThreshold_ = threshold; }
  Kes::U32 defGlobalBufLowThreshold() const { return defGlobalBufLowThreshold_; }
  void defGlobalBufLowThresholdIs(Kes::U32 threshold) { defGlobalBufLowThreshold_ = threshold; }

 protected:
  ~Status() override;

 private:
  bool vornEnabledByDefault_ = false;
  Kes::U32 defHighThreshold_ = 0;
  Kes::U32 defLowThreshold_ = 0;
  Kes::U32 defCpuHighThreshold_ = 0;
  Kes::U32 defCpuLowThreshold_ = 0;
  Kes::U32 defGlobalBufHighThreshold_ = 0;
  Kes::U32 defGlobalBufLowThreshold_ = 0;
};

}  // namespace Vorn::Hardware
