// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Hash.h"
#include "Kes/HashMap.h"
#include "Kes/Ptr.h"
#include "Kes/String.h"
#include "Kes/Time.h"
#include "Kes/Types.h"
#include "Vorn/Export.h"

namespace Vorn {

// Thresholds that the operator may have set: they count only where `configured` is true. In the units of
// Entry::qLen.
struct ThresholdsConfig {
  Kes::U32 highThreshold = 0;
  Kes::U32 lowThreshold = 0;
  bool configured = false;
};

// One interface's thresholds, which replace the defaults.
struct PortConfig {
  Kes::U32 highThreshold = 0;
  Kes::U32 lowThreshold = 0;
};

// The operator's configuration. Owned by the host, which may change it at any time: the recorder reads it on
// every use and never writes it.
class VORN_EXPORT Config : public Kes::PtrInterface {
 public:
  using Ptr = Kes::Ptr<Config>;
  using PtrConst = Kes::Ptr<Config const>;

  // Any other value counts as disabled.
  enum class Enabled : Kes::U8 { notConfigured = 0, enabled = 1, disabled = 2 };

  std::string_view fwkType() const override { return "Vorn::Config"; }

  Enabled enabled() const { return enabled_; }
  void enabledIs(Enabled enabled) { enabled_ = enabled; }

  // Seconds between two threshold messages of one interface; 0 switches them off, also for records that say
  // alwaysLog.
  Kes::Seconds logInterval() const { return logInterval_; }
  void logIntervalIs(Kes::Seconds logInterval) { logInterval_ = logInterval; }
  // The same for the global buffer.
  Kes::Seconds globalLogInterval() const { return globalLogInterval_; }
  void globalLogIntervalIs(Kes::Seconds globalLogInterval) { globalLogInterval_ = globalLogInterval; }

  ThresholdsConfig const& defaultThresholdsConfig() const { return defaultThresholdsConfig_; }
  void defaultThresholdsConfigIs(ThresholdsConfig const& thresholds) {
    defaultThresholdsConfig_ = thresholds;
  }
  ThresholdsConfig const& globalThresholdsConfig() const { return globalThresholdsConfig_; }
  void globalThresholdsConfigIs(ThresholdsConfig const& thresholds) { globalThresholdsConfig_ = thresholds; }

  // Per-interface thresholds under the interface's full name; null when there are none. The pointer is good
  // until the collection changes.
  PortConfig const* portConfig(Kes::String const& intfName) const { return portConfig_.find(intfName); }
  void portConfigIs(Kes::String const& intfName, PortConfig const& thresholds) {
    portConfig_.put(intfName, thresholds);
  }
  void portConfigDel(Kes::String const& intfName) { portConfig_.del(intfName); }

 protected:
  ~Config() override;

 private:
  struct NameHash {
    Kes::U64 operator()(Kes::String const& name) const { return Kes::hashBytes(name.view()); }
  };

  Enabled enabled_ = Enabled::notConfigured;
  Kes::Seconds logInterval_ = 0.0;
  Kes::Seconds globalLogInterval_ = 0.0;
  ThresholdsConfig defaultThresholdsConfig_;
  ThresholdsConfig globalThresholdsConfig_;
  Kes::HashMap<Kes::String, PortConfig, NameHash> portConfig_;
};

}  // namespace Vorn
