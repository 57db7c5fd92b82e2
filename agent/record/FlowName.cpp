// SPDX-License-Identifier: Apache-2.0
#include "agent/record/FlowName.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "Kes/Format.h"

namespace Agent {

namespace {

using Kes::U16;

struct Numbered {
  U16 number;
  std::string_view name;
};

constexpr Numbered ipProtocols[] = {{1, "icmp"},  {2, "igmp"},   {4, "ipip"},   {6, "tcp"},
                                    {17, "udp"},  {33, "dccp"},  {41, "6in4"},  {47, "gre"},
                                    {50, "esp"},  {51, "ah"},    {58, "icmp6"}, {89, "ospf"},
                                    {103, "pim"}, {112, "vrrp"}, {132, "sctp"}, {136, "udplite"}};
constexpr Numbered etherTypes[] = {{0x0806, "arp"},   {0x8847, "mpls"}, {0x8863, "pppoe"}, {0x8864, "pppoe"},
                                   {0x888E, "eapol"}, {0x88CC, "lldp"}, {0x88E5, "macsec"}};

template <std::size_t count>
std::string nameOf(Numbered const (&names)[count], U16 number, std::string const& otherwise) {
  auto const at = std::find_if(std::begin(names), std::end(names),
                               [&](Numbered const& one) { return one.number == number; });
  return at == std::end(names) ? otherwise : std::string(at->name);
}

std::string protocolOf(FlowKey const& key) {
  if (key.addressBytes() != 0)
    return nameOf(ipProtocols, key.protocol, "protocol " + std::to_string(key.protocol));
  if (key.etherType == 0) return "";
  return nameOf(etherTypes, key.etherType, Kes::format("ethertype 0x%04x", key.etherType).str());
}

std::string addressOf(FlowKey const& key, std::array<Kes::U8, 16> const& bytes) {
  if (key.addressBytes() == 0) return "";
  std::array<char, INET6_ADDRSTRLEN> text{};
  ::inet_ntop(key.etherType == FlowKey::ipv6 ? AF_INET6 : AF_INET, bytes.data(), text.data(), text.size());
  return text.data() + (key.prefix == 0 ? "" : '/' + std::to_string(key.prefix));
}

std::string endOf(FlowKey const& key, std::string const& address, U16 port) {
  if (key.sourcePort == 0 && key.destinationPort == 0) return address;
  bool const isLong = key.etherType == FlowKey::ipv6;
  return (isLong ? '[' + address + ']' : address) + ':' + std::to_string(port);
}

}  // namespace

FlowName::FlowName(FlowKey const& key)
    : source(addressOf(key, key.source)),
      destination(addressOf(key, key.destination)),
      protocol(protocolOf(key)) {
  if (!source.empty())
    flow = endOf(key, source, key.sourcePort) + " > " + endOf(key, destination, key.destinationPort) + ' ';
  flow += protocol.empty() ? "unknown" : protocol;
  if (key.fragment) flow += " fragment";
  if (key.vlan != 0) flow += " vlan " + std::to_string(key.vlan);
}

std::string flowText(FlowShare const& share) {
  std::string const text =
      Kes::format("%s, %u B, of which up to %u B too many, %u packets, %u drops", FlowName(share.key).flow,
                  share.bytes, share.error, share.packets, share.drops)
          .str();
  return share.cgroup.empty() ? text : text + ", by " + share.cgroup;
}

}  // namespace Agent
