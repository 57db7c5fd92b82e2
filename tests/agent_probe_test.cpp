// SPDX-License-Identifier: Apache-2.0
// From the packets of queues to bursts and flows: the probe's own parts as they run in the kernel, compiled
// for here, beside naive accounts of the same.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <random>
#include <vector>

#include "agent/burst/BurstSum.h"
#include "agent/probe/LargestFlows.h"
#include "tests/model/ProbeModel.h"

namespace {

using namespace Agent;
using Kes::U32;
using Kes::U64;

TEST(Probe, BurstsAreThoseOfANaiveAccount) {
  for (U32 seed = 0; seed < 3000; ++seed) {
    std::minstd_rand random(seed + 1);
    std::string const fault =
        Model::probeFault(300, [&](U32 below) { return static_cast<U32>(random() >> 4) % below; });
    ASSERT_EQ(fault, "") << "seed " << seed;
  }
}

FlowId flow(U32 number) {
  FlowId id{};
  id.etherType = htobe16(0x0800);
  id.protocol = 17;
  id.sourcePort = static_cast<Kes::U16>(number);
  id.destination[3] = static_cast<Kes::U8>(number >> 16);
  return id;
}

// Bytes by flow as the table has them stay within what it says of its error, and those that take much of the
// queue are found, however many others there are.
TEST(Probe, FlowsStayWithinTheirErrors) {
  for (double const skew : {0.0, 0.8, 1.2}) {
    constexpr U32 flows = 1000;
    std::vector<double> weights(flows);
    for (U32 i = 0; i < flows; ++i) weights[i] = skew == 0 ? i < 12 ? 40 : 1 : std::pow(i + 1, -skew);
    std::mt19937 random(7);
    std::discrete_distribution<U32> choose(weights.begin(), weights.end());
    auto const table = std::make_unique<FlowTable>();
    std::map<U32, U64> truth;
    for (int i = 0; i < 50'000; ++i) {
      U32 const number = choose(random);
      auto const bytes = static_cast<U32>(60 + random() % 1455);
      FlowId const id = flow(number);
      int taken = 0;
      FlowEntry* const entry = flowEntry(table.get(), &id, &taken);
      entry->bytes += bytes;
      ++entry->packets;
      table->bytes += bytes;
      ++table->packets;
      truth[number] += bytes;
    }
    std::map<U32, FlowEntry const*> found;
    for (FlowSet const& set : table->sets) {
      U64 fewest = ~U64{0};
      for (U32 way = 0; way < flowWays; ++way) {
        FlowEntry const& entry = set.entries[way];
        fewest = std::min<U64>(fewest, entry.bytes);
        if (set.tags[way] == 0) continue;
        ASSERT_TRUE(found.emplace(entry.id.sourcePort, &entry).second) << "a flow has two entries";
        EXPECT_GE(entry.bytes, truth[entry.id.sourcePort]);
        EXPECT_LE(entry.bytes, truth[entry.id.sourcePort] + entry.error);
      }
      // No flow that belongs here and is not here had more than the smallest that is.
      for (auto const& [number, bytes] : truth) {
        FlowId const id = flow(number);
        bool const belongs = &table->sets[hashFlow(&id) >> 58] == &set;
        EXPECT_TRUE(!belongs || found.contains(number) || bytes <= fewest);
      }
    }
    ControlGroups groups;
    BurstFlows const largest = largestFlows(*table, {}, groups);
    ASSERT_EQ(largest.largest.size(), BurstFlows::most);
    EXPECT_EQ(largest.bytes, table->bytes);
    std::vector<U64> sorted;
    for (auto const& [number, bytes] : truth) sorted.push_back(bytes);
    std::sort(sorted.rbegin(), sorted.rend());
    for (std::size_t i = 0; i < BurstFlows::most; ++i) {
      FlowShare const& share = largest.largest[i];
      U64 const bytes = truth[be16toh(share.key.sourcePort)];
      EXPECT_LE(share.bytes - bytes, share.error);
      EXPECT_TRUE(sorted[i] < table->bytes / 20 || bytes == sorted[i]) << "of " << skew;
      EXPECT_LE(share.bytes, largest.largest[i == 0 ? 0 : i - 1].bytes);
    }
  }
}

// What the sum over the queues is told of.
struct Totals : CongestionSink {
  void handlePresent(QueueAddress const&) override {}
  void handleUpdate(QueueAddress const&, CongestionUpdate const&) override {}
  void handleGone(QueueAddress const&) override {}
  void handleTotal(CongestionUpdate const& update) override { told.push_back(update); }
  std::vector<CongestionUpdate> told;
};

TEST(BurstSum, HoldsWhatItsQueuesHoldTogether) {
  Totals totals;
  BurstSum sum(totals);
  sum.coalescingIs(100);
  QueueAddress const one = {Pylo::IntfId{"eth0"}, 0};
  QueueAddress const other = {Pylo::IntfId{"eth1"}, 0};
  auto const update = [](U64 timestamp, U32 length, U32 drops) {
    return CongestionUpdate{.timestamp = timestamp, .qLen = length, .peakBound = length, .drops = drops};
  };
  auto begin = update(1000, 5000, 1);
  begin.begins = true;
  sum.handleUpdate(one, begin);
  begin = update(1500, 7000, 0);
  begin.begins = true;
  sum.handleUpdate(other, begin);
  auto end = update(2000, 6000, 2);
  end.ends = true;
  sum.handleUpdate(one, end);
  EXPECT_FALSE(totals.told.back().ends);
  sum.handleGone(other);
  ASSERT_EQ(totals.told.size(), 4U);
  EXPECT_TRUE(totals.told.front().begins);
  EXPECT_EQ(totals.told.front().timestamp, 1000U);
  CongestionUpdate const& last = totals.told.back();
  EXPECT_TRUE(last.ends);
  EXPECT_EQ(last.timestamp, 2000U);
  EXPECT_EQ(last.qLen, 7000U);        // surely
  EXPECT_EQ(last.peakBound, 13000U);  // at most
  U32 drops = 0;
  for (CongestionUpdate const& told : totals.told) drops += told.drops;
  EXPECT_EQ(drops, 3U);
  // What comes within the coalescing time is the same burst, and what comes later is not.
  begin = update(2050, 4000, 0);
  begin.begins = true;
  sum.handleUpdate(one, begin);
  EXPECT_FALSE(totals.told.back().begins);
  end = update(2100, 4000, 0);
  end.ends = true;
  sum.handleUpdate(one, end);
  begin.timestamp = 2300;
  sum.handleUpdate(other, begin);
  EXPECT_TRUE(totals.told.back().begins);
  EXPECT_EQ(totals.told.back().peakBound, 4000U);
}

}  // namespace
