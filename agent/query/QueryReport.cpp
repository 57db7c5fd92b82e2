// SPDX-License-Identifier: Apache-2.0
#include "agent/query/QueryReport.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Vorn/PortMetaDataDumper.h"
#include "agent/base/Printable.h"
#include "agent/query/FlowReport.h"
#include "agent/query/Heights.h"
#include "agent/query/PerfettoTrace.h"
#include "agent/query/ProgramForms.h"
#include "agent/query/QueueSummary.h"
#include "agent/query/TimelinePage.h"
#include "agent/query/TimelineText.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/record/LocalZone.h"
#include "agent/record/RecordColumns.h"
#include "agent/record/ReportFooter.h"
#include "agent/record/StatisticsColumns.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;
using Vorn::Microseconds;
using Form = Query::Form;
using Report = Query::Report;

void put(std::FILE* out, std::string const& text) { std::fwrite(text.data(), 1, text.size(), out); }

std::vector<std::string> namesOf(Vorn::CongestionData const& recorder,
                                 std::vector<std::string> const& present) {
  std::vector<std::string> names;
  for (auto const& member : recorder.portDataMap()) names.push_back(member.value->intfId().shortName().str());
  for (std::string const& name : present) names.push_back(Pylo::IntfId(name).shortName().str());
  return names;
}

// By the recorder's order of interfaces, which knows numbers; what is equal there by name and queue.
bool statisticsOrder(Vorn::PortMetaData const* a, Vorn::PortMetaData const* b) {
  if (Vorn::PortMetaDataSortOnIntf(a, b)) return true;
  if (Vorn::PortMetaDataSortOnIntf(b, a)) return false;
  int const names = ::strverscmp(a->intfId().shortName().charPtr(), b->intfId().shortName().charPtr());
  return names != 0 ? names < 0 : a->identifier() < b->identifier();
}

U64 summaryKey(QueueSummary const& summary, Query::Order order) {
  switch (order) {
    case Query::Order::time: return summary.last;
    case Query::Order::length: return summary.peak;
    case Query::Order::duration: return summary.congested;
    case Query::Order::latency: return summary.latency;
    case Query::Order::drops: return summary.drops;
  }
  return 0;
}

Query inItsZone(Query query) {
  if (query.utc) LocalZone::ofReports() = LocalZone::utc();
  return query;
}

}  // namespace

QueryReport::QueryReport(Query query, Vorn::CongestionData const& recorder, BurstLedger const& ledger,
                         std::vector<std::string> const& present, Origin origin)
    : query_(inItsZone(std::move(query))),
      recorder_(recorder),
      ledger_(ledger),
      origin_(origin),
      time_(recorder.clock()->getUTCTime()),
      now_(Microseconds::fromSeconds(time_).value()),
      filter_(query_, now_) {
  unmatched_ = filter_.unmatched(namesOf(recorder, present));
  for (auto const& [intfId, port] : recorder.portDataMap()) filter_.holdsInterface(intfId.shortName().str());
}

std::string QueryReport::write(std::FILE* out) {
  switch (query_.report) {
    case Report::history:
    case Report::global: writeRecords(out); break;
    case Report::stats: writeStatistics(out); break;
    case Report::top: query_.flows ? writeTopFlows(out) : writeTop(out); break;
    case Report::who: writeWho(out); break;
    case Report::timeline: writeTimeline(out); break;
  }
  return unmatched_.empty() ? "" : "no interface matches " + printable(unmatched_, /*longest=*/200);
}

void QueryReport::writeHead(std::FILE* out) const { std::fprintf(out, "\nReport generated at %f\n", time_); }

unsigned viewOf(Query const& query) {
  if (query.report == Report::global) return RecordView::global;
  return query.latency ? RecordView::latency : query.drops ? RecordView::drops : RecordView::records;
}

void QueryReport::writeRecords(std::FILE* out) {
  RecordSet records(query_, filter_, recorder_, ledger_);
  if (query_.form == Form::trace) {
    auto const* const clock = origin_ == Origin::agent ? recorder_.clock().get() : nullptr;
    return writePerfettoTrace(records, records.span(now_), clock, out);
  }
  if (query_.form != Form::text) return writeForPrograms(out, query_.form, recordColumns, records);
  writeHead(out);
  if (records.size() == 0) return writeNothing(out, records);
  put(out, recordTitles(viewOf(query_)));
  for (std::size_t i = 0; i < records.size(); ++i)
    if (writeTextLine(out, records[i], viewOf(query_)) != 0) return;
  if (query_.report == Report::history) put(out, holesText(holes(records)));
}

// What the report was to show, and is not there any more since the pool was too small.
std::vector<InterfaceHistory> QueryReport::holes(RecordSet const& records) {
  U64 since = filter_.window().since;
  bool const byTime = query_.order.value_or(Query::Order::time) == Query::Order::time;
  if (byTime && query_.count && records.size() == *query_.count) {
    since = ~U64{0};
    for (std::size_t i = 0; i < records.size(); ++i) since = std::min(since, records[i].timestamp);
  }
  std::vector<InterfaceHistory> found = interfaceHistories(recorder_);
  std::erase_if(found, [&](InterfaceHistory const& history) {
    return history.lost == 0 || history.whole.value() < since || !filter_.holdsInterface(history.name);
  });
  return found;
}

