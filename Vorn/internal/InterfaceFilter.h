// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Vorn/CommandOptions.h"

namespace Vorn {

// Whether a report shows an interface: always without a filter, else when some pattern of the list matches
// its whole short name (InterfacePattern.h). Patterns are tried in list order and compiled when first tried,
// once a report, so a bad pattern after one that matches does no harm. A bad one that is tried raises its
// error each time.
class InterfaceFilter {
 public:
  explicit InterfaceFilter(CommandOptions const& options);

  bool matches(std::string const& shortName);

 private:
  struct Pattern {
    enum class Form { unknown, name, prefix, expression, bad };

    bool matches(std::string const& name);
    void prepare();
    void compile();

    std::string text;
    Form form = Form::unknown;             // found out on first use
    std::string literal{};                 // of names and prefixes
    std::optional<std::regex> compiled{};  // of expressions
    std::exception_ptr error{};            // of bad ones
  };

  bool all_;
  std::vector<Pattern> patterns_;
};

}  // namespace Vorn
