// SPDX-License-Identifier: Apache-2.0
#include "agent/export/AcceptedForm.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>

namespace Agent {

namespace {

// Takes off what stands before the next separator, without the blanks around it.
std::string_view takePart(std::string_view& rest, char separator) {
  std::size_t const end = std::min(rest.find(separator), rest.size());
  std::string_view part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  constexpr std::string_view blanks = " \t";
  part.remove_prefix(std::min(part.find_first_not_of(blanks), part.size()));
  return part.substr(0, part.find_last_not_of(blanks) + 1);
}

bool isSame(std::string_view one, std::string_view other) {
  return one.size() == other.size() && ::strncasecmp(one.data(), other.data(), one.size()) == 0;
}

// "0.75" in thousandths; what is no such number is none.
int qualityOf(std::string_view text) {
  if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1')) return 0;
  int quality = (text[0] - '0') * 1000;
  if (text.size() > 1 && text[1] != '.') return 0;
  int weight = 100;
  for (char const digit : text.substr(std::min<std::size_t>(text.size(), 2))) {
    if (digit < '0' || digit > '9') return 0;
    quality += (digit - '0') * weight;
    weight /= 10;
  }
  return std::min(quality, 1000);
}

}  // namespace

MetricsForm acceptedForm(std::string_view accept) {
  int openMetrics = 0;
  int classic = 0;
  while (!accept.empty()) {
    std::string_view range = takePart(accept, ',');
    std::string_view const type = takePart(range, ';');
    int quality = 1000;
    while (!range.empty()) {
      std::string_view const parameter = takePart(range, ';');
      if (parameter.size() > 2 && isSame(parameter.substr(0, 2), "q="))
        quality = qualityOf(parameter.substr(2));
    }
    if (isSame(type, "application/openmetrics-text")) openMetrics = std::max(openMetrics, quality);
    if (isSame(type, "text/plain") || isSame(type, "text/*") || isSame(type, "*/*"))
      classic = std::max(classic, quality);
  }
  return openMetrics != 0 && openMetrics >= classic ? MetricsForm::openMetrics : MetricsForm::classic;
}

}  // namespace Agent
