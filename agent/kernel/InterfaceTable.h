#pragma once

#include <optional>

#include "Kes/Types.h"
#include "Pylo/IntfId.h"
#include "agent/base/FileDescriptor.h"

namespace Agent {

// What the source needs to know of an interface beside its queues.
struct Interface {
  Pylo::IntfId intfId;  // under its present name
  Kes::U32 frameBytes;  // a full frame as it stands in a queue: MTU and link header
};

// The interfaces of this network namespace by number. Nothing is kept here: ask again when fd() has become
// readable, which tells that interfaces were made, removed, renamed or given another MTU.
class InterfaceTable {
 public:
  // Throws std::system_error.
  InterfaceTable();

  // Empty when there is no such interface (any more).
  std::optional<Interface> interface(Kes::U32 ifindex) const;

  int fd() const { return changes_.get(); }
  // Makes fd() unreadable until the next change.
  void changesTaken();

 private:
  FileDescriptor query_;
  FileDescriptor changes_;
};

}  // namespace Agent
