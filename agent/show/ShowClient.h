// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "agent/show/ReportFilter.h"
#include "agent/show/ShowCommand.h"

namespace Agent {

// How an answer ended: whole, or in words for the operator why not.
struct AnswerEnd {
  enum class Kind : std::uint8_t {
    whole,
    refused,   // the agent says why
    broken,    // what came is only a part, if anything came at all
    noAnswer,  // for as long as the socket's timeout
  };
  Kind kind;
  std::string text{};
};

// Asks the agent behind `socket` (blocking, connected, with a timeout) and hands the report to `output` as it
// arrives, printable and in the command's form. Throws std::system_error when the connection cannot be read.
AnswerEnd fetchReport(int socket, ShowCommand const& command, ReportFilter::Output output);

// Asks it for the whole history, as it belongs into a file. Throws as above.
AnswerEnd fetchHistory(int socket, std::string& history);

}  // namespace Agent
