// SPDX-License-Identifier: Apache-2.0
#include "agent/RecorderInputs.h"

namespace Agent {

Vorn::Config::Ptr configOf(AgentOptions const& options) {
  auto const config = Kes::makePtr<Vorn::Config>();
  configIs(*config, options);
  return config;
}

void configIs(Vorn::Config& config, AgentOptions const& options) {
  using Enabled = Vorn::Config::Enabled;
  config.enabledIs(!options.enabled   ? Enabled::notConfigured
                   : *options.enabled ? Enabled::enabled
                                      : Enabled::disabled);
  config.logIntervalIs(options.logInterval);
  config.globalLogIntervalIs(options.globalLogInterval);
  config.defaultThresholdsConfigIs({options.ports.high, options.ports.low, options.portsConfigured});
  config.globalThresholdsConfigIs(
      {options.globalBuffer.high, options.globalBuffer.low, options.globalBufferConfigured});
}

Vorn::Hardware::Status::Ptr hardwareStatusOf(AgentOptions const& options) {
  auto const status = Kes::makePtr<Vorn::Hardware::Status>();
  hardwareStatusIs(*status, options);
  return status;
}

void hardwareStatusIs(Vorn::Hardware::Status& status, AgentOptions const& options) {
  status.vornEnabledByDefaultIs(true);
  status.defHighThresholdIs(AgentOptions::hostPorts.high);
  status.defLowThresholdIs(AgentOptions::hostPorts.low);
  // No interface of this host is one, unless by its name.
  status.defCpuHighThresholdIs(options.ports.high);
  status.defCpuLowThresholdIs(options.ports.low);
  status.defGlobalBufHighThresholdIs(AgentOptions::hostGlobalBuffer.high);
  status.defGlobalBufLowThresholdIs(AgentOptions::hostGlobalBuffer.low);
}

}  // namespace Agent
