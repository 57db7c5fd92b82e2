// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// How vorn-show prints a report that it receives.
struct ReportForm {
  enum class Kind : std::uint8_t {
    whole,           // as it comes
    counted,         // a text report with the newest so many lines of records
    csv,             // without the two lines that stand before the column names, and within the limits
    statisticsText,  // a statistics report, interfaces that match no pattern left out
    statisticsCsv,   // the same as "interface,queue,queue_id,bursts"; the global buffer is named N/A
  };

  Kind kind = Kind::whole;
  std::vector<std::string> interfacePatterns{};  // of statistics: for the whole short name; none means all
  // Of csv, which the agent sends whole: lines of the last seconds before the report. And the newest so many,
  // of counted too.
  std::optional<std::uint32_t> lastSeconds{};
  std::optional<std::uint32_t> count{};
};

// Brings a report into a form while it streams through; holds one line of it, or the newest so many.
class ReportFilter {
 public:
  using Output = std::function<void(std::string_view)>;

  // Throws std::regex_error for a pattern that is none.
  ReportFilter(ReportForm const& form, Output output);

  // The next bytes of the report, cut anywhere.
  void take(std::string_view bytes);
  // The report has ended: what is left of an unfinished line comes out as it is.
  void finish();

 private:
  void takeLines(std::string_view bytes);
  void handleLine(std::string_view line);
  void handleCountedLine(std::string_view line);
  void handleCsvLine(std::string_view line);
  void hold(std::string line);
  void handleStatisticsLine(std::string_view line);
  bool selected(std::string_view interface) const;

  ReportForm const form_;
  std::vector<std::regex> patterns_;
  Output output_;
  std::uint64_t lines_ = 0;           // taken so far, of csv and statistics up to the column names
  std::uint64_t since_ = 0;           // microseconds: what is older is left out,
  std::uint64_t until_ = UINT64_MAX;  // and what is younger than the report
  bool inFooter_ = false;             // of a text report
  std::deque<std::string> held_;      // the newest lines, while there is a limit to their number
  std::string line_;                  // begun, not ended
};

}  // namespace Agent
