// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kes/Types.h"

// What all benchmarks are fed with, and how their results are checked. Inputs are made before a clock runs; a
// wrong result is an error and never a number.
namespace Bench {

using Kes::U16;
using Kes::U32;
using Kes::U64;

class WrongResult : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

inline void expect(bool holds, std::string const& what) {
  if (!holds) throw WrongResult("wrong result: " + what);
}

// Seconds that an operation takes.
template <class Operation>
double secondsOf(Operation operation) {
  auto const begin = std::chrono::steady_clock::now();
  operation();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// A record as every log under test can tell it back.
struct Kept {
  U64 timestamp;
  U64 duration;
  U32 qLen;
  bool operator==(Kept const&) const = default;
};

// How many records each log keeps an interface, as near as its structure allows.
constexpr U32 capacity = 1024;

// An endless stream of records for a number of interfaces: the n-th goes to port(n), qLen(n) long, and starts
// at timestamp(n), a microsecond after the one before. The order of interfaces is random, the same in every
// run, and repeats itself after a million records.
class Workload {
 public:
  explicit Workload(U32 ports) : order_(orderSize) {
    for (U32 port = 0; port < ports; ++port)
      names_.push_back("Ethernet" + std::to_string(port / 4 + 1) + '/' + std::to_string(port % 4 + 1));
    std::mt19937 random(1);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (U16& port : order_) port = static_cast<U16>(unit(random) * ports);
  }

  U32 ports() const { return static_cast<U32>(names_.size()); }
  std::vector<std::string> const& names() const { return names_; }

  U32 port(U64 n) const { return order_[n % orderSize]; }
  static U32 qLen(U64 n) { return static_cast<U32>(n * 7919 % 1'000'003); }
  static U64 timestamp(U64 n) { return 1'000'000 + n; }
  // Series of updates, eight an interface.
  static U32 key(U64 n) { return static_cast<U32>(n & 7); }

  // An interface's share of the first `count` records.
  std::vector<Kept> recordsOf(U32 wanted, U64 count) const {
    std::vector<Kept> records;
    for (U64 n = 0; n < count; ++n)
      if (port(n) == wanted) records.push_back({timestamp(n), 0, qLen(n)});
    return records;
  }

  // What is left of them when each is merged into the record under its key.
  std::vector<Kept> mergedRecordsOf(U32 wanted, U64 count) const {
    std::vector<Kept> records;
    std::vector<std::size_t> at(8, SIZE_MAX);
    for (U64 n = 0; n < count; ++n) {
      if (port(n) != wanted) continue;
      if (at[key(n)] == SIZE_MAX) {
        at[key(n)] = records.size();
        records.push_back({timestamp(n), 0, qLen(n)});
      }
      Kept& record = records[at[key(n)]];
      record.duration = timestamp(n) - record.timestamp;
      record.qLen = std::max(record.qLen, qLen(n));
    }
    return records;
  }

 private:
  static constexpr std::size_t orderSize = 1 << 20;

  std::vector<std::string> names_;
  std::vector<U16> order_;
};

// The ports whose contents are checked: some are enough, since all take the same way.
inline std::vector<U32> checkedPorts(U32 ports) { return {0, ports / 2, ports - 1}; }

// A bounded history holds the interface's first `firsts` records, where it keeps those for good, and then the
// latest without a gap: at least `least` of them all.
inline void checkHistory(std::vector<Kept> const& given, std::vector<Kept> const& kept, std::size_t firsts,
                         std::size_t least) {
  expect(kept.size() <= given.size() && kept.size() >= std::min(least, given.size()),
         std::to_string(kept.size()) + " records are kept of " + std::to_string(given.size()));
  firsts = std::min(firsts, kept.size());
  auto const from = static_cast<std::ptrdiff_t>(firsts);
  auto const rest = static_cast<std::ptrdiff_t>(kept.size() - firsts);
  expect(std::equal(kept.begin(), kept.begin() + from, given.begin()), "the first records");
  expect(std::equal(kept.begin() + from, kept.end(), given.end() - rest), "the latest records");
}

}  // namespace Bench
