// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <string>
#include <vector>

#include "Kes/Types.h"

namespace Agent {

// What tells one flow from another. All zero where it is not known.
struct FlowKey {
  static constexpr Kes::U16 ipv4 = 0x0800;
  static constexpr Kes::U16 ipv6 = 0x86DD;

  // In the order of the network; of IPv4 the first four bytes, the others are zero.
  std::array<Kes::U8, 16> source{};
  std::array<Kes::U8, 16> destination{};
  // In the host's order; of protocols that have ports (TCP, UDP, SCTP, DCCP).
  Kes::U16 sourcePort = 0;
  Kes::U16 destinationPort = 0;
  Kes::U16 etherType = 0;  // in the host's order: ipv4, ipv6, or that of another protocol (ARP)
  Kes::U16 vlan = 0;       // the identifier of the VLAN, 0: none
  Kes::U8 protocol = 0;    // of IP: what stands behind its headers
  // Bits of both addresses that are kept, where only their networks are; the others are zero. 0: the whole
  // address.
  Kes::U8 prefix = 0;
  bool fragment = false;  // a later fragment, whose ports nobody can tell

  // Of each address; other protocols than IP have none.
  std::size_t addressBytes() const { return etherType == ipv4 ? 4 : etherType == ipv6 ? 16 : 0; }

  auto operator<=>(FlowKey const&) const = default;
};

// A flow's share in a burst.
struct FlowShare {
  // Of a control group's path, in bytes; records keep no more of it.
  static constexpr std::size_t longestCgroup = 255;

  FlowKey key{};
  Kes::U64 bytes = 0;  // that entered the queue while it was congested
  Kes::U64 packets = 0;
  Kes::U64 error = 0;  // bytes: counted too many by at most this
  Kes::U32 drops = 0;  // packets
  // Path of the control group whose local socket sent it; empty: none is known.
  std::string cgroup{};

  bool operator==(FlowShare const&) const = default;
};

// Who filled a queue in one burst.
struct BurstFlows {
  static constexpr std::size_t most = 5;  // that records keep

  // All that entered while the queue was congested, in whichever flow.
  Kes::U64 bytes = 0;
  Kes::U64 packets = 0;
  std::vector<FlowShare> largest{};  // by bytes, the largest first; none has more than there are

  bool operator==(BurstFlows const&) const = default;
};

}  // namespace Agent
