#pragma once

#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Vorn/CommandOptions.h"
#include "Vorn/Export.h"

namespace Vorn {

// A regular expression for the interface filter: ECMAScript, matched in polynomial time but for
// back-references. std::regex_error for a bad pattern, and for one of more than 4,096 characters or 256
// opening brackets, which could exhaust the stack.
VORN_EXPORT std::regex compilePattern(std::string const& pattern);

// Whether a report shows an interface: always without a filter, else when some pattern of the list matches
// its whole short name as a regular expression (ECMAScript). Patterns are tried in list order and compiled
// when first tried, once a report, so a bad pattern behind one that matches does no harm.
class VORN_EXPORT InterfaceFilter {
 public:
  explicit InterfaceFilter(CommandOptions const& options);

  bool matches(std::string const& shortName);

 private:
  struct Pattern {
    enum class Form { unknown, name, beginning, expression };

    bool matches(std::string const& name);
    void prepare();

    std::string text;
    Form form = Form::unknown;             // found out on first use
    std::string literal{};                 // of names and beginnings
    std::optional<std::regex> compiled{};  // of expressions
  };

  bool all_;
  std::vector<Pattern> patterns_;
};

}  // namespace Vorn
