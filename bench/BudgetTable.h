#pragma once

#include <cstdio>
#include <string>

#include "Kes/Types.h"

namespace Bench {

// One line a budget: name, measured, budget, "ok" or "over"; and how many there are of each.
class BudgetTable {
 public:
  // Measured times or sizes that must not be more than the budget.
  void atMost(std::string const& name, double measured, double budget) {
    line(name, measured, "at most", budget, measured <= budget);
  }
  // Times faster that must not be less.
  void atLeast(std::string const& name, double measured, double budget) {
    line(name, measured, "at least", budget, measured >= budget);
  }
  void notMeasured(std::string const& name, std::string const& reason) {
    std::printf("%-72s not measured: %s\n", name.c_str(), reason.c_str());
    ++notMeasured_;
  }
  // Whether all could be measured.
  bool finish() const {
    if (notMeasured_ > 0) std::printf("not measured: %u\n", notMeasured_);
    std::printf("budgets: %u ok, %u over\n", ok_, over_);
    return notMeasured_ == 0;
  }

 private:
  void line(std::string const& name, double measured, char const* sense, double budget, bool holds) {
    std::printf("%-72s %9.2f  %8s %7g  %s\n", name.c_str(), measured, sense, budget, holds ? "ok" : "over");
    ++(holds ? ok_ : over_);
  }

  Kes::U32 ok_ = 0;
  Kes::U32 over_ = 0;
  Kes::U32 notMeasured_ = 0;
};

}  // namespace Bench
