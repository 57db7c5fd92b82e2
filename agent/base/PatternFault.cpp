// SPDX-License-Identifier: Apache-2.0
#include "agent/base/PatternFault.h"

namespace Agent {

char const* patternFault(std::regex_constants::error_type code) {
  namespace regex = std::regex_constants;
  switch (code) {
    case regex::error_collate: return "unknown collating element";
    case regex::error_ctype: return "unknown character class";
    case regex::error_escape: return "bad escape, or a backslash at the end";
    case regex::error_backref: return "back-reference to a group that does not exist";
    case regex::error_brack: return "unmatched square bracket";
    case regex::error_paren: return "unmatched parenthesis";
    case regex::error_brace: return "unmatched brace";
    case regex::error_badbrace: return "bad numbers between braces";
    case regex::error_range: return "bad character range";
    case regex::error_space: return "it needs more memory than there is";
    case regex::error_badrepeat: return "nothing in front of *, +, ? or { to repeat";
    case regex::error_complexity: return "too complex";
    case regex::error_stack: return "it needs more stack than there is";
    default: return "too long, or nested too deep";
  }
}

}  // namespace Agent
