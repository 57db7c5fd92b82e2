// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>

#include "Kes/Types.h"
#include "agent/kernel/QdiscSample.h"

namespace Agent {

// The kernel's rtnetlink messages, as bytes: nothing here knows of sockets. Bytes of any kind are taken; what
// is too short for what it should be reads as zeros or as nothing.

struct NetlinkMessage {
  Kes::U16 type;
  Kes::U16 flags;
  Kes::U32 sequence;
  std::span<std::byte const> body;  // behind the header
};

// Takes the first message off the front of `bytes`. None is found at the end, and where a length is wrong:
// then `bytes` keeps what stands there.
std::optional<NetlinkMessage> takeMessage(std::span<std::byte const>& bytes);

// The message tells of an interface: that it is there, with these properties, or that it is gone.
struct LinkNotice {
  Kes::U32 ifindex = 0;
  bool gone = false;
  std::array<char, 16> name{};  // NUL-terminated
  Kes::U32 mtu = 0;
  Kes::U16 type = 0;  // ARPHRD_...
};

// The message tells of a queueing discipline or a class: made, changed or gone.
struct TrafficNotice {
  Kes::U32 ifindex = 0;
  Kes::U32 parent = 0;
  Kes::U32 handle = 0;
  bool isClass = false;
  bool gone = false;
};

// Each is empty when the message is of another kind. readQdisc leaves the stamp to the caller.
std::optional<QdiscSample> readQdisc(NetlinkMessage const& message);
std::optional<LinkNotice> readLink(NetlinkMessage const& message);
std::optional<TrafficNotice> readTraffic(NetlinkMessage const& message);

// For the message that ends an answer: 0, or the number of the error (errno) that it ends with.
std::optional<int> readEnd(NetlinkMessage const& message);

}  // namespace Agent
