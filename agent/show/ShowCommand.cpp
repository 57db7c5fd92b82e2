// SPDX-License-Identifier: Apache-2.0
#include "agent/show/ShowCommand.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "Pylo/IntfId.h"
#include "Vorn/CommandOptions.h"
#include "Vorn/InterfacePattern.h"
#include "agent/base/PatternFault.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"

namespace Agent {

namespace {

using Report = ShowOptions::Report;

void refuse(bool given, std::string const& text) {
  if (given) throw UsageError(text);
}

void refuseSeparators(std::string const& text, std::string const& what) {
  refuse(text.empty(), what + " is empty");
  refuse(text.find(' ') != std::string::npos, what + " holds a blank: \"" + text + "\"");
}

// A pattern for exactly this name. A dash goes into brackets: bare, br-c0ffee would hold the option "-c".
std::string quotedName(std::string const& name) {
  refuseSeparators(name, "an interface name");
  refuse(name.find(',') != std::string::npos,
         "an interface name holds a comma: use --match with a dot for it");
  std::string const shortName = Pylo::IntfId(name).shortName().str();
  // The vocabulary has a meaning of its own for this piece: every fabric port.
  if (shortName == "Fabric") return "[F]abric";
  std::string quoted;
  for (char const c : shortName) {
    if (c == '-') {
      quoted += "[-]";
    } else {
      if (std::string_view("^$\\.*+?()[]{}|").find(c) != std::string_view::npos) quoted += '\\';
      quoted += c;
    }
  }
  return quoted;
}

// The operator's pattern with its meaning unchanged: in [a-c] the end of the range is spelt by its code,
// because "-c" asks for statistics wherever it stands. A bad one is refused, whether or not the agent would
// come to try it.
std::string safePattern(std::string pattern) {
  refuseSeparators(pattern, "a pattern");
  refuse(pattern.find(',') != std::string::npos,
         "a pattern holds a comma: give --match once for each pattern, and write x{1,2} as xx?");
  refuse(std::string_view("*+?").find(pattern.front()) != std::string_view::npos,
         "the pattern \"" + pattern +
             "\" has nothing to repeat: it is a regular expression, where .* is any text");
  for (std::size_t at = 0; (at = pattern.find("-c", at)) != std::string::npos;)
    pattern.replace(at, 2, "-\\x63");
  try {
    Vorn::compilePattern(pattern);
  } catch (std::regex_error const& error) {
    throw UsageError("bad pattern \"" + pattern + "\": " + patternFault(error.code()));
  }
  return pattern;
}

std::string interfaceToken(ShowOptions const& options) {
  std::string token;
  for (std::string const& name : options.interfaces) token += (token.empty() ? "-i" : ",") + quotedName(name);
  for (std::string const& pattern : options.patterns)
    token += (token.empty() ? "-i" : ",") + safePattern(pattern);
  return token;
}

void append(std::string& request, std::string const& token) {
  if (token.empty()) return;
  if (!request.empty()) request += ' ';
  request += token;
}

void refuseHistoryOptions(ShowOptions const& options, std::string const& report) {
  auto const onlyHistory = [&report](bool given, char const* option) {
    refuse(given, std::string(option) + " does not apply to " + report);
  };
  onlyHistory(options.lastSeconds.has_value(), "--last");
  onlyHistory(options.count.has_value(), "--count");
  onlyHistory(options.drops, "--drops");
  onlyHistory(options.latency, "--latency");
  onlyHistory(options.all, "--all");
}

void refuseFilter(ShowOptions const& options, std::string const& report) {
  refuse(!options.interfaces.empty(), "--interface does not apply to " + report);
  refuse(!options.patterns.empty(), "--match does not apply to " + report);
}

void refuseMeaninglessHistory(ShowOptions const& options) {
  refuse(options.drops && options.latency, "--drops and --latency are two reports: ask for one");
  refuse(options.all && (options.drops || options.latency),
         "--all does not apply to --drops and --latency: the global buffer has neither");
  if (!options.csv) return;
  refuse(options.drops || options.latency,
         "--drops and --latency do not apply to --csv, which carries all columns anyway");
}

ShowCommand history(ShowOptions const& options) {
  refuseMeaninglessHistory(options);
  refuse(options.lastSeconds == 0U, "--last takes 1 or more seconds");
  refuse(options.count == 0U, "--count takes 1 or more");
  ShowCommand command;
  append(command.request, interfaceToken(options));
  // The agent's comma-separated report knows no limits; they are kept when it arrives.
  if (options.csv) command.form = {ReportForm::Kind::csv, {}, options.lastSeconds, options.count};
  // To the agent's text report the global buffer's lines do not count.
  if (!options.csv && options.all && options.count)
    command.form = {ReportForm::Kind::counted, {}, {}, options.count};
  if (options.lastSeconds && !options.csv)
    append(command.request, "-t" + std::to_string(*options.lastSeconds));
  if (options.count && !options.csv) append(command.request, "-s" + std::to_string(*options.count));
  append(command.request, options.drops ? "-d" : options.latency ? "-l" : options.csv ? "csv" : "");
  append(command.request, options.all ? "-a" : "");
  return command;
}

// The statistics report knows no comma-separated form and leaves nothing out: both are made of its lines. The
// agent is told the interfaces all the same: it knows whether there are such.
ShowCommand statistics(ShowOptions const& options) {
  refuseHistoryOptions(options, "stats");
  ShowCommand command;
  append(command.request, interfaceToken(options));
  command.form.interfacePatterns = Vorn::parseCommand(command.request).interfacePatterns;
  append(command.request, "-c");
  if (options.csv) {
    command.form.kind = ReportForm::Kind::statisticsCsv;
  } else if (!command.form.interfacePatterns.empty()) {
    command.form.kind = ReportForm::Kind::statisticsText;
  }
  return command;
}

// "-i" without a name selects no interface, which leaves the global buffer's records alone.
ShowCommand globalBuffer(ShowOptions const& options) {
  refuseHistoryOptions(options, "global");
  refuseFilter(options, "global");
  if (!options.csv) return {"-b", {}};
  return {"-i csv -a", {ReportForm::Kind::csv}};
}

ShowCommand asItIs(ShowOptions const& options, std::string const& report, std::string const& request) {
  refuseHistoryOptions(options, report);
  refuseFilter(options, report);
  refuse(options.csv, "--csv does not apply to " + report);
  return {request, {}};
}

std::string joined(std::vector<std::string> const& words) {
  std::string line;
  for (std::string const& word : words) append(line, word);
  return line;
}

// What the agent looks up or changes by name: it reads the request itself.
ShowCommand byName(ShowOptions options, std::string const& verb) {
  std::string request = verb;
  if (options.json) request += " --json";
  if (options.depth) request += " --depth=" + std::to_string(*options.depth);
  if (verb == "get" && std::exchange(options.all, false)) request += " --all";
  append(request, joined(options.words));
  return asItIs(options, verb, request);
}

ShowCommand translate(ShowOptions const& options) {
  switch (options.report) {
    case Report::history: return history(options);
    case Report::statistics: return statistics(options);
    case Report::globalBuffer: return globalBuffer(options);
    case Report::raw: return asItIs(options, "raw", joined(options.words));
    case Report::status:
      return asItIs(options, "status",
                    std::string(options.json ? Protocol::jsonStatusRequest : Protocol::statusRequest));
    case Report::save: return asItIs(options, "save", std::string(Protocol::saveRequest));
    case Report::config: return asItIs(options, "config", std::string(Protocol::configRequest));
    case Report::types: return byName(options, "types");
    case Report::type: return byName(options, "type");
    case Report::get: return byName(options, "get");
    case Report::set: return byName(options, "set");
    case Report::call: return byName(options, "call");
  }
  throw UsageError("no such report");
}

}  // namespace

ShowCommand showCommandFor(ShowOptions const& options) {
  bool const looksUp = options.report >= Report::types && options.report <= Report::get;
  refuse(options.json && !looksUp && options.report != Report::status,
         "--json applies to status, types, type and get");
  refuse(options.depth && options.report != Report::get, "--depth applies to get");
  refuse(options.depth == 0U, "--depth takes 1 or more levels; --all shows everything below the path");
  ShowCommand command = translate(options);
  refuse(printable(command.request) != command.request,
         "the request holds a control character, or is not written in UTF-8");
  refuse(Protocol::checkedWord.size() + 1 + command.request.size() > Protocol::maxRequestBytes,
         "the request is longer than the 4096 bytes that the agent takes");
  return command;
}

}  // namespace Agent
