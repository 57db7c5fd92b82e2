// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "Vorn/CongestionData.h"
#include "agent/base/ChildProcess.h"
#include "agent/base/SharedText.h"

namespace Agent {

// Writes a report into a stream, which tells by its error flag whether that succeeded. Returns what was asked
// for and could not be answered, for people; empty: nothing.
using ReportWriter = std::function<std::string(std::FILE*)>;

// The names of interfaces that could be congested, whether or not they have been.
using InterfaceNames = std::function<std::vector<std::string>()>;

// A child process that writes one report into a client's socket, while the agent goes on recording.
//
// The child is a fork: it owns a copy-on-write snapshot of the recorder as it stands at construction, and
// whatever a report can do to its process stays in the child: a client that never reads, a pattern that eats
// the stack, a failed assertion. It keeps no descriptor but the socket and standard error (where its last
// words go), takes no part in the agent's signal handling, is the first to go where memory runs out, and ends
// by itself after the time limits, also if the agent is gone by then.
//
// It writes with the socket's ordinary send buffer, so what a client leaves unread waits in the child's
// memory and not in the kernel's.
class ReportChild {
 public:
  struct Limits {
    std::chrono::milliseconds time{30'000};  // for the report to be written and taken
    std::chrono::milliseconds patterns{
        2'000};  // of processor time, until a report begins, or a writer says that the patterns are done
  };

  // Starts the report for `command`: the writer's, or where that is null the recorder's, and `command` is a
  // line of its vocabulary; each interface that it names should be one of the recorder's or of `interfaces`.
  // `clientSocket` is a blocking connected stream socket; the caller keeps its own descriptor of it. Throws
  // std::system_error if no process can be had.
  ReportChild(Vorn::CongestionData::Ptr const& recorder, int clientSocket, std::string const& command,
              ReportWriter const& writer, InterfaceNames const& interfaces, Limits limits);

  // Readable once the child has ended.
  int fd() const { return process_.fd(); }

  // Inside a child: what was to be compared with patterns has been.
  static void patternsAreDone();

  // Once it has ended: what went wrong, in plain words; empty for a report that was written whole.
  std::string failure();

  // Ends the child early; it is still to be awaited through fd().
  void kill() { process_.kill(); }

 private:
  SharedText failure_;
  ChildProcess process_;
};

}  // namespace Agent
