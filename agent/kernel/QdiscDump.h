#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "Kes/Types.h"
#include "agent/base/FileDescriptor.h"

namespace Agent {

// What tells one queueing discipline of this machine from another. `parent` is the class or slot that it
// hangs in (TC_H_ROOT for an interface's outermost), `handle` its own name, 0 for those that the kernel made
// by itself.
struct QdiscId {
  Kes::U32 ifindex = 0;
  Kes::U32 parent = 0;
  Kes::U32 handle = 0;
  std::array<char, 16> kind{};  // "tbf", NUL-padded

  auto operator<=>(QdiscId const&) const = default;
};

// A queueing discipline's counters at one moment. `bytes` (sent) and `drops` count up from the making of the
// queue; drops wrap at 2^32.
struct QdiscSample {
  QdiscId id;
  Kes::U64 stamp = 0;  // microseconds of the monotonic clock
  Kes::U64 bytes = 0;
  Kes::U32 backlog = 0;  // bytes waiting
  Kes::U32 drops = 0;    // packets
};

// Reads all queueing disciplines of this network namespace with their counters, in one rtnetlink dump that
// includes the default leaves of classes. It needs no privilege and disturbs nobody: the single-queue request
// would be broadcast to every listener.
class QdiscDump {
 public:
  // interrupted: the kernel's tables changed meanwhile, so queues may be missing or stand twice.
  enum class Outcome { whole, interrupted, failed };

  QdiscDump();

  // Replaces `samples`, interface by interface and always in the same order while nobody changes the tables.
  // Neither blocks nor, once the vector has grown, allocates. After a failure `samples` holds what came
  // before it, and the next poll begins with a new socket.
  Outcome poll(std::vector<QdiscSample>& samples);

 private:
  enum class Part { more, last, failed };

  bool open();
  bool request();
  Part receive(std::vector<QdiscSample>& samples);
  Part parse(std::span<std::byte const> messages, Kes::U64 stamp, std::vector<QdiscSample>& samples);

  FileDescriptor socket_;
  Kes::U32 sequence_ = 0;
  Kes::U64 snapshotStamp_ = 0;  // when the kernel filled the part that is received next
  bool interrupted_ = false;
  std::vector<std::byte> buffer_;
};

}  // namespace Agent
