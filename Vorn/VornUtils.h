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

}  // namespace Vorn
