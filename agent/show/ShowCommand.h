// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/show/ReportFilter.h"

namespace Agent {

// Options that make no sense, alone or together; the text is for the operator.
class UsageError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// What an operator asks vorn-show for, as the command line gives it.
struct ShowOptions {
  enum class Report : std::uint8_t {
    history,
    statistics,
    globalBuffer,
    raw,
    status,
    save,
    config,
    types,
    type,
    get,
    set,
    call
  };

  Report report = Report::history;
  std::vector<std::string> interfaces{};  // names, full or short
  std::vector<std::string> patterns{};    // regular expressions (ECMAScript) for whole short names
  std::optional<std::uint32_t> lastSeconds{};
  std::optional<std::uint32_t> count{};
  bool drops = false;
  bool latency = false;
  bool csv = false;
  bool all = false;
  std::vector<std::string> words{};      // of raw: the vocabulary itself; of type to call: what is asked for
  bool json = false;                     // of status, types, type and get
  std::optional<std::uint32_t> depth{};  // of get
};

// The line to send to the agent, and what is left to do with the report that comes back.
struct ShowCommand {
  std::string request;
  ReportForm form{};
};

// Translates. The vocabulary finds its options anywhere in a word, cuts words at blanks and interface lists
// at commas, and reads the pieces as patterns; so names are quoted such that they select the interface of
// just that name, and what cannot be said is refused. Throws UsageError.
ShowCommand showCommandFor(ShowOptions const& options);

}  // namespace Agent
