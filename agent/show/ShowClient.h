// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "agent/base/FileDescriptor.h"
#include "agent/show/PrintableOutput.h"
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

// Connects to the agent at this path, or, where it is empty, to the user's own before the system's; one that
// cannot be there does not count. The path becomes that of the agent that was reached, so whoever asks again
// asks the same. Throws std::system_error. `patienceSeconds` is connectTo's (UnixSocket.h).
FileDescriptor connectToAgent(std::string& socketPath, int patienceSeconds);

// Asks the agent behind `socket` (blocking, connected, with a timeout) and hands the report to `output` as it
// arrives, printable. Throws std::system_error when the connection cannot be read.
AnswerEnd fetchReport(int socket, ShowCommand const& command, Output output);

// Asks it for what belongs into a file as it is. Throws as above.
AnswerEnd fetchBytes(int socket, std::string const& request, std::string& bytes);

}  // namespace Agent
