// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <regex>
#include <string>

#include "Vorn/Export.h"

namespace Vorn {

// A regular expression over short names of interfaces (ECMAScript, to be matched against whole names with
// std::regex_match) that cannot hang or crash the process that uses it: whatever the pattern, compiling it
// and matching it with a name of up to 64 characters takes at most 100 ms of processor time and 256 KiB of
// stack.
//
// std::regex_error for what is no regular expression, and for what could break that promise:
//   error_complexity  more than 4,096 characters or 256 opening brackets, or an automaton of more than 1,000
//                     states. Each character, class, quantifier and | is a state, a group is four more; a
//                     repetition in braces multiplies what it repeats, and what stands in a lookahead counts
//                     64-fold, since it is tried at every character of a name; a lookahead
//                     within another is too much already. Of a list of names (Et1|Et2|Et3, in no group) only
//                     the |s and the longest name count: one of 900 names may have all 4,096 characters.
//   error_backref     a back-reference (\1), which nothing matches in bounded time.
// Groups select nothing: a match tells yes or no. The promise is that of GNU's standard library, whose
// matcher that takes polynomial time is asked for; with another one the patterns are bounded as above, the
// time is its own.
VORN_EXPORT std::regex compilePattern(std::string const& pattern);

}  // namespace Vorn
