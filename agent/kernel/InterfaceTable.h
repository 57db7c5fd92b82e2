// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "Kes/Types.h"
#include "Pylo/IntfId.h"
#include "agent/base/FileDescriptor.h"
#include "agent/kernel/NetlinkMessage.h"

namespace Agent {

// What the source needs to know of an interface beside its queues.
struct Interface {
  Pylo::IntfId intfId;  // under its present name
  Kes::U32 frameBytes;  // a full frame as it stands in a queue: MTU and link header

  bool operator==(Interface const&) const = default;
};

// As the kernel tells it of an interface that is there.
Interface interfaceOf(LinkNotice const& notice);

// The interfaces of this network namespace by number, as they are at the moment of asking.
class InterfaceTable {
 public:
  // Throws std::system_error.
  InterfaceTable();

  // Empty when there is no such interface (any more).
  std::optional<Interface> interface(Kes::U32 ifindex) const;

 private:
  FileDescriptor query_;
};

}  // namespace Agent
