// SPDX-License-Identifier: Apache-2.0
#include "agent/query/TimelineText.h"

#include <algorithm>
#include <string>
#include <vector>

#include "Kes/Format.h"
#include "agent/query/Heights.h"
#include "agent/query/QueueSummary.h"
#include "agent/record/LocalZone.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;
using Vorn::Microseconds;

constexpr std::size_t labelWidth = 20;  // interface and queue
constexpr std::size_t fewestCells = 20;

constexpr std::string_view red = "\x1b[1;31m";
constexpr std::string_view yellow = "\x1b[33m";
constexpr std::string_view green = "\x1b[32m";
constexpr std::string_view plain = "\x1b[0m";

struct Cell {
  U32 length = 0;
  bool congested = false;
  bool dropped = false;
};

class Picture {
 public:
  Picture(RecordSet const& records, TimeWindow const& window, Query const& query, std::FILE* out)
      : records_(records),
        window_(window),
        query_(query),
        out_(out),
        cells_(std::max<std::size_t>(query.width, labelWidth + 1 + fewestCells) - labelWidth - 1),
        heights_(query.ascii) {}

  void write() {
    std::vector<QueueSummary> const queues = summariesOf(records_, window_);
    writeTitle(std::any_of(queues.begin(), queues.end(),
                           [](QueueSummary const& queue) { return queue.thresholds.high != 0; }));
    std::size_t const shown = std::min<std::size_t>(queues.size(), query_.count.value_or(~U32{0}));
    for (QueueSummary const& queue : queues) tallest_ = std::max(tallest_, queue.peak);
    for (std::size_t i = 0; i < shown; ++i) writeRow(queues[i]);
    writeAxis();
  }

 private:
  U64 length() const { return std::max<U64>(window_.until - window_.since, 1); }
  std::size_t cellAt(U64 moment) const {
    U64 const at = std::clamp(moment, window_.since, window_.until) - window_.since;
    auto const cell = static_cast<std::size_t>(
        static_cast<long double>(at) / static_cast<long double>(length()) * static_cast<long double>(cells_));
    return std::min(cell, cells_ - 1);
  }
  U64 momentOf(std::size_t cell) const {
    return window_.since +
           static_cast<U64>(static_cast<long double>(length()) * static_cast<long double>(cell) /
                            static_cast<long double>(cells_));
  }

  void put(std::string const& text) { std::fwrite(text.data(), 1, text.size(), out_); }

  void writeTitle(bool hasThresholds) {
    LocalZone& zone = LocalZone::ofReports();
    std::string title = "From " + std::string(zone.moment(Microseconds(window_.since)));
    title += " to " + std::string(zone.moment(Microseconds(window_.until))) + " (" + zone.name() + ")\n";
    U64 const column = length() / cells_;
    bool const isLong = column >= Microseconds::microsecondsInSecond();
    U64 const unit = isLong ? Microseconds::microsecondsInSecond() : 1000;
    title += Kes::format("A column is %u.%03u %s; full height is %s; !: packets were dropped\n\n",
                         column / unit, column % unit * 1000 / unit, isLong ? "s" : "ms",
                         hasThresholds ? "the high threshold" : "the longest backlog")
                 .str();
    put(title);
  }

  void writeRow(QueueSummary const& queue) {
    std::vector<Cell> cells(cells_);
    for (std::size_t const place : queue.records) {
      RecordRow const row = records_[place];
      // What was lost is marked where its burst begins: nothing tells when in it.
      std::size_t const first = cellAt(row.timestamp);
      std::size_t const last = row.open ? cellAt(window_.until) : cellAt(row.end());
      for (std::size_t i = first; i <= last; ++i) {
        cells[i].length = std::max(cells[i].length, row.length);
        cells[i].congested = true;
      }
      cells[first].dropped |= row.drops != 0;
    }
    ReportLine label;
    label.addCell(Unit::name, 12, queue.interface);
    label.addCell(Unit::name, 6, queue.ofSum ? ReportValue() : QueueName::ofKey(queue.queue));
    std::string line(label.text());
    line += query_.ascii ? " |" : " │";
    while (!cells.empty() && !cells.back().congested) cells.pop_back();
    for (Cell const& cell : cells) line += glyphOf(cell, queue.thresholds);
    put(line + '\n');
  }

  std::string glyphOf(Cell const& cell, Vorn::Thresholds const& thresholds) const {
    if (!cell.congested) return " ";
    std::string_view const glyph = cell.dropped
                                       ? "!"
                                       : heights_.upright(std::max<U32>(cell.length, 1),
                                                          thresholds.high != 0 ? thresholds.high : tallest_);
    if (!query_.colour) return std::string(glyph);
    std::string_view const colour = cell.dropped || isOver(cell.length, thresholds.high) ? red
                                    : isOver(cell.length, thresholds.low)                ? yellow
                                                                                         : green;
    return std::string(colour).append(glyph).append(plain);
  }

  // Times below the columns at which they are, with as much of the second, or of the date, as tells them
  // apart.
  void writeAxis() {
    constexpr U64 inSecond = Microseconds::microsecondsInSecond();
    constexpr U64 inDay = 86'400 * inSecond;
    struct Part {
      std::size_t begin;
      std::size_t length;
    };
    std::size_t const marks = std::max<std::size_t>(cells_ / 18, 1);
    U64 const between = length() / marks;
    Part const part = length() > inDay            ? Part{5, 11}    // 11-24 08:04
                      : between >= 4 * inSecond   ? Part{11, 8}    // 08:04:26
                      : between >= inSecond / 250 ? Part{11, 12}   // 08:04:26.241
                                                  : Part{11, 15};  // 08:04:26.241473
    std::string ticks(cells_, ' ');
    std::string labels(cells_ + 16, ' ');
    for (std::size_t mark = 0; mark < marks; ++mark) {
      std::size_t const cell = mark * cells_ / marks;
      std::string const moment(LocalZone::ofReports().moment(Microseconds(momentOf(cell))));
      labels.replace(cell, part.length, moment.substr(part.begin, part.length));
      ticks[cell] = '|';
    }
    std::string const margin(labelWidth, ' ');
    labels.erase(labels.find_last_not_of(' ') + 1);
    ticks.erase(ticks.find_last_not_of(' ') + 1);
    put(margin + ticks + '\n' + margin + labels + '\n');
  }

  static bool isOver(U32 length, U32 threshold) { return threshold != 0 && length >= threshold; }

  RecordSet const& records_;
  TimeWindow const window_;
  Query const& query_;
  std::FILE* const out_;
  std::size_t const cells_;
  Heights const heights_;
  U32 tallest_ = 0;  // full height where no thresholds are known
};

}  // namespace

void writeTimelineText(RecordSet const& records, TimeWindow const& window, Query const& query,
                       std::FILE* out) {
  Picture(records, window, query, out).write();
}

}  // namespace Agent
