// SPDX-License-Identifier: Apache-2.0
#include "agent/query/FlowReport.h"

#include <algorithm>

#include "agent/base/Printable.h"
#include "agent/record/RecordColumns.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;
using TextColumns = TextReportColumns<FlowRow, flowColumns.size()>;

constexpr TextColumns burstText{flowColumns, FlowView::burst};
constexpr TextColumns windowText{flowColumns, FlowView::window};

constexpr std::size_t lineWidth = 100;
constexpr std::string_view belowBurst = "   ";

FlowRow rowOf(RecordRow const& record, FlowShare const& flow) {
  return {.interface = record.interface,
          .queue = record.queue,
          .timestamp = record.timestamp,
          .open = record.open,
          .queueBytes = record.flows->bytes,
          .queuePackets = record.flows->packets,
          .key = &flow.key,
          .bytes = flow.bytes,
          .packets = flow.packets,
          .error = flow.error,
          .drops = flow.drops,
          .cgroup = flow.cgroup,
          .name = FlowName(flow.key)};
}

void put(std::FILE* out, std::string const& text) { std::fwrite(text.data(), 1, text.size(), out); }

std::string titlesOf(TextColumns const& columns) {
  std::string const titles = columns.titles();
  return titles.substr(0, titles.size() - 1) + " Flow\n";
}

// Figures, then in words what the flow is and who sent it: where the line gets too long for that, in further
// lines.
void writeFlow(FlowRow const& row, TextColumns const& columns, std::string_view indent, std::FILE* out) {
  ReportLine figures;
  if (!indent.empty()) figures.addWords(indent);
  columns.addCells(figures, row);
  std::string line(figures.text());
  std::string const sender = row.cgroup.empty() ? "" : "by " + printable(row.cgroup);
  for (std::string const& words : {row.name.flow, sender}) {
    if (words.empty()) continue;
    if (line.size() + 1 + words.size() > lineWidth) {
      line.resize(line.find_last_not_of(' ') + 1);  // of the last column
      put(out, line + '\n');
      line = std::string(belowBurst) + "     ";
    }
    line += ' ' + words;
  }
  put(out, line + '\n');
}

// What entered beside the largest.
void writeOthers(BurstFlows const& flows, std::FILE* out) {
  U64 bytes = flows.bytes;
  U64 packets = flows.packets;
  for (FlowShare const& flow : flows.largest) {
    bytes -= std::min(bytes, flow.bytes);
    packets -= std::min(packets, flow.packets);
  }
  if (bytes == 0) return;
  FlowKey const none;
  FlowRow row{
      .queueBytes = flows.bytes, .key = &none, .bytes = bytes, .packets = packets, .name = FlowName(none)};
  row.name.flow = "all others";
  writeFlow(row, burstText, belowBurst, out);
}

}  // namespace

FlowsOfBursts::FlowsOfBursts(RecordSet const& records) : records_(records) {
  for (U32 record = 0; record < records.size(); ++record) {
    std::size_t const flows = records[record].flows->largest.size();
    for (U32 flow = 0; flow < flows; ++flow) places_.emplace_back(record, flow);
  }
}

FlowRow FlowsOfBursts::operator[](std::size_t place) const {
  RecordRow const record = records_[places_[place].first];
  return rowOf(record, record.flows->largest[places_[place].second]);
}

FlowSums::FlowSums(RecordSet const& records, Query const& query) {
  std::map<std::pair<Queue const*, FlowKey>, std::size_t> places;
  for (std::size_t i = 0; i < records.size(); ++i) {
    RecordRow const record = records[i];
    Queue& queue = queues_[{records.logOf(i), record.queue}];
    queue.interface = record.interface;
    queue.key = record.queue;
    queue.bytes += record.flows->bytes;
    queue.packets += record.flows->packets;
    for (FlowShare const& flow : record.flows->largest) {
      auto const [at, isNew] = places.try_emplace({&queue, flow.key}, sums_.size());
      if (isNew) sums_.push_back({.queue = &queue, .key = &flow.key});
      Sum& sum = sums_[at->second];
      if (sum.cgroup.empty()) sum.cgroup = flow.cgroup;
      sum.bytes += flow.bytes;
      sum.packets += flow.packets;
      sum.error += flow.error;
      sum.drops += flow.drops;
      ++sum.bursts;
      sum.last = std::max(sum.last, record.timestamp);
      sum.open |= record.open;
    }
  }
  order(query);
}

void FlowSums::order(Query const& query) {
  auto const keyOf = [&query](Sum const& sum) {
    if (!query.order) return sum.bytes;
    return *query.order == Query::Order::drops ? sum.drops : sum.last;
  };
  std::stable_sort(sums_.begin(), sums_.end(),
                   [&](Sum const& a, Sum const& b) { return keyOf(a) > keyOf(b); });
  if (query.reverse) std::reverse(sums_.begin(), sums_.end());
  if (query.count && *query.count < sums_.size()) sums_.resize(*query.count);
}

FlowRow FlowSums::operator[](std::size_t place) const {
  Sum const& sum = sums_[place];
  return {.interface = sum.queue->interface,
          .queue = sum.queue->key,
          .timestamp = sum.last,
          .open = sum.open,
          .bursts = sum.bursts,
          .queueBytes = sum.queue->bytes,
          .queuePackets = sum.queue->packets,
          .key = sum.key,
          .bytes = sum.bytes,
          .packets = sum.packets,
          .error = sum.error,
          .drops = sum.drops,
          .cgroup = sum.cgroup,
          .name = FlowName(*sum.key)};
}

void writeFlowsOfBursts(RecordSet const& records, unsigned view, std::FILE* out) {
  put(out, recordTitles(view) + std::string(belowBurst) + ' ' + titlesOf(burstText));
  for (std::size_t i = 0; i < records.size(); ++i) {
    RecordRow const record = records[i];
    if (writeTextLine(out, record, view) != 0) return;
    for (FlowShare const& flow : record.flows->largest)
      writeFlow(rowOf(record, flow), burstText, belowBurst, out);
    writeOthers(*record.flows, out);
  }
}

void writeFlowSums(FlowSums const& sums, std::FILE* out) {
  put(out, titlesOf(windowText));
  for (std::size_t i = 0; i < sums.size(); ++i) writeFlow(sums[i], windowText, "", out);
}

std::string withoutFlowsText(RecordSet const& records) {
  std::size_t const count = records.withoutFlows();
  if (count == 0) return "";
  std::string const bursts = std::to_string(count) + (count == 1 ? " burst" : " bursts");
  if (records.size() != 0) return "\nNobody counted the flows of " + bursts + " more.\n";
  return "Nobody counted the flows of " + bursts +
         ". Only the exact source does (vorn-agent --source, --no-flows).\n";
}

}  // namespace Agent
