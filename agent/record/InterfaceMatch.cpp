// SPDX-License-Identifier: Apache-2.0
#include "agent/record/InterfaceMatch.h"

#include <algorithm>
#include <regex>

#include "Vorn/InterfacePattern.h"
#include "agent/base/Printable.h"

namespace Agent {

std::string unmatchedPattern(std::vector<std::string> const& patterns, Vorn::CongestionData const& recorder,
                             std::vector<std::string> const& present) {
  std::vector<std::string> names;
  for (auto const& member : recorder.portDataMap()) names.push_back(member.value->intfId().shortName().str());
  for (std::string const& name : present) names.push_back(Pylo::IntfId(name).shortName().str());
  auto const first = std::find_if(patterns.begin(), patterns.end(), [&names](std::string const& pattern) {
    std::regex const expression = Vorn::compilePattern(pattern);
    return std::none_of(names.begin(), names.end(),
                        [&](std::string const& name) { return std::regex_match(name, expression); });
  });
  return first == patterns.end() ? "" : "no interface matches " + printable(*first, /*longest=*/200);
}

}  // namespace Agent
