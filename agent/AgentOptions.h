#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Vorn/Config.h"
#include "Vorn/HardwareStatus.h"

namespace Agent {

// Two queue lengths in bytes: high >= low.
struct Thresholds {
  std::uint32_t high;
  std::uint32_t low;
};

// vorn-agent's command line, checked. `vorn-agent --help` is the manual of each option.
struct AgentOptions {
  // This host's defaults.
  static constexpr Thresholds hostPorts{262'144, 65'536};
  static constexpr Thresholds hostGlobalBuffer{1'048'576, 262'144};

  std::string socketPath;
  bool messagesToStderr = false;

  std::chrono::microseconds interval{1000};
  std::uint32_t startThresholdBytes = 0;
  std::vector<std::string> interfaces;  // none: all
  std::optional<std::uint32_t> poolChunks;

  Thresholds ports = hostPorts;
  bool portsConfigured = false;
  Thresholds globalBuffer = hostGlobalBuffer;
  bool globalBufferConfigured = false;
  struct PortThresholds {
    std::string interface;
    Thresholds thresholds;
  };
  std::vector<PortThresholds> portThresholds;

  double logInterval = 60.0;        // seconds; 0: off
  double globalLogInterval = 60.0;  // seconds; 0: off

  std::string stateDirectory;       // empty: the history is not kept
  std::uint32_t saveInterval = 60;  // seconds; 0: at the end only

  std::optional<std::uint32_t> traceLevel;
  std::optional<int> fifoPriority;
};

// Reads the command line. Nothing is returned when the process is to end at once with `exitStatus`: after
// --help and --version (0) and for a usage error (2), whose text has been printed.
std::optional<AgentOptions> parseAgentOptions(int argc, char const* const* argv, int& exitStatus);

// What an operator is told at start: which interfaces the options name that are not among those of the
// machine.
std::vector<std::string> remarksOn(AgentOptions const& options, std::vector<std::string> const& present);

// The recorder's inputs that these options make: what the operator set, and what this host has by default.
Vorn::Config::Ptr configOf(AgentOptions const& options);
Vorn::Hardware::Status::Ptr hardwareStatusOf(AgentOptions const& options);

}  // namespace Agent
