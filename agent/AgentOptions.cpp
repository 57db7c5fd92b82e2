// SPDX-License-Identifier: Apache-2.0
#include "agent/AgentOptions.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <tuple>
#include <utility>

#include "Kes/Trace.h"
#include "agent/ConfigFile.h"
#include "agent/OptionValues.h"
#include "agent/base/NamePattern.h"
#include "agent/base/PoolLimit.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"

namespace Agent {

namespace {

constexpr char const* description =
    "Records the congestion of every egress queue of this machine, and answers vorn-show.\n"
    "Stays in the foreground, as service managers like it; SIGTERM or SIGINT end it.";

constexpr char const* defaultConfigPath = "/etc/vorn/agent.toml";
constexpr char const* poolVariable = "SIM_NUM_SHARED_CHUNKS";

// The help's heading of options that may change while the agent runs.
constexpr char const* liveGroup = "Options that SIGHUP reads again from the configuration file";

// None for a user's own agent, which is one that listens at the user's own socket: the file is the system's.
std::string defaultConfig() {
  return ::geteuid() != 0 && !Protocol::userSocketPath().empty() ? "" : defaultConfigPath;
}

// What is given as text, or in another unit than it is kept.
struct Raw {
  std::string configPath = defaultConfig();
  bool checkConfig = false;
  double intervalMs = 1.0;
  std::string source = automatic;
  bool noFlows = false;
  std::string flowPrefix = "32,128";
  std::string coalescing = automatic;
  std::string pool;
  std::vector<std::string> portThresholds;
  CLI::Option* portOptions[2] = {};
  CLI::Option* globalOptions[2] = {};
  CLI::Option* userConnections = nullptr;
  CLI::Option* userReports = nullptr;
};

std::chrono::microseconds microseconds(double milliseconds) {
  return std::chrono::microseconds(static_cast<std::int64_t>(milliseconds * 1000.0));
}

// Without extra arguments CLI11 leaves a value between brackets alone, as a shell pattern may be.
CLI::Option* addList(CLI::App& app, char const* name, std::vector<std::string>& values, char const* help) {
  return app.add_option(name, values, help)->allow_extra_args(false)->check(emptyFault);
}

bool isList(CLI::Option const& option) { return option.get_items_expected_max() > 1; }

constexpr std::uint32_t mostBytes = std::numeric_limits<std::uint32_t>::max();

void addSource(CLI::App& app, AgentOptions& options, Raw& raw) {
  app.add_option("--enabled", options.enabled, "Whether the agent looks at the queues at all")
      ->check(booleanFault)
      ->type_name("BOOL")
      ->default_str("true");
  app.add_option("--interval", raw.intervalMs, "Milliseconds between two looks at the queues")
      ->check(between(0.05, 60'000.0))
      ->type_name("MS")
      ->capture_default_str();
  app.add_option("--start-threshold", options.startThresholdBytes,
                 "Above this many bytes a queue is congested (at least two full frames)")
      ->check(between(std::uint32_t{0}, mostBytes))
      ->type_name("BYTES")
      ->capture_default_str();
  app.add_option("--coalesce", raw.coalescing,
                 "What follows so soon is the same burst; auto: 3 looks, exact 1 ms")
      ->check(autoOrBetween(0.0, 60'000.0))
      ->type_name("MS")
      ->capture_default_str();
  addList(app, "--interface", options.interfaces,
          "Watch only this interface; may be a shell pattern (repeatable)")
      ->type_name("NAME");
  addList(app, "--exclude", options.excluded, "Leave out this interface; may be a shell pattern (repeatable)")
      ->type_name("NAME");
  char const* const setting = std::getenv(poolVariable);
  raw.pool = setting != nullptr ? setting : automatic;
  app.add_option("--pool", raw.pool, "Chunks of 500 records; auto: 200, or 2 an interface with congestion")
      ->check(autoOrBetween(std::uint32_t{1}, maxPoolChunks))
      ->type_name("CHUNKS")
      ->capture_default_str();
}

constexpr char const* exact = "exact";
constexpr char const* poll = "poll";

std::string sourceFault(std::string const& text) {
  bool const known = text == automatic || text == exact || text == poll;
  return known ? "" : '"' + text + "\" is none of auto, exact and poll";
}

// Bits of an IPv4 and of an IPv6 address.
std::optional<std::pair<unsigned, unsigned>> flowPrefixOf(std::string_view text) {
  std::size_t const comma = text.find(',');
  if (comma == std::string_view::npos) return std::nullopt;
  auto const ipv4 = numberOf<unsigned>(text.substr(0, comma));
  auto const ipv6 = numberOf<unsigned>(text.substr(comma + 1));
  if (!ipv4 || !ipv6 || *ipv4 > 32 || *ipv6 > 128) return std::nullopt;
  return std::pair(*ipv4, *ipv6);
}

std::string flowPrefixFault(std::string const& text) {
  return flowPrefixOf(text) ? "" : '"' + text + "\" is not BITS,BITS, 0 to 32 for IPv4 and 0 to 128 for IPv6";
}

void addProbe(CLI::App& app, Raw& raw) {
  app.add_option("--source", raw.source,
                 "exact: every packet is seen; poll: looks; auto: exact, or else poll")
      ->check(sourceFault)
      ->type_name("SOURCE")
      ->capture_default_str();
  app.add_flag("--no-flows", raw.noFlows, "Where every packet is seen, do not count who filled a queue")
      ->check(booleanFault);
  app.add_option("--flow-prefix", raw.flowPrefix, "What is kept of their addresses, of IPv4 and IPv6 in bits")
      ->check(flowPrefixFault)
      ->type_name("BITS,BITS")
      ->capture_default_str();
}

std::uint32_t bytesOf(std::string_view text) {
  auto const value = numberOf<std::uint32_t>(text);
  if (!value) throw CLI::ValidationError("\"" + std::string(text) + "\" is no number of bytes");
  return *value;
}

void checkOrder(Thresholds const& thresholds, std::string const& what) {
  if (thresholds.low > thresholds.high) {
    throw CLI::ValidationError(what, "the low threshold, " + std::to_string(thresholds.low) +
                                         ", is above the high one, " + std::to_string(thresholds.high));
  }
}

// A Linux interface name may hold "=" and ",", so both are sought from the end.
AgentOptions::PortThresholds portThresholdsOf(std::string_view text) {
  std::size_t const equals = text.rfind('=');
  std::size_t const comma = text.rfind(',');
  if (equals == std::string_view::npos || equals == 0 || comma == std::string_view::npos || comma < equals)
    throw CLI::ValidationError("\"" + std::string(text) + "\" is not NAME=HIGH,LOW");
  AgentOptions::PortThresholds const port = {
      std::string(text.substr(0, equals)),
      {bytesOf(text.substr(equals + 1, comma - equals - 1)), bytesOf(text.substr(comma + 1))}};
  checkOrder(port.thresholds, port.interface);
  return port;
}

// Empty: none.
std::string portThresholdsFault(std::string const& text) {
  try {
    portThresholdsOf(text);
    return "";
  } catch (CLI::ValidationError const& fault) {
    return fault.what();
  }
}

void addThresholds(CLI::App& app, AgentOptions& options, Raw& raw) {
  auto const bytes = [&app](char const* name, std::uint32_t& value, char const* help) {
    return app.add_option(name, value, help)
        ->check(between(std::uint32_t{0}, mostBytes))
        ->type_name("BYTES")
        ->capture_default_str();
  };
  raw.portOptions[0] =
      bytes("--high", options.ports.high, "Queue length that is logged as over the high threshold");
  raw.portOptions[1] = bytes("--low", options.ports.low, "Queue length that is logged at all");
  raw.globalOptions[0] =
      bytes("--global-high", options.globalBuffer.high, "The same for the sum of all queues");
  raw.globalOptions[1] =
      bytes("--global-low", options.globalBuffer.low, "The same for the sum of all queues");
  addList(app, "--port-threshold", raw.portThresholds,
          "Of one interface, or of those that a shell pattern fits (repeatable)")
      ->check(portThresholdsFault)
      ->type_name("NAME=HIGH,LOW");
  auto const seconds = [&app](char const* name, double& value, char const* help) {
    app.add_option(name, value, help)->check(between(0.0, 1e9))->type_name("SECONDS")->capture_default_str();
  };
  seconds("--log-interval", options.logInterval,
          "Least time between threshold messages of an interface; 0: none at all");
  seconds("--global-log-interval", options.globalLogInterval, "The same for the global buffer");
}

void addClients(CLI::App& app, AgentOptions::ClientLimits& clients, Raw& raw) {
  auto const places = [&app](char const* name, std::uint32_t& value, std::uint32_t most, char const* help) {
    return app.add_option(name, value, help)
        ->check(between(std::uint32_t{2}, most))
        ->type_name("N")
        ->capture_default_str();
  };
  places("--connections", clients.connections, 2048, "Clients at a time");
  raw.userConnections = places("--user-connections", clients.userConnections, 2048, "The same of one user");
  places("--reports", clients.reports, 64, "Reports at a time, each written by a process of its own");
  raw.userReports = places("--user-reports", clients.userReports, 64, "The same of one user");
}

void addProcess(CLI::App& app, AgentOptions& options, Raw& raw) {
  app.add_option("--config", raw.configPath,
                 "Where the configuration file is; a user's own agent reads none without")
      ->configurable(false)
      ->type_name("PATH")
      ->capture_default_str();
  app.add_flag("--check-config", raw.checkConfig, "Only say whether the configuration is good")
      ->configurable(false);
  app.add_option("--socket", options.socketPath, "Where to listen for requests")
      ->check(emptyFault)
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option("--state-dir", options.stateDirectory,
                 "Keep the history there across restarts (default: $STATE_DIRECTORY)")
      ->default_str(options.stateDirectory)
      ->type_name("DIR");
  app.add_option("--save-interval", options.saveInterval,
                 "Seconds between saves, if it has changed; 0: at the end only")
      ->check(between(0U, 86'400U))
      ->type_name("SECONDS")
      ->capture_default_str();
  app.add_flag("--stderr", options.messagesToStderr,
               "Messages go to standard error as well as to the system log")
      ->check(booleanFault);
  app.add_option("--trace", options.traceLevel, "Diagnostics up to this level (0 to 9) on standard error")
      ->check(between(0U, Kes::U32{Kes::TraceHandle::maxLevel}))
      ->type_name("LEVEL");
  app.add_option("--fifo", options.fifoPriority, "Run under the real-time policy SCHED_FIFO (1 to 99)")
      ->check(between(1, 99))
      ->type_name("PRIORITY");
}

// Of one user and of all. The default of the former follows the latter.
void limit(CLI::Option& option, std::uint32_t& ofUser, std::uint32_t all) {
  if (ofUser <= all) return;
  std::string const name = option.get_lnames().front();
  if (option.count() != 0)
    throw CLI::ValidationError(
        "--" + name + ", --" + name.substr(name.find('-') + 1),
        std::to_string(ofUser) + " of one user are more than the " + std::to_string(all) + " of all");
  ofUser = all;
  option.default_str(std::to_string(all));
}

void complete(AgentOptions& options, Raw const& raw) {
  options.portsConfigured = raw.portOptions[0]->count() + raw.portOptions[1]->count() != 0;
  options.globalBufferConfigured = raw.globalOptions[0]->count() + raw.globalOptions[1]->count() != 0;
  for (std::string const& text : raw.portThresholds) options.portThresholds.push_back(portThresholdsOf(text));
  options.interval = microseconds(raw.intervalMs);
  options.source = raw.source == exact ? Means::exact : raw.source == poll ? Means::poll : Means::automatic;
  options.probe.countFlows = !raw.noFlows;
  std::tie(options.probe.ipv4Prefix, options.probe.ipv6Prefix) = *flowPrefixOf(raw.flowPrefix);
  if (raw.coalescing != automatic) options.coalescing = microseconds(*numberOf<double>(raw.coalescing));
  options.poolGrows = raw.pool == automatic;
  options.poolChunks = numberOf<std::uint32_t>(raw.pool).value_or(0);
  checkOrder(options.ports, "--high, --low");
  checkOrder(options.globalBuffer, "--global-high, --global-low");
  limit(*raw.userConnections, options.clients.userConnections, options.clients.connections);
  limit(*raw.userReports, options.clients.userReports, options.clients.reports);
}

// What a service manager gives us; it names several with colons between them, the first is ours. Empty: none.
std::string directoryIn(char const* variable) {
  char const* const names = std::getenv(variable);
  std::string_view const all = names == nullptr ? "" : names;
  return std::string(all.substr(0, all.find(':')));
}
constexpr char const* stateDirectoryVariable = "STATE_DIRECTORY";
constexpr char const* runtimeDirectoryVariable = "RUNTIME_DIRECTORY";

// One parse: the options with all that CLI11 knows of them.
struct Reading {
  AgentOptions options;
  Raw raw;
  CLI::App app{description, "vorn-agent"};

  Reading() {
    std::string const runtime = directoryIn(runtimeDirectoryVariable);
    options.socketPath = runtime.empty() ? Protocol::defaultSocketPath() : runtime + "/agent.sock";
    options.stateDirectory = directoryIn(stateDirectoryVariable);
    addProcess(app, options, raw);
    addProbe(app, raw);
    app.set_version_flag("--version", "vorn-agent " VORN_VERSION);
    app.option_defaults()->group(liveGroup);  // of what follows: LiveSettings has it take effect
    addSource(app, options, raw);
    addThresholds(app, options, raw);
    addClients(app, options.clients, raw);
  }

  // Throws CLI::ParseError.
  void parse(std::vector<std::string> arguments) {
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 wants them
    app.parse(std::move(arguments));
  }
};

void append(std::vector<std::string>& arguments, ConfigFile::Setting const& setting) {
  for (std::string const& value : setting.values) {
    // Behind "=" an empty one would be sought in the next argument.
    arguments.push_back("--" + setting.name + (value.empty() ? "" : '=' + value));
    if (value.empty()) arguments.emplace_back();
  }
}

// CLI11 names options as the command line does.
ConfigError faultIn(ConfigFile const& file, ConfigFile::Setting const& setting, std::string text) {
  if (text.starts_with("--" + setting.name + ':')) text.erase(0, 2);
  return ConfigError(printable(file.place(setting.line) + ": " + text));
}

// A setting of the file by itself. Throws ConfigError.
void check(ConfigFile const& file, ConfigFile::Setting const& setting) {
  std::vector<std::string> arguments;
  append(arguments, setting);
  try {
    Reading().parse(arguments);
  } catch (CLI::ParseError const& fault) {
    throw faultIn(file, setting, fault.what());
  }
}

// The one that the command line asks for. Throws ConfigError.
ConfigFile fileOf(AgentOptions::CommandLine const& line) {
  if (line.configPath.empty() && !line.names.contains("config")) return {};
  if (auto file = ConfigFile::read(line.configPath)) return *file;
  if (line.hadFile)
    throw ConfigError(printable(line.configPath) +
                      ": there is no such file any more; an empty one stands for the defaults");
  if (line.names.contains("config"))
    throw ConfigError(printable(line.configPath) + ": there is no such file");
  return {};
}

std::string originOf(std::string const& name, AgentOptions::CommandLine const& line, ConfigFile const& file) {
  if (line.names.contains(name)) return "command line";
  if (auto const* const setting = file.find(name)) return file.place(setting->line);
  if (name == "pool" && std::getenv(poolVariable) != nullptr) return std::string("$") + poolVariable;
  auto const given = [](char const* variable) { return !directoryIn(variable).empty(); };
  if (name == "state-dir" && given(stateDirectoryVariable)) return std::string("$") + stateDirectoryVariable;
  if (name == "socket" && given(runtimeDirectoryVariable)) return std::string("$") + runtimeDirectoryVariable;
  return name.ends_with("high") || name.ends_with("low") ? "this host" : "default";
}

std::vector<AgentOptions::Setting> settingsOf(CLI::App const& app, AgentOptions::CommandLine const& line,
                                              ConfigFile const& file) {
  std::vector<AgentOptions::Setting> settings;
  for (CLI::Option const* const option : app.get_options()) {
    if (!option->get_configurable()) continue;
    std::string const& name = option->get_lnames().front();
    std::vector<std::string> values = option->results();
    if (values == std::vector<std::string>{""}) values.clear();
    bool const isFlag = option->get_expected_min() == 0;
    if (values.empty() && isFlag) values = {"false"};
    if (option->count() == 0 && values.empty() && !option->get_default_str().empty())
      values = {option->get_default_str()};
    settings.push_back(
        {name, values, isList(*option), option->get_group() == liveGroup, originOf(name, line, file)});
  }
  return settings;
}

// Throws CLI::ParseError for what is wrong with the command line, ConfigError for what is with the file.
AgentOptions optionsOf(AgentOptions::CommandLine const& line, ConfigFile const& file) {
  Reading all;
  std::vector<std::string> arguments;
  auto const isOverridden = [&line](auto const& setting) { return line.names.contains(setting.name); };
  for (ConfigFile::Setting const& setting : file.settings()) {
    auto const* const option = all.app.get_option_no_throw("--" + setting.name);
    if (option == nullptr || !option->get_configurable())
      throw faultIn(file, setting, "there is no setting \"" + setting.name + '"');
    if (setting.isArray && !isList(*option))
      throw faultIn(file, setting, setting.name + ": it takes no array");
    if (isOverridden(setting))
      check(file, setting);
    else
      append(arguments, setting);
  }
  arguments.insert(arguments.end(), line.arguments.begin(), line.arguments.end());
  try {
    all.parse(arguments);
    complete(all.options, all.raw);
  } catch (CLI::ParseError const& fault) {
    for (ConfigFile::Setting const& setting : file.settings()) check(file, setting);
    // Each is good, but two do not go together. The text begins with their names.
    std::string const text = fault.what();
    for (ConfigFile::Setting const& setting : file.settings())
      if (!isOverridden(setting) && text.find("--" + setting.name) != std::string::npos)
        throw faultIn(file, setting, text);
    throw;
  }
  if (all.options.socketPath.empty() && !all.raw.checkConfig)
    throw CLI::ValidationError("--socket", "needed, since $XDG_RUNTIME_DIR is not set");
  all.options.settings = settingsOf(all.app, line, file);
  all.options.commandLine = line;
  all.options.commandLine.hadFile = !file.path().empty();
  return std::move(all.options);
}

}  // namespace

std::optional<AgentOptions> parseAgentOptions(int argc, char const* const* argv, int& exitStatus) {
  Reading reading;
  try {
    AgentOptions::CommandLine line{.arguments{argv + 1, argv + argc}, .names{}, .configPath{}};
    reading.parse(line.arguments);
    for (CLI::Option const* const option : std::as_const(reading.app).get_options())
      if (option->count() != 0) line.names.insert(option->get_lnames().front());
    line.configPath = reading.raw.configPath;
    ConfigFile const file = fileOf(line);
    AgentOptions options = optionsOf(line, file);
    if (!reading.raw.checkConfig) return options;
    std::printf("%s: %s\n", line.configPath.empty() ? "no --config" : printable(line.configPath).c_str(),
                file.path().empty() ? "there is no such file, which is good as well" : "good");
    exitStatus = 0;
  } catch (CLI::ParseError const& error) {
    exitStatus = reading.app.exit(error) == 0 ? 0 : 2;
  } catch (ConfigError const& error) {
    std::fprintf(stderr, "vorn-agent: %s\n", error.what());
    exitStatus = 2;
  }
  return std::nullopt;
}

AgentOptions readAgain(AgentOptions const& options) {
  try {
    return optionsOf(options.commandLine, fileOf(options.commandLine));
  } catch (CLI::ParseError const& error) {
    throw ConfigError(error.what());
  }
}

Thresholds const* thresholdsFor(AgentOptions const& options, std::string const& interface) {
  auto const& ports = options.portThresholds;
  // The command line lets the last of two win where both name it.
  auto const own = std::find_if(ports.rbegin(), ports.rend(),
                                [&](auto const& port) { return port.interface == interface; });
  if (own != ports.rend()) return &own->thresholds;
  auto const fitting = std::find_if(ports.begin(), ports.end(),
                                    [&](auto const& port) { return fits(port.interface, interface); });
  return fitting == ports.end() ? nullptr : &fitting->thresholds;
}

std::vector<std::string> remarksOn(AgentOptions const& options, std::vector<std::string> const& present) {
  constexpr std::size_t mostRemarks = 10;
  std::size_t missing = 0;
  std::vector<std::string> remarks;
  auto const remark = [&](std::string const& option, std::string const& name, auto const& isMeant) {
    if (std::any_of(present.begin(), present.end(), isMeant)) return;
    if (++missing <= mostRemarks)
      remarks.push_back(option + ' ' + printable(name) + ": there is no such interface now");
  };
  for (std::string const& pattern : options.interfaces)
    remark("--interface", pattern, [&](auto const& name) { return fits(pattern, name); });
  for (auto const& port : options.portThresholds)
    remark("--port-threshold", port.interface, [&](auto const& name) { return fits(port.interface, name); });
  if (missing > mostRemarks)
    remarks.push_back("... and " + std::to_string(missing - mostRemarks) + " more that do not exist now");
  return remarks;
}

}  // namespace Agent
