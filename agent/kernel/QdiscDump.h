// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "Kes/Types.h"
#include "agent/base/FileDescriptor.h"
#include "agent/kernel/DumpParser.h"
#include "agent/kernel/QdiscSample.h"

namespace Agent {

// Reads all queueing disciplines of this network namespace with their counters, in one rtnetlink dump that
// includes the default leaves of classes. It needs no privilege and disturbs nobody: the single-queue request
// would be broadcast to every listener.
class QdiscDump {
 public:
  // interrupted: the kernel says that its tables changed meanwhile, so queues may be missing or stand twice.
  // It does not always notice: see ChangeWatch.
  enum class Outcome { whole, interrupted, failed };

  QdiscDump();

  // Replaces `samples`, interface by interface and always in the same order while nobody changes the tables.
  // Neither blocks nor, once the vector has grown, allocates. After a failure `samples` holds what came
  // before it, and the next poll begins with a new socket.
  Outcome poll(std::vector<QdiscSample>& samples);

  // Of the last dump that failed: a number of errno.
  int error() const { return error_; }

 private:
  using State = DumpParser::State;

  State request();
  State receive(DumpParser& parser, std::vector<QdiscSample>& samples);
  State fail(int error);

  FileDescriptor socket_;
  Kes::U32 sequence_ = 0;
  Kes::U64 snapshotStamp_ = 0;  // when the kernel filled the part that is received next
  std::vector<std::byte> buffer_;
  int error_ = 0;
};

}  // namespace Agent
