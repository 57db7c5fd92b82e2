// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "bench/Workload.h"

namespace Bench {

inline double median(std::vector<double> values) {
  if (values.empty()) throw std::logic_error("no measurement");
  std::sort(values.begin(), values.end());
  std::size_t const half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

// How many times longer one operation takes than another, and the seconds that each takes; a figure without
// seconds is a ratio of something else.
struct Comparison {
  double ratio = 0;
  double seconds = 0;
  double against = 0;
};

// Several ways of doing the same, measured in turns: in every round each does as many operations as take it
// 20 to 40 ms, and another one begins. What else runs on the machine then meets all of them, and the ratio of
// two is taken within a round.
class Contest {
 public:
  // Runs so many operations, and returns the seconds that they took, or that a part of each took.
  using Run = std::function<double(U64 count)>;

  struct Settings {
    U32 rounds = 7;
    double secondsPerTurn = 0.04;
  };

  explicit Contest(Settings settings) : settings_(settings) {}

  // `least` operations are the fewest that make sense. Returns the contestant's number.
  std::size_t add(Run run, U64 least = 1) {
    contestants_.push_back({std::move(run), least, {}});
    return contestants_.size() - 1;
  }

  void run() {
    for (Contestant& contestant : contestants_) calibrate(contestant);
    for (U32 round = 0; round < settings_.rounds; ++round)
      for (std::size_t i = 0; i < contestants_.size(); ++i) {
        Contestant& contestant = contestants_[(round + i) % contestants_.size()];
        contestant.secondsPerOperation.push_back(contestant.run(contestant.count) /
                                                 static_cast<double>(contestant.count));
      }
  }

  Comparison compare(std::size_t a, std::size_t b) const {
    std::vector<double> const& left = contestants_.at(a).secondsPerOperation;
    std::vector<double> const& right = contestants_.at(b).secondsPerOperation;
    std::vector<double> ratios;
    for (std::size_t round = 0; round < left.size(); ++round) ratios.push_back(left[round] / right[round]);
    return {median(ratios), median(left), median(right)};
  }

 private:
  struct Contestant {
    Run run;
    U64 count;
    std::vector<double> secondsPerOperation;  // one a round
  };

  // The first turn warms up and counts for nothing.
  void calibrate(Contestant& contestant) const {
    while (secondsOf([&] { contestant.run(contestant.count); }) < settings_.secondsPerTurn / 2)
      contestant.count *= 2;
  }

  Settings const settings_;
  std::vector<Contestant> contestants_;
};

}  // namespace Bench
