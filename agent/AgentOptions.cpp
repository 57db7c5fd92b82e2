#include "agent/AgentOptions.h"

#include <fnmatch.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

#include "Kes/Trace.h"
#include "agent/base/PoolLimit.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"

namespace Agent {

namespace {

constexpr char const* description =
    "Records the congestion of every egress queue of this machine, and answers vorn-show.\n"
    "Stays in the foreground, as service managers like it; SIGTERM or SIGINT end it.";

// What is given as text, or in another unit than it is kept.
struct Raw {
  double intervalMs = 1.0;
  std::vector<std::string> portThresholds;
  CLI::Option* portOptions[2] = {};
  CLI::Option* globalOptions[2] = {};
};

void addSource(CLI::App& app, AgentOptions& options, Raw& raw) {
  app.add_option("--interval", raw.intervalMs, "Milliseconds between two looks at the queues")
      ->check(CLI::Range(0.05, 60'000.0))
      ->type_name("MS")
      ->capture_default_str();
  app.add_option("--start-threshold", options.startThresholdBytes,
                 "Above this many bytes a queue is congested (at least two full frames)")
      ->type_name("BYTES");
  app.add_option("--interface", options.interfaces,
                 "Watch only this interface; may be a shell pattern (repeatable)")
      ->allow_extra_args(false)
      ->type_name("NAME");
  app.add_option("--pool", options.poolChunks,
                 "Chunks of 500 records for all (default: $SIM_NUM_SHARED_CHUNKS or 200)")
      ->check(CLI::Range(std::uint32_t{1}, maxPoolChunks))
      ->type_name("CHUNKS");
}

void addThresholds(CLI::App& app, AgentOptions& options, Raw& raw) {
  auto const bytes = [&app](char const* name, std::uint32_t& value, char const* help) {
    return app.add_option(name, value, help)->type_name("BYTES")->capture_default_str();
  };
  raw.portOptions[0] =
      bytes("--high", options.ports.high, "Queue length that is logged as over the high threshold");
  raw.portOptions[1] = bytes("--low", options.ports.low, "Queue length that is logged at all");
  raw.globalOptions[0] =
      bytes("--global-high", options.globalBuffer.high, "The same for the sum of all queues");
  raw.globalOptions[1] =
      bytes("--global-low", options.globalBuffer.low, "The same for the sum of all queues");
  app.add_option("--port-threshold", raw.portThresholds, "Thresholds of one interface, in bytes (repeatable)")
      ->allow_extra_args(false)
      ->type_name("NAME=HIGH,LOW");
  auto const seconds = [&app](char const* name, double& value, char const* help) {
    app.add_option(name, value, help)
        ->check(CLI::Range(0.0, 1e9))
        ->type_name("SECONDS")
        ->capture_default_str();
  };
  seconds("--log-interval", options.logInterval,
          "Least time between threshold messages of an interface; 0: none at all");
  seconds("--global-log-interval", options.globalLogInterval, "The same for the global buffer");
}

void addProcess(CLI::App& app, AgentOptions& options) {
  app.add_option("--socket", options.socketPath, "Where to listen for requests")
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option("--state-dir", options.stateDirectory,
                 "Keep the history there across restarts (default: $STATE_DIRECTORY)")
      ->type_name("DIR");
  app.add_option("--save-interval", options.saveInterval,
                 "Seconds between saves, if it has changed; 0: at the end only")
      ->check(CLI::Range(0U, 86'400U))
      ->type_name("SECONDS")
      ->capture_default_str();
  app.add_flag("--stderr", options.messagesToStderr,
               "Messages go to standard error as well as to the system log");
  app.add_option("--trace", options.traceLevel, "Diagnostics up to this level (0 to 9) on standard error")
      ->check(CLI::Range(0U, Kes::TraceHandle::maxLevel))
      ->type_name("LEVEL");
  app.add_option("--fifo", options.fifoPriority, "Run under the real-time policy SCHED_FIFO (1 to 99)")
      ->check(CLI::Range(1, 99))
      ->type_name("PRIORITY");
  app.set_version_flag("--version", "vorn-agent " VORN_VERSION);
}

std::uint32_t bytesOf(std::string_view text) {
  std::uint32_t value = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw CLI::ValidationError("--port-threshold", "\"" + std::string(text) + "\" is no number of bytes");
  }
  return value;
}

// A Linux interface name may hold "=" and ",", so both are sought from the end.
AgentOptions::PortThresholds portThresholdsOf(std::string_view text) {
  std::size_t const equals = text.rfind('=');
  std::size_t const comma = text.rfind(',');
  if (equals == std::string_view::npos || equals == 0 || comma == std::string_view::npos || comma < equals) {
    throw CLI::ValidationError("--port-threshold", "\"" + std::string(text) + "\" is not NAME=HIGH,LOW");
  }
  return {std::string(text.substr(0, equals)),
          {bytesOf(text.substr(equals + 1, comma - equals - 1)), bytesOf(text.substr(comma + 1))}};
}

void checkOrder(Thresholds const& thresholds, std::string const& what) {
  if (thresholds.low > thresholds.high) {
    throw CLI::ValidationError(what, "the low threshold, " + std::to_string(thresholds.low) +
                                         ", is above the high one, " + std::to_string(thresholds.high));
  }
}

void complete(AgentOptions& options, Raw const& raw) {
  options.portsConfigured = raw.portOptions[0]->count() + raw.portOptions[1]->count() != 0;
  options.globalBufferConfigured = raw.globalOptions[0]->count() + raw.globalOptions[1]->count() != 0;
  for (std::string const& text : raw.portThresholds) options.portThresholds.push_back(portThresholdsOf(text));
  for (double const number : {raw.intervalMs, options.logInterval, options.globalLogInterval}) {
    if (std::isnan(number)) throw CLI::ValidationError("--interval, --log-interval", "nan is no time");
  }
  options.interval = std::chrono::microseconds(static_cast<std::int64_t>(raw.intervalMs * 1000.0));
  checkOrder(options.ports, "--high, --low");
  checkOrder(options.globalBuffer, "--global-high, --global-low");
  for (auto const& port : options.portThresholds) checkOrder(port.thresholds, port.interface);
  if (options.socketPath.empty()) {
    throw CLI::ValidationError("--socket", "needed, since $XDG_RUNTIME_DIR is not set");
  }
}

// A service manager names several with colons between them; the first is ours.
std::string defaultStateDirectory() {
  char const* const names = std::getenv("STATE_DIRECTORY");
  std::string_view const all = names == nullptr ? "" : names;
  return std::string(all.substr(0, all.find(':')));
}

}  // namespace

std::optional<AgentOptions> parseAgentOptions(int argc, char const* const* argv, int& exitStatus) {
  AgentOptions options;
  options.socketPath = Protocol::defaultSocketPath();
  options.stateDirectory = defaultStateDirectory();
  Raw raw;
  CLI::App app(description, "vorn-agent");
  addSource(app, options, raw);
  addThresholds(app, options, raw);
  addProcess(app, options);
  try {
    app.parse(argc, argv);
    complete(options, raw);
  } catch (CLI::ParseError const& error) {
    exitStatus = app.exit(error) == 0 ? 0 : 2;
    return std::nullopt;
  }
  return options;
}

std::vector<std::string> remarksOn(AgentOptions const& options, std::vector<std::string> const& present) {
  std::vector<std::string> remarks;
  auto const remark = [&](std::string const& option, std::string const& name, auto const& isMeant) {
    if (std::none_of(present.begin(), present.end(), isMeant))
      remarks.push_back(option + ' ' + printable(name) + ": there is no such interface now");
  };
  for (std::string const& pattern : options.interfaces)
    remark("--interface", pattern,
           [&](auto const& name) { return ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0; });
  for (auto const& port : options.portThresholds)
    remark("--port-threshold", port.interface, [&](auto const& name) { return port.interface == name; });
  return remarks;
}

Vorn::Config::Ptr configOf(AgentOptions const& options) {
  auto const config = Kes::makePtr<Vorn::Config>();
  config->logIntervalIs(options.logInterval);
  config->globalLogIntervalIs(options.globalLogInterval);
  config->defaultThresholdsConfigIs({options.ports.high, options.ports.low, options.portsConfigured});
  config->globalThresholdsConfigIs(
      {options.globalBuffer.high, options.globalBuffer.low, options.globalBufferConfigured});
  for (auto const& [interface, thresholds] : options.portThresholds) {
    config->portConfigIs(interface, {thresholds.high, thresholds.low});
  }
  return config;
}

Vorn::Hardware::Status::Ptr hardwareStatusOf(AgentOptions const& options) {
  auto const status = Kes::makePtr<Vorn::Hardware::Status>();
  status->vornEnabledByDefaultIs(true);
  status->defHighThresholdIs(AgentOptions::hostPorts.high);
  status->defLowThresholdIs(AgentOptions::hostPorts.low);
  // No interface of this host is one, unless by its name.
  status->defCpuHighThresholdIs(options.ports.high);
  status->defCpuLowThresholdIs(options.ports.low);
  status->defGlobalBufHighThresholdIs(AgentOptions::hostGlobalBuffer.high);
  status->defGlobalBufLowThresholdIs(AgentOptions::hostGlobalBuffer.low);
  return status;
}

}  // namespace Agent
