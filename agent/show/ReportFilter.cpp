// SPDX-License-Identifier: Apache-2.0
#include "agent/show/ReportFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "Vorn/InterfacePattern.h"
#include "agent/record/QueueName.h"
#include "agent/record/ReportLine.h"

namespace Agent {

namespace {

using Kind = ReportForm::Kind;

constexpr std::string_view globalCount = "Global Hit Count = ";
constexpr std::string_view statisticsColumns = "interface,queue,queue_id,bursts\n";

constexpr std::string_view reportDate = "Report generated at ";

// What stands so many seconds before a date in seconds, in microseconds.
std::uint64_t timeBefore(std::string_view date, std::uint32_t seconds) {
  double const time = std::strtod(std::string(date).c_str(), nullptr) - seconds;
  return time > 0 ? static_cast<std::uint64_t>(std::llround(time * 1e6)) : 0;
}

// The time of a record's line: the sixth field from its end, as names in front may hold commas.
std::uint64_t timeOf(std::string_view line) {
  for (int fields = 0; fields < 5; ++fields) line = line.substr(0, line.rfind(','));
  return std::strtoull(std::string(line.substr(line.rfind(',') + 1)).c_str(), nullptr, 10);
}

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// What stands between the blanks of a line.
std::vector<std::string_view> wordsOf(std::string_view line) {
  std::vector<std::string_view> words;
  for (std::size_t end;
       (line.remove_prefix(std::min(line.find_first_not_of(' '), line.size())), !line.empty());
       line.remove_prefix(end)) {
    end = std::min(line.find(' '), line.size());
    words.push_back(line.substr(0, end));
  }
  return words;
}

// "NAME QUEUE COUNTER", in columns.
struct StatisticsLine {
  std::string_view interface;
  std::string_view queue;
  std::string_view counter;

  explicit StatisticsLine(std::string_view line) {
    std::vector<std::string_view> const words = wordsOf(line);
    if (words.size() != 3 || !isNumber(words[2])) return;
    interface = words[0];
    queue = words[1];
    counter = words[2];
  }
  bool valid() const { return !counter.empty(); }
  std::string csv() const {
    ReportLine fields;
    fields.addField(interface);
    fields.addField(queue);
    fields.addField(Kes::U64{QueueName::keyOf(queue)});
    fields.addField(counter);
    return std::string(fields.text()) + '\n';
  }
};

}  // namespace

ReportFilter::ReportFilter(ReportForm const& form, Output output) : form_(form), output_(std::move(output)) {
  for (std::string const& pattern : form_.interfacePatterns)
    patterns_.push_back(Vorn::compilePattern(pattern));
}

void ReportFilter::take(std::string_view bytes) {
  if (form_.kind == Kind::whole)
    output_(bytes);
  else
    takeLines(bytes);
}

void ReportFilter::finish() {
  for (std::string const& line : held_) output_(line);
  if (!line_.empty()) output_(line_);
}

void ReportFilter::takeLines(std::string_view bytes) {
  for (std::size_t end; (end = bytes.find('\n')) != std::string_view::npos; bytes.remove_prefix(end + 1)) {
    line_.append(bytes.substr(0, end));
    handleLine(line_);
    line_.clear();
  }
  line_.append(bytes);
}

void ReportFilter::handleLine(std::string_view line) {
  if (form_.kind == Kind::csv)
    handleCsvLine(line);
  else if (form_.kind == Kind::counted)
    handleCountedLine(line);
  else
    handleStatisticsLine(line);
}

// A blank line, the report's date, the titles, then records, newest first; behind another blank line the
// footer.
void ReportFilter::handleCountedLine(std::string_view line) {
  constexpr std::uint64_t titles = 3;
  inFooter_ = inFooter_ || (lines_ >= titles && line.empty());
  if (lines_ < titles + *form_.count || inFooter_) output_(std::string(line) + '\n');
  ++lines_;
}

// A blank line, the report's date, the column names, then records, oldest first.
void ReportFilter::handleCsvLine(std::string_view line) {
  constexpr unsigned columns = 2;
  if (lines_ < columns && form_.lastSeconds && line.starts_with(reportDate)) {
    since_ = timeBefore(line.substr(reportDate.size()), *form_.lastSeconds);
    until_ = timeBefore(line.substr(reportDate.size()), 0);
  }
  if (lines_ <= columns) {
    if (lines_++ == columns) output_(std::string(line) + '\n');
  } else if (std::uint64_t const time = timeOf(line); since_ <= time && time <= until_) {
    hold(std::string(line) + '\n');
  }
}

void ReportFilter::hold(std::string line) {
  if (!form_.count) return output_(line);
  held_.push_back(std::move(line));
  if (held_.size() > *form_.count) held_.pop_front();
}

void ReportFilter::handleStatisticsLine(std::string_view line) {
  StatisticsLine const statistics(line);
  bool const csv = form_.kind == Kind::statisticsCsv;
  if (csv && lines_++ == 0) output_(statisticsColumns);
  if (statistics.valid()) {
    if (!selected(statistics.interface)) return;
    output_(csv ? statistics.csv() : std::string(line) + '\n');
  } else if (!csv) {
    output_(std::string(line) + '\n');
  } else if (line.starts_with(globalCount)) {
    output_("N/A,,," + std::string(line.substr(globalCount.size())) + '\n');
  }
}

bool ReportFilter::selected(std::string_view interface) const {
  return patterns_.empty() || std::any_of(patterns_.begin(), patterns_.end(), [&](std::regex const& pattern) {
           return std::regex_match(interface.begin(), interface.end(), pattern);
         });
}

}  // namespace Agent
