// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/base/EventLoop.h"
#include "agent/burst/SourceStatus.h"

namespace Agent {

// Where congestion records come from: the queues of this machine, a recording, a simulator. A source owns
// what it needs to look at them, registers its descriptors with the loop, and hands what it finds to a
// CongestionSink from within the loop's handlers, so that recorder and source share the one thread.
class Source {
 public:
  Source() = default;
  Source(Source const&) = delete;
  Source& operator=(Source const&) = delete;
  virtual ~Source() = default;

  // Called once. The loop must outlive the source. Throws std::system_error when the source cannot be had.
  virtual void start(EventLoop& loop) = 0;

  // How the source is doing; what it does not know of itself stays as it is by default.
  virtual SourceStatus status() const = 0;
};

}  // namespace Agent
