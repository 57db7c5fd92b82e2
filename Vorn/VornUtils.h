// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Pylo/IntfId.h"
#include "Vorn/Config.h"
#include "Vorn/Export.h"
#include "Vorn/HardwareStatus.h"

// Decisions over the configuration and the hardware's status.
namespace Vorn {

// Whether the feature is to run: the operator's word, or the hardware's default where there is none.
VORN_EXPORT bool isVornEnabled(Config::PtrConst config, Hardware::Status::PtrConst hwStatus);

// The thresholds of ports: the operator's when configured, else the hardware's; high and low never mix.
VORN_EXPORT Kes::U32 getDefaultHighThreshold(Config::PtrConst config, Hardware::Status::PtrConst hwStatus);
VORN_EXPORT Kes::U32 getDefaultLowThreshold(Config::PtrConst config, Hardware::Status::PtrConst hwStatus);

// Whether the interface is one of the switch's CPU ports: its full name begins with "Cpu" or "Copp".
VORN_EXPORT bool isVornCpuPort(Pylo::IntfId intfId);

// The thresholds that a record is judged against, in the units of Entry::qLen.
struct Thresholds {
  Kes::U32 high = 0;
  Kes::U32 low = 0;
};

// Those of an interface: the operator's for its full name, else the hardware's for CPU ports, else the
// defaults.
VORN_EXPORT Thresholds portThresholds(Config::PtrConst const& config,
                                      Hardware::Status::PtrConst const& hwStatus, Pylo::IntfId const& intfId);

// Those of the global buffer: the operator's when configured, else the hardware's.
VORN_EXPORT Thresholds globalThresholds(Config::PtrConst const& config,
                                        Hardware::Status::PtrConst const& hwStatus);

}  // namespace Vorn
