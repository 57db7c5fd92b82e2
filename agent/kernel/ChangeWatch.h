// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "agent/base/FileDescriptor.h"
#include "agent/kernel/NetlinkMessage.h"

namespace Agent {

// What the kernel has told of links, queueing disciplines and classes, in its order within each.
struct KernelChanges {
  std::vector<LinkNotice> links;
  std::vector<TrafficNotice> traffic;
  bool lost = false;  // more than that has happened

  void clear() {
    links.clear();
    traffic.clear();
    lost = false;
  }
};

// Appends what the messages tell.
void readChanges(std::span<std::byte const> messages, KernelChanges& changes);

// The kernel's notifications of changes in this network namespace. They are what tells a torn dump: the
// kernel marks none of those in which disciplines were made or removed.
class ChangeWatch {
 public:
  // Throws std::system_error.
  ChangeWatch();

  // Readable when there is something to take.
  int fd() const { return socket_.get(); }

  // Appends what has come; false when nothing has. Does not block, and takes a bounded number of messages, so
  // that a flood of them costs no look at the queues.
  bool take(KernelChanges& changes);

 private:
  FileDescriptor socket_;
  std::vector<std::byte> buffer_;
};

}  // namespace Agent
