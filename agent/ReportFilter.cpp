#include "agent/ReportFilter.h"

#include <algorithm>

namespace Agent {

namespace {

using Kind = ReportForm::Kind;

constexpr std::string_view globalCount = "Global Hit Count = ";
constexpr std::string_view statisticsColumns = "interface,queue_id,bursts\n";

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// "NAME, IDENTIFIER, COUNTER". A name may hold commas, but no blank.
struct StatisticsLine {
  std::string_view interface;
  std::string_view identifier;
  std::string_view counter;

  explicit StatisticsLine(std::string_view line) {
    std::size_t const second = line.rfind(", ");
    if (second == std::string_view::npos || second == 0) return;
    std::size_t const first = line.rfind(", ", second - 1);
    if (first == std::string_view::npos) return;
    interface = line.substr(0, first);
    identifier = line.substr(first + 2, second - first - 2);
    counter = line.substr(second + 2);
  }
  bool valid() const { return isNumber(identifier) && isNumber(counter); }
};

}  // namespace

ReportFilter::ReportFilter(ReportForm const& form, Output output)
    : kind_(form.kind),
      patterns_(form.interfacePatterns.begin(), form.interfacePatterns.end()),
      output_(std::move(output)) {}

void ReportFilter::take(std::string_view bytes) {
  switch (kind_) {
    case Kind::whole: return output_(bytes);
    case Kind::withoutTitle: return skipTitle(bytes);
    case Kind::statisticsText:
    case Kind::statisticsCsv: return takeLines(bytes);
  }
}

void ReportFilter::finish() {
  if (!line_.empty()) output_(line_);
}

void ReportFilter::skipTitle(std::string_view bytes) {
  while (titleLines_ > 0) {
    std::size_t const end = bytes.find('\n');
    if (end == std::string_view::npos) return;
    bytes.remove_prefix(end + 1);
    --titleLines_;
  }
  if (!bytes.empty()) output_(bytes);
}

void ReportFilter::takeLines(std::string_view bytes) {
  if (kind_ == Kind::statisticsCsv && titleLines_ > 0) output_(statisticsColumns);
  titleLines_ = 0;
  for (std::size_t end; (end = bytes.find('\n')) != std::string_view::npos; bytes.remove_prefix(end + 1)) {
    line_.append(bytes.substr(0, end));
    handleStatisticsLine(line_);
    line_.clear();
  }
  line_.append(bytes);
}

void ReportFilter::handleStatisticsLine(std::string_view line) {
  StatisticsLine const statistics(line);
  bool const csv = kind_ == Kind::statisticsCsv;
  if (statistics.valid()) {
    if (!selected(statistics.interface)) return;
    std::string_view const separator = csv ? "," : ", ";
    output_(std::string(statistics.interface)
                .append(separator)
                .append(statistics.identifier)
                .append(separator)
                .append(statistics.counter) +
            '\n');
  } else if (!csv) {
    output_(std::string(line) + '\n');
  } else if (line.starts_with(globalCount)) {
    output_("N/A,," + std::string(line.substr(globalCount.size())) + '\n');
  }
}

bool ReportFilter::selected(std::string_view interface) const {
  return patterns_.empty() || std::any_of(patterns_.begin(), patterns_.end(), [&](std::regex const& pattern) {
           return std::regex_match(interface.begin(), interface.end(), pattern);
         });
}

}  // namespace Agent
