// SPDX-License-Identifier: Apache-2.0
#include "Vorn/CommandOptions.h"

#include <cstdlib>
#include <vector>

#include "Vorn/Trace.h"

namespace Vorn {

namespace {

// A position as traces show it: -1 for "not there".
std::ptrdiff_t shown(std::size_t position) {
  return position == std::string::npos ? -1 : static_cast<std::ptrdiff_t>(position);
}

bool has(std::string const& token, char const* text) { return token.find(text) != std::string::npos; }

// What is glued to an option: the token from its third character.
std::string valueOf(std::string const& token) { return token.substr(2); }

Kes::U32 numberOf(std::string const& token) {
  return static_cast<Kes::U32>(std::strtol(valueOf(token).c_str(), nullptr, 10));
}

void addPatterns(CommandOptions& options, std::string const& token) {
  std::vector<std::string> names;
  split(valueOf(token), ",", names);
  for (std::string const& name : names) {
    VORN_TRACE(6, " show entries for interface " << name);
    options.interfacePatterns.push_back(name == "Fabric" ? "Fc.*" : name);
  }
  options.allInterfaces = false;
}

// Takes one token in; true when it ends the command.
bool takeToken(CommandOptions& options, std::string const& token) {
  using Report = CommandOptions::Report;
  if (has(token, "-c")) {
    options.report = Report::statistics;
    return true;
  }
  if (has(token, "-i")) {
    addPatterns(options, token);
  } else if (has(token, "-t")) {
    options.ageLimit = numberOf(token);
    VORN_TRACE(6, " show entries for last " << options.ageLimit << " seconds ");
  } else if (has(token, "-s")) {
    options.entryCount = numberOf(token);
    VORN_TRACE(6, " show last " << options.entryCount << " entries ");
  } else if (has(token, "-d")) {
    options.drops = true;
  } else if (has(token, "csv")) {
    options.report = Report::csv;
  } else if (has(token, "-l")) {
    options.latency = true;
  } else if (has(token, "-b")) {
    options.report = Report::globalBuffer;
    return true;
  } else if (has(token, "-a")) {
    options.showAll = true;
  }
  return false;
}

}  // namespace

void split(std::string const& text, std::string const& delimiter, std::vector<std::string>& pieces) {
  std::size_t start = 0;
  while (!delimiter.empty()) {
    std::size_t const end = text.find(delimiter, start);
    if (end == std::string::npos) break;
    VORN_TRACE(6, " start " << start << " end " << end);
    pieces.push_back(text.substr(start, end - start));
    start = end + delimiter.size();
  }
  if (start == text.size()) return;
  VORN_TRACE(6, " end start " << start << " end " << -1);
  pieces.push_back(text.substr(start));
}

CommandOptions parseCommand(std::string const& command) {
  CommandOptions options;
  std::vector<std::string> tokens;
  split(command, " ", tokens);
  for (std::string const& token : tokens) {
    VORN_TRACE(8, "drops in vorn " << token << " find " << shown(token.find("drops")));
    if (takeToken(options, token)) break;
  }
  return options;
}

}  // namespace Vorn
