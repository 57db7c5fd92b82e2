// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/query/Query.h"

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
    top,
    timeline,
    who,
    follow,
    raw,
    status,
    metrics,
    save,
    config,
    schema,
    types,
    type,
    get,
    set,
    call
  };

  Report report = Report::history;
  // Of reports of the history, but for the report itself. `drops` and `all` serve `get` as well.
  Query query{};
  bool csv = false;
  bool json = false;
  std::string sort{};                    // an order by its name; empty: the report's own
  std::string html{};                    // a file for a page, of timeline
  std::string trace{};                   // a file for a trace, of history
  bool follow = false;                   // history as it goes on
  std::optional<double> watch{};         // of top: anew after so many seconds
  std::vector<std::string> words{};      // of raw: the vocabulary itself; of type to call: what is asked for
  std::optional<std::uint32_t> depth{};  // of get
};

// The line to send to the agent, and what to do with what comes back.
struct ShowCommand {
  std::string request;
  // Where the answer belongs as it is, instead of standard output; empty: there, printable.
  std::string file{};
  bool colour = false;  // colours of the answer may pass
};

// Translates, and refuses what makes no sense. Throws UsageError.
ShowCommand showCommandFor(ShowOptions const& options);

// The query that follow is to keep to. Throws UsageError.
Query followQueryFor(ShowOptions const& options);

}  // namespace Agent
