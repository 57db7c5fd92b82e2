// SPDX-License-Identifier: Apache-2.0
#include "Vorn/VornUtils.h"

namespace Vorn {

bool isVornEnabled(Config::PtrConst config, Hardware::Status::PtrConst hwStatus) {
  if (config->enabled() != Config::Enabled::notConfigured)
    return config->enabled() == Config::Enabled::enabled;
  return hwStatus->vornEnabledByDefault();
}

Kes::U32 getDefaultHighThreshold(Config::PtrConst config, Hardware::Status::PtrConst hwStatus) {
  ThresholdsConfig const& thresholds = config->defaultThresholdsConfig();
  return thresholds.configured ? thresholds.highThreshold : hwStatus->defHighThreshold();
}

Kes::U32 getDefaultLowThreshold(Config::PtrConst config, Hardware::Status::PtrConst hwStatus) {
  ThresholdsConfig const& thresholds = config->defaultThresholdsConfig();
  return thresholds.configured ? thresholds.lowThreshold : hwStatus->defLowThreshold();
}

bool isVornCpuPort(Pylo::IntfId intfId) {
  std::string_view const name = intfId.stringValue().view();
  return name.starts_with("Cpu") || name.starts_with("Copp");
}

Thresholds portThresholds(Config::PtrConst const& config, Hardware::Status::PtrConst const& hwStatus,
                          Pylo::IntfId const& intfId) {
  if (PortConfig const* const own = config->portConfig(intfId.stringValue()))
    return {own->highThreshold, own->lowThreshold};
  if (isVornCpuPort(intfId)) return {hwStatus->defCpuHighThreshold(), hwStatus->defCpuLowThreshold()};
  return {getDefaultHighThreshold(config, hwStatus), getDefaultLowThreshold(config, hwStatus)};
}

Thresholds globalThresholds(Config::PtrConst const& config, Hardware::Status::PtrConst const& hwStatus) {
  ThresholdsConfig const& own = config->globalThresholdsConfig();
  if (own.configured) return {own.highThreshold, own.lowThreshold};
  return {hwStatus->defGlobalBufHighThreshold(), hwStatus->defGlobalBufLowThreshold()};
}

}  // namespace Vorn
