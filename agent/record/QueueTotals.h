// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include "Kes/Types.h"

namespace Agent {

// The upper bounds of a histogram's classes, ascending; a value belongs to the first that it does not exceed.
using HistogramBounds = std::array<Kes::U64, 8>;

// How many values fell into each class, the last being those above all bounds, and their sum.
struct Histogram {
  std::array<Kes::U64, std::tuple_size_v<HistogramBounds> + 1> counts{};
  Kes::U64 sum = 0;

  void add(Kes::U64 value, HistogramBounds const& bounds) {
    auto const at = std::lower_bound(bounds.begin(), bounds.end(), value) - bounds.begin();
    ++counts[static_cast<std::size_t>(at)];
    sum += value;
  }
  bool operator==(Histogram const&) const = default;
};

// What a queue's bursts add up to: numbers that only rise. Times are microseconds.
//
// A burst counts from its first update on, its time and its drops as they are told. It enters the histograms
// once, when it is closed; its latency does when it is known, so there may be fewer of these.
struct QueueTotals {
  static constexpr HistogramBounds peakBounds{4'096,     16'384,    65'536,     262'144,
                                              1'048'576, 4'194'304, 16'777'216, 67'108'864};
  static constexpr HistogramBounds durationBounds{1'000,   5'000,     20'000,     100'000,
                                                  500'000, 2'000'000, 10'000'000, 60'000'000};
  static constexpr HistogramBounds latencyBounds{500,    2'000,   5'000,   10'000,
                                                 50'000, 100'000, 500'000, 2'000'000};

  Kes::U64 bursts = 0;
  Kes::U64 congested = 0;
  Kes::U64 drops = 0;  // packets
  Histogram peak{};    // bytes
  Histogram duration{};
  Histogram latency{};

  bool operator==(QueueTotals const&) const = default;
};

}  // namespace Agent
