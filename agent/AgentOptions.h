// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/probe/Means.h"
#include "agent/probe/Probe.h"

namespace Agent {

// Two queue lengths in bytes: high >= low.
struct Thresholds {
  std::uint32_t high;
  std::uint32_t low;
};

// vorn-agent's options, checked: each from the command line, else from the configuration file, else its
// default. `vorn-agent --help` is the manual of each.
struct AgentOptions {
  // One of them as it was given.
  struct Setting {
    std::string name;                 // on the command line with "--" in front
    std::vector<std::string> values;  // none: not set
    bool isList;
    bool isLive;         // may change while the agent runs
    std::string origin;  // for people
  };
  std::vector<Setting> settings;  // all that may stand in a configuration file, in order of --help

  struct CommandLine {
    std::vector<std::string> arguments;  // without the program
    std::set<std::string> names;         // of the options that are given there
    std::string configPath;              // empty: none
    bool hadFile = false;                // when it was read last
  };
  CommandLine commandLine;

  // This host's defaults.
  static constexpr Thresholds hostPorts{262'144, 65'536};
  static constexpr Thresholds hostGlobalBuffer{1'048'576, 262'144};

  std::string socketPath;
  bool messagesToStderr = false;

  Means source = Means::automatic;
  Probe::Options probe;

  std::chrono::microseconds interval{1000};
  std::uint32_t startThresholdBytes = 0;
  std::vector<std::string> interfaces;  // none: all
  std::vector<std::string> excluded;
  std::optional<std::chrono::microseconds> coalescing;  // none: three looks, with the probe 1 ms
  std::uint32_t poolChunks = 0;                         // 0: what the recorder makes of its environment
  bool poolGrows = false;                               // "auto"

  std::optional<bool> enabled;  // none: this host's default, which is to run
  Thresholds ports = hostPorts;
  bool portsConfigured = false;
  Thresholds globalBuffer = hostGlobalBuffer;
  bool globalBufferConfigured = false;
  struct PortThresholds {
    std::string interface;  // or a shell pattern
    Thresholds thresholds;
  };
  std::vector<PortThresholds> portThresholds;

  double logInterval = 60.0;        // seconds; 0: off
  double globalLogInterval = 60.0;  // seconds; 0: off

  std::string stateDirectory;       // empty: the history is not kept
  std::uint32_t saveInterval = 60;  // seconds; 0: at the end only
  struct ClientLimits {
    std::uint32_t connections = 1024;
    std::uint32_t userConnections = 320;
    std::uint32_t reports = 5;
    std::uint32_t userReports = 3;
  };
  ClientLimits clients;

  std::optional<std::uint32_t> traceLevel;
  std::optional<int> fifoPriority;
};

// Reads the command line and the configuration file. Nothing is returned when the process is to end at once
// with `exitStatus`: after --help, --version and --check-config (0) and for a usage error or a bad file (2),
// whose text has been printed.
std::optional<AgentOptions> parseAgentOptions(int argc, char const* const* argv, int& exitStatus);

// The same command line with the file as it is now. Does not wait. Throws ConfigError (ConfigFile.h).
AgentOptions readAgain(AgentOptions const& options);

// The thresholds that the options have for the interface of that name alone: its own, else those of the first
// pattern that fits. Null if there are none.
Thresholds const* thresholdsFor(AgentOptions const& options, std::string const& interface);

// What an operator is told at start: which interfaces the options name that are not among those of the
// machine.
std::vector<std::string> remarksOn(AgentOptions const& options, std::vector<std::string> const& present);

}  // namespace Agent
