// SPDX-License-Identifier: Apache-2.0
#include "agent/probe/LargestFlows.h"

#include <endian.h>
#include <linux/if_ether.h>

#include <algorithm>
#include <array>

namespace Agent {

namespace {

FlowKey keyOf(FlowId const& id, Probe::Options const& options) {
  FlowKey key;
  std::copy_n(id.source, key.source.size(), key.source.begin());
  std::copy_n(id.destination, key.destination.size(), key.destination.begin());
  key.sourcePort = be16toh(id.sourcePort);
  key.destinationPort = be16toh(id.destinationPort);
  key.etherType = be16toh(id.etherType);
  key.vlan = id.vlan;
  key.protocol = id.protocol;
  key.fragment = id.fragment != 0;
  if (key.etherType == ETH_P_IP && options.ipv4Prefix < 32)
    key.prefix = static_cast<Kes::U8>(options.ipv4Prefix);
  if (key.etherType == ETH_P_IPV6 && options.ipv6Prefix < 128)
    key.prefix = static_cast<Kes::U8>(options.ipv6Prefix);
  return key;
}

}  // namespace

BurstFlows largestFlows(FlowTable const& table, Probe::Options const& options, ControlGroups& groups) {
  std::array<FlowEntry const*, BurstFlows::most> largest{};
  for (FlowSet const& set : table.sets) {
    for (unsigned way = 0; way < flowWays; ++way) {
      FlowEntry const* entry = &set.entries[way];
      if (set.tags[way] == 0 || (entry->bytes <= entry->error && entry->drops == 0)) continue;
      for (FlowEntry const*& place : largest)
        if (entry != nullptr && (place == nullptr || entry->bytes > place->bytes)) std::swap(place, entry);
    }
  }
  BurstFlows flows{.bytes = table.bytes, .packets = table.packets};
  for (FlowEntry const* const entry : largest) {
    if (entry == nullptr) break;
    flows.largest.push_back({.key = keyOf(entry->id, options),
                             .bytes = entry->bytes,
                             .packets = entry->packets,
                             .error = entry->error,
                             .drops = entry->drops,
                             .cgroup = groups.path(entry->cgroup)});
  }
  return flows;
}

}  // namespace Agent