// In words, with what comes nearest.
void QueryReport::writeNothing(std::FILE* out, RecordSet& records) {
  auto const [before, after] = records.neighbours();
  TimeWindow const& window = filter_.window();
  LocalZone& zone = LocalZone::ofReports();
  bool const hasLimits = !filter_.isWhole();
  if (!before && !after)
    return put(out,
               hasLimits ? "Nothing that fits has been recorded.\n" : "No congestion has been recorded.\n");
  std::string text = "Nothing fits";
  if (window.since != 0) text += " from " + std::string(zone.moment(Microseconds(window.since)));
  if (window.until != TimeWindow().until)
    text += " to " + std::string(zone.moment(Microseconds(window.until)));
  if (window != TimeWindow()) text += " (" + zone.name() + ")";
  put(out, text + ".\n");
  auto const tell = [&](char const* where, std::optional<RecordRow> const& row) {
    if (!row) return put(out, std::string("\nNothing ") + where + ".\n");
    put(out, std::string("\nThe nearest ") + where + ":\n" + recordTitles(viewOf(query_)));
    writeTextLine(out, *row, viewOf(query_));
  };
  tell("before", before);
  tell("after", after);
  put(out, holesText(holes(records)));
}

// Which records are counted and ordered is for what becomes of them.
Query QueryReport::ofAllRecords() const {
  Query all = query_;
  all.count.reset();
  all.order.reset();
  all.reverse = false;
  return all;
}

void QueryReport::writeSpan(std::FILE* out, TimeWindow const& span) const {
  LocalZone& zone = LocalZone::ofReports();
  put(out, "From " + std::string(zone.second(static_cast<std::time_t>(span.since / 1'000'000))));
  put(out, " to " + std::string(zone.second(static_cast<std::time_t>(span.until / 1'000'000))) + '\n');
}

void QueryReport::writeTop(std::FILE* out) {
  Query const all = ofAllRecords();
  RecordSet records(all, filter_, recorder_, ledger_);
  TimeWindow const span = records.span(now_);
  std::vector<QueueSummary> queues = summariesOf(records, span);
  if (query_.order) {
    std::stable_sort(queues.begin(), queues.end(), [this](QueueSummary const& a, QueueSummary const& b) {
      return summaryKey(a, *query_.order) > summaryKey(b, *query_.order);
    });
  }
  if (query_.reverse) std::reverse(queues.begin(), queues.end());
  if (query_.count && *query_.count < queues.size()) queues.resize(*query_.count);
  if (query_.form != Form::text) return writeForPrograms(out, query_.form, summaryColumns, queues);
  writeHead(out);
  if (queues.empty()) return writeNothing(out, records);
  writeSpan(out, span);
  put(out, summaryText.titles());
  constexpr std::size_t barWidth = 15;
  for (QueueSummary& queue : queues) {
    if (queue.open)
      queue.bar = "now " + Heights(query_.ascii).lying(queue.openLength, queue.thresholds.high, barWidth);
    ReportLine line;
    summaryText.addCells(line, queue);
    line.write(out);
  }
}

void QueryReport::writeWho(std::FILE* out) {
  RecordSet records(query_, filter_, recorder_, ledger_);
  if (query_.form != Form::text)
    return writeForPrograms(out, query_.form, flowColumns, FlowsOfBursts(records));
  writeHead(out);
  if (records.size() + records.withoutFlows() == 0) return writeNothing(out, records);
  if (records.size() != 0) writeFlowsOfBursts(records, viewOf(query_), out);
  put(out, withoutFlowsText(records));
  put(out, holesText(holes(records)));
}

void QueryReport::writeTopFlows(std::FILE* out) {
  RecordSet records(ofAllRecords(), filter_, recorder_, ledger_);
  FlowSums const sums(records, query_);
  if (query_.form != Form::text) return writeForPrograms(out, query_.form, flowColumns, sums);
  writeHead(out);
  if (records.size() + records.withoutFlows() == 0) return writeNothing(out, records);
  if (records.size() != 0) {
    writeSpan(out, records.span(now_));
    writeFlowSums(sums, out);
  }
  put(out, withoutFlowsText(records));
}

void QueryReport::writeTimeline(std::FILE* out) {
  Query all = query_;
  all.count.reset();
  RecordSet records(all, filter_, recorder_, ledger_);
  if (query_.form == Form::html) return writeTimelinePage(records, records.span(now_), query_, now_, out);
  if (query_.form != Form::text) return writeForPrograms(out, query_.form, recordColumns, records);
  writeHead(out);
  if (records.size() == 0) return writeNothing(out, records);
  writeTimelineText(records, records.span(now_), query_, out);
}

void QueryReport::writeStatistics(std::FILE* out) {
  std::vector<Vorn::PortMetaData const*> queues;
  for (auto const& [intfId, port] : recorder_.portDataMap()) {
    if (!filter_.holdsInterface(intfId.shortName().str())) continue;
    for (Vorn::PortMetaData::Ptr const& queue : port->portMetaDataIterator())
      if (queue->counter() != 0) queues.push_back(queue.get());
  }
  std::sort(queues.begin(), queues.end(), statisticsOrder);
  std::vector<StatisticsRow> rows;
  for (Vorn::PortMetaData const* queue : queues) rows.push_back(statisticsRow(*queue));
  auto const& sum = recorder_.globalBufferChunk();
  U32 const sumBursts = sum ? sum->counter() : 0;
  if (query_.form != Form::text) {
    rows.push_back({.interface = "N/A", .queue = {}, .bursts = sumBursts});
    return writeForPrograms(out, query_.form, statisticsColumns, rows);
  }
  writeHead(out);
  put(out, statisticsText.titles());
  for (StatisticsRow const& row : rows) {
    ReportLine line;
    statisticsText.addCells(line, row);
    line.write(out);
  }
  std::fprintf(out, "\nGlobal Hit Count = %u\n", sumBursts);
}

}  // namespace Agent
