#pragma once

#include <cstdint>
#include <functional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// How vorn-show prints a report that it receives.
struct ReportForm {
  enum class Kind : std::uint8_t {
    whole,           // as it comes
    withoutTitle,    // without the two lines that stand before the column names
    statisticsText,  // a statistics report, interfaces that match no pattern left out
    statisticsCsv,   // the same as "interface,queue_id,bursts"; the global buffer is named N/A
  };

  Kind kind = Kind::whole;
  std::vector<std::string> interfacePatterns{};  // of statistics: for the whole short name; none means all
};

// Brings a report into a form while it streams through; holds no more than one line of it.
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
  void skipTitle(std::string_view bytes);
  void takeLines(std::string_view bytes);
  void handleStatisticsLine(std::string_view line);
  bool selected(std::string_view interface) const;

  ReportForm::Kind kind_;
  std::vector<std::regex> patterns_;
  Output output_;
  unsigned titleLines_ = 2;  // still to be left out, or to be replaced by the columns
  std::string line_;         // begun, not ended
};

}  // namespace Agent
