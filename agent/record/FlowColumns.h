// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <optional>
#include <string_view>

#include "agent/record/FlowName.h"
#include "agent/record/QueueName.h"
#include "agent/record/ReportColumn.h"

namespace Agent {

// What a line of a report of flows tells: of a flow in one burst of a queue, or in several.
struct FlowRow {
  std::string_view interface {};  // short name; borrowed
  QueueKey queue = noQueue;
  Kes::U64 timestamp = 0;  // of the beginning of the burst, or of the latest one
  bool open = false;       // that burst lasts
  Kes::U64 bursts = 1;
  Kes::U64 queueBytes = 0;  // of all flows that entered the queue
  Kes::U64 queuePackets = 0;
  FlowKey const* key = nullptr;  // borrowed
  Kes::U64 bytes = 0;
  Kes::U64 packets = 0;
  std::optional<Kes::U64> error{};  // none of what was not counted by itself
  std::optional<Kes::U64> drops{};
  std::string_view cgroup{};  // borrowed
  FlowName name;
};

// The text reports of flows.
namespace FlowView {
inline constexpr unsigned burst = 1;   // below the line of a burst
inline constexpr unsigned window = 2;  // of all bursts in a window
}  // namespace FlowView

namespace FlowFields {

inline ReportValue text(std::string_view text) { return text.empty() ? ReportValue() : text; }
// Of protocols that have ports, and packets that have them.
inline ReportValue port(FlowRow const& row, Kes::U16 port) {
  return row.key->sourcePort == 0 && row.key->destinationPort == 0 ? ReportValue() : Kes::U64{port};
}
inline ReportValue known(Kes::U64 number) { return number == 0 ? ReportValue() : number; }
inline ReportValue counted(std::optional<Kes::U64> number) {
  return number ? ReportValue(*number) : ReportValue();
}

}  // namespace FlowFields

// The columns of flows, told once (RecordColumns.h does the same for records). What a flow is called stands
// behind those of text, in words.
inline constexpr ReportColumns<FlowRow, 24> flowColumns = [] {
  using namespace FlowFields;
  using Row = FlowRow const&;
  constexpr unsigned both = FlowView::burst | FlowView::window;
  return ReportColumns<FlowRow, 24>{{
      {"interface",
       Unit::name,
       everywhere,
       {"Interface", 12, 7, FlowView::window},
       "short name",
       [](Row row) -> ReportValue { return row.interface; }},
      {"queue",
       Unit::name,
       everywhere,
       {"Queue", 6, 8, FlowView::window},
       "the queue as `tc` writes it",
       [](Row row) -> ReportValue { return QueueName::ofKey(row.queue); }},
      {"queue_id",
       Unit::count,
       everywhere,
       {},
       "the same as the number that it has by name",
       [](Row row) -> ReportValue { return Kes::U64{row.queue}; }},
      {"timestamp_us",
       Unit::moment,
       everywhere,
       {},
       "when the burst began, in microseconds since 1970, UTC; of `top` the latest in which the flow is "
       "known",
       [](Row row) -> ReportValue { return row.timestamp; }},
      {"bursts",
       Unit::count,
       everywhere,
       {"Bursts", 6, 5, FlowView::window},
       "bursts in which the flow was among the largest; of `who` always 1",
       [](Row row) -> ReportValue { return row.bursts; }},
      {"queue_bytes",
       Unit::bytes,
       everywhere,
       {},
       "bytes of all flows that entered the queue while it was congested; of `top` in all its bursts whose "
       "flows "
       "are known",
       [](Row row) -> ReportValue { return row.queueBytes; }},
      {"queue_packets",
       Unit::packets,
       everywhere,
       {},
       "the same in packets",
       [](Row row) -> ReportValue { return row.queuePackets; }},
      {"flow",
       Unit::name,
       everywhere,
       {},
       "what it is, in words",
       [](Row row) -> ReportValue { return std::string_view(row.name.flow); }},
      {"source",
       Unit::name,
       everywhere,
       {},
       "address, or the network where no more is kept; none of what is not IP",
       [](Row row) { return text(row.name.source); }},
      {"source_port",
       Unit::count,
       everywhere,
       {},
       "none where there are no ports, as in later fragments",
       [](Row row) { return port(row, row.key->sourcePort); }},
      {"destination",
       Unit::name,
       everywhere,
       {},
       "likewise an address or network",
       [](Row row) { return text(row.name.destination); }},
      {"destination_port",
       Unit::count,
       everywhere,
       {},
       "likewise a port",
       [](Row row) { return port(row, row.key->destinationPort); }},
      {"protocol",
       Unit::name,
       everywhere,
       {},
       "of IP, or what else it is: `udp`, `arp`; `protocol 99` or `ethertype 0x88b5` for what has no name "
       "here",
       [](Row row) { return text(row.name.protocol); }},
      {"ethertype",
       Unit::count,
       everywhere,
       {},
       "the number of the protocol on the link: 2048 for IPv4",
       [](Row row) { return known(row.key->etherType); }},
      {"vlan",
       Unit::count,
       everywhere,
       {},
       "the identifier of the VLAN",
       [](Row row) { return known(row.key->vlan); }},
      {"fragment",
       Unit::flag,
       everywhere,
       {},
       "whether it is later fragments, whose ports nobody can tell",
       [](Row row) -> ReportValue { return Kes::U64{row.key->fragment}; }},
      {"bytes",
       Unit::bytes,
       everywhere,
       {"Bytes", 11, 2, both},
       "bytes of the flow that entered the queue while it was congested, as far as it was among the largest",
       [](Row row) -> ReportValue { return row.bytes; }},
      {"share",
       Unit::millionths,
       everywhere,
       {"Share", 8, 1, both},
       "the same as a share of `queue_bytes`",
       [](Row row) -> ReportValue {
         return millionthsOf(std::min(row.bytes, row.queueBytes), row.queueBytes);
       }},
      {"error_bytes",
       Unit::bytes,
       everywhere,
       {"Error", 9, 3, both},
       "how many of `bytes` may be too many, at most",
       [](Row row) { return counted(row.error); }},
      {"packets",
       Unit::packets,
       everywhere,
       {"Packets", 7, 4, FlowView::burst},
       "the same as `bytes` in packets",
       [](Row row) -> ReportValue { return row.packets; }},
      {"drops",
       Unit::packets,
       everywhere,
       {"Drops", 6, 6, both},
       "packets of the flow that were dropped",
       [](Row row) { return counted(row.drops); }},
      {"cgroup",
       Unit::name,
       everywhere,
       {},
       "path of the control group whose socket sent it; none where none of this machine did, or it is "
       "unknown",
       [](Row row) { return text(row.cgroup); }},
      {"time",
       Unit::rfc3339,
       notInCsv,
       {},
       "the same as `timestamp_us`, in RFC 3339",
       [](Row row) -> ReportValue { return row.timestamp; }},
      {"open",
       Unit::flag,
       notInCsv,
       {},
       "whether that burst lasts, so that the figures are those so far",
       [](Row row) -> ReportValue { return Kes::U64{row.open}; }},
  }};
}();

}  // namespace Agent
