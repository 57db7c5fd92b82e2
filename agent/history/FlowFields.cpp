// SPDX-License-Identifier: Apache-2.0
#include "agent/history/FlowFields.h"

#include <algorithm>
#include <string_view>

namespace Agent {

namespace {

using HistoryFormat::FieldReader;
using HistoryFormat::Fields;
using Kes::U16;
using Kes::U32;
using Kes::U64;
using Kes::U8;

std::string_view bytesOf(std::array<U8, 16> const& address, std::size_t count) {
  return {reinterpret_cast<char const*>(address.data()), count};
}

void addFlow(Fields& fields, FlowShare const& flow) {
  FlowKey const& key = flow.key;
  fields.add(key.etherType);
  fields.add(key.protocol);
  fields.add(key.fragment ? HistoryFormat::isFragment : U8{0});
  fields.add(key.vlan);
  fields.add(key.prefix);
  fields.add(key.sourcePort);
  fields.add(key.destinationPort);
  fields.addBytes(bytesOf(key.source, key.addressBytes()));
  fields.addBytes(bytesOf(key.destination, key.addressBytes()));
  fields.add(flow.bytes);
  fields.add(flow.packets);
  fields.add(flow.error);
  fields.add(flow.drops);
  fields.addText(flow.cgroup);
}

// Whether it is one that could be.
bool takeFlow(FieldReader& fields, FlowShare& flow) {
  FlowKey& key = flow.key;
  key.etherType = fields.take<U16>();
  key.protocol = fields.take<U8>();
  U8 const flags = fields.take<U8>();
  key.fragment = flags == HistoryFormat::isFragment;
  key.vlan = fields.take<U16>();
  key.prefix = fields.take<U8>();
  key.sourcePort = fields.take<U16>();
  key.destinationPort = fields.take<U16>();
  for (auto* const address : {&key.source, &key.destination}) {
    std::string_view const bytes = fields.takeBytes(key.addressBytes());
    std::copy(bytes.begin(), bytes.end(), address->begin());
  }
  flow.bytes = fields.take<U64>();
  flow.packets = fields.take<U64>();
  flow.error = fields.take<U64>();
  flow.drops = fields.take<U32>();
  flow.cgroup = fields.takeText();
  return flags <= HistoryFormat::isFragment && flow.cgroup.size() <= FlowShare::longestCgroup &&
         flow.cgroup.find('\0') == std::string::npos;
}

}  // namespace

void addFlows(Fields& fields, BurstFlows const& flows) {
  fields.add(flows.bytes);
  fields.add(flows.packets);
  fields.add(static_cast<U8>(flows.largest.size()));
  for (FlowShare const& flow : flows.largest) addFlow(fields, flow);
}

std::optional<BurstFlows> takeFlows(FieldReader& fields) {
  BurstFlows flows;
  flows.bytes = fields.take<U64>();
  flows.packets = fields.take<U64>();
  std::size_t const count = fields.take<U8>();
  if (count > BurstFlows::most) return {};
  for (std::size_t i = 0; i < count; ++i) {
    FlowShare flow;
    if (!takeFlow(fields, flow)) return {};
    flows.largest.push_back(std::move(flow));
  }
  return flows;
}

}  // namespace Agent
