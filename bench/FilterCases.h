// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "Vorn/internal/InterfaceFilter.h"
#include "bench/Floor.h"
#include "bench/RecorderLog.h"

namespace Bench {

struct Patterns {
  char const* name;
  char const* command;
};

inline constexpr Patterns bracketPatterns{"three patterns with brackets",
                                          "-iEt[1-3][0-9]/[12],Et(4|5|6)[0-9]?/3,Et[0-9]+[02468]/4"};
inline constexpr Patterns literalNames{"literal names", "-iEt3/1,Et17/2,Et100/4"};
inline constexpr Patterns prefixPatterns{"prefix patterns", "-iEt3.*,Et17.*,Et9/.*"};

// Which of some interfaces a report shows: as the recorder finds out, and compiling a pattern whenever one is
// tried.
class FilterCase {
 public:
  FilterCase(Patterns const& patterns, U32 ports) : options_(Vorn::parseCommand(patterns.command)) {
    for (Pylo::IntfId const& id : interfaceIds(Workload(ports))) shortNames_.push_back(id.shortName().str());
  }

  std::vector<bool> select() const {
    Vorn::InterfaceFilter filter(options_);
    std::vector<bool> shown;
    for (std::string const& name : shortNames_) shown.push_back(filter.matches(name));
    return shown;
  }
  std::vector<bool> selectCompilingEach() const {
    std::vector<bool> shown;
    for (std::string const& name : shortNames_)
      shown.push_back(matchesCompilingEach(options_.interfacePatterns, name));
    return shown;
  }

  // Both agree, on some interfaces and not on all.
  void check() const {
    std::vector<bool> const shown = select();
    expect(shown == selectCompilingEach(), "selected interfaces");
    auto const count = std::count(shown.begin(), shown.end(), true);
    expect(count > 0 && count < static_cast<std::ptrdiff_t>(shown.size()), "number of selected interfaces");
  }

 private:
  Vorn::CommandOptions const options_;
  std::vector<std::string> shortNames_;
};

}  // namespace Bench
