// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "agent/record/Flow.h"

namespace Agent {

// What a flow is, in words that people know; all of them printable. What is not known of it is empty.
struct FlowName {
  explicit FlowName(FlowKey const& key);

  // "10.0.1.1", "2001:db8::7"; "10.0.1.0/24" where only the network is known.
  std::string source{};
  std::string destination{};
  std::string protocol{};  // "udp", "arp"; "protocol 99" of IP, "ethertype 0x88cc" for those without a name
  // All in one: "10.0.1.1:40000 > 10.0.1.2:9 udp", "[2001:db8::7]:443 > [2001:db8::9]:40000 tcp vlan 7",
  // "10.0.1.1 > 10.0.1.2 udp fragment", "arp".
  std::string flow{};
};

// A flow with its figures, in one sentence.
std::string flowText(FlowShare const& share);

}  // namespace Agent
