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

}  // namespace Vorn
