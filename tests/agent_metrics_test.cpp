// SPDX-License-Identifier: Apache-2.0
// What bursts add up to: the ledger, and the metrics that are made of it.

#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "agent/burst/CongestionFeed.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/serve/Metrics.h"
#include "tests/support.h"

namespace {

using namespace Agent;
using Kes::S64;
using Kes::U32;
using Kes::U64;

constexpr U64 ms = 1000;

class Ledger : public testing::Test {
 protected:
  Ledger() {
    feed.closedHandlerIs([this](QueueAddress const& of, LinuxEntry::Ptr const& record) {
      closed += of.intfId.stringValue().str() + ' ' + std::to_string(record->qLen()) + ' ' +
                std::to_string(record->duration().value()) + ' ' + std::to_string(record->latency()) + ' ' +
                std::to_string(record->drops()) + ';';
    });
  }

  void burst(U64 at, U64 length, U32 peak, U32 latency = 0) {
    feed.handleUpdate(queue, {.begins = true, .timestamp = at, .qLen = peak});
    feed.handleUpdate(queue, {.ends = true, .timestamp = at + length, .qLen = peak, .latency = latency});
  }
  BurstLedger::Account const& account(char const* name = "eth0") const {
    return *ledger.accounts().find({Pylo::IntfId(name), queue.key});
  }
  std::string told() { return std::exchange(closed, ""); }

  std::string closed;  // "INTERFACE PEAK DURATION LATENCY DROPS;"
  Vorn::Config::Ptr config = Kes::makePtr<Vorn::Config>();
  Vorn::Hardware::Status::Ptr hardware = Kes::makePtr<Vorn::Hardware::Status>();
  AgentClock::Ptr clock = Kes::makePtr<AgentClock>();
  Vorn::CongestionData::Ptr recorder =
      Kes::makePtr<Vorn::CongestionData>(hardware, clock, config, Kes::makePtr<LinuxPortMetaDataDumper>());
  BurstLedger ledger;
  CongestionFeed feed{recorder, config, hardware, clock, ledger};
  QueueAddress queue{Pylo::IntfId("eth0"), 0x10010, 0, {"tbf"}};
};

U64 countOf(Histogram const& histogram) {
  return std::accumulate(histogram.counts.begin(), histogram.counts.end(), U64{0});
}

TEST_F(Ledger, ABurstIsClosedOnceAndWhenNothingMoreWillBeTold) {
  feed.handleUpdate(queue, {.begins = true, .timestamp = 1000 * ms, .qLen = 5000, .drops = 1});
  feed.handleUpdate(queue, {.timestamp = 1700 * ms, .qLen = 70'000, .drops = 2});
  ledger.settle(5000 * ms);
  EXPECT_TRUE(account().open);
  EXPECT_EQ(account().peak, 70'000U);
  EXPECT_EQ(account().totals.congested, 700 * ms) << "while it lasts";
  EXPECT_EQ(account().totals.drops, 3U);
  EXPECT_EQ(told(), "") << "it lasts";
  CongestionUpdate end = {.ends = true, .timestamp = 1800 * ms, .qLen = 70'000, .coalescing = 200 * ms};
  feed.handleUpdate(queue, end);
  EXPECT_FALSE(account().open);
  ledger.settle(2199 * ms);
  EXPECT_EQ(told(), "") << "it may go on within twice the coalescing time";
  feed.handleUpdate(queue, {.timestamp = 1990 * ms, .qLen = 70'000});
  EXPECT_TRUE(account().open);
  end.timestamp = 2000 * ms;
  feed.handleUpdate(queue, end);
  CongestionUpdate late = {.late = true, .timestamp = 2000 * ms, .qLen = 70'000, .drops = 4, .latency = 900};
  feed.handleUpdate(queue, late);
  ledger.settle(2400 * ms);
  EXPECT_EQ(told(), "eth0 70000 1000000 900 7;");
  ledger.settle(9000 * ms);
  // It was no end after all: that is no further burst.
  feed.handleUpdate(queue, {.timestamp = 2500 * ms, .qLen = 80'000});
  feed.handleUpdate(queue, {.ends = true, .timestamp = 2600 * ms, .qLen = 80'000, .latency = 1000});
  ledger.settle(9000 * ms);
  EXPECT_EQ(told(), "");
  QueueTotals const& totals = account().totals;
  EXPECT_EQ(totals.bursts, 1U);
  EXPECT_EQ(totals.congested, 1600 * ms);
  EXPECT_EQ(totals.drops, 7U);
  EXPECT_EQ(totals.peak.counts[3], 1U);
  EXPECT_EQ(totals.peak.sum, 70'000U);
  EXPECT_EQ(totals.duration.sum, 1000 * ms);
  EXPECT_EQ(totals.latency.sum, 900U);
  EXPECT_EQ(countOf(totals.latency), 1U);
}

TEST_F(Ledger, TheNextBurstAndTheEndOfTheQueueCloseToo_andALatencyMayComeStillLater) {
  burst(1000 * ms, 2 * ms, 5000);
  burst(1010 * ms, 3 * ms, 6000, 700);
  EXPECT_EQ(told(), "eth0 5000 2000 0 0;") << "with the record of that one, not of the next";
  ledger.settle(1300 * ms);
  EXPECT_EQ(told(), "eth0 6000 3000 700 0;");
  burst(2000 * ms, 1 * ms, 7000);
  ledger.settle(3000 * ms);
  feed.handleUpdate(queue, {.late = true, .timestamp = 2001 * ms, .qLen = 7000, .latency = 5'000'000});
  EXPECT_EQ(countOf(account().totals.latency), 2U);
  EXPECT_EQ(account().totals.latency.counts.back(), 1U);
  told();
  feed.handleUpdate(queue, {.begins = true, .timestamp = 4000 * ms, .qLen = 8000});
  // Renamed while it is congested: it goes on under the new name, as a burst of that.
  feed.handleGone(queue);
  EXPECT_EQ(told(), "eth0 8000 0 0 0;");
  EXPECT_FALSE(account().open);
  queue.intfId = Pylo::IntfId("lan0");
  feed.handlePresent(queue);
  feed.handleUpdate(queue, {.ends = true, .timestamp = 4001 * ms, .qLen = 8000, .drops = 1});
  EXPECT_EQ(account("lan0").totals.bursts, 1U);
  EXPECT_EQ(account("eth0").totals.bursts, 4U);
}

TEST_F(Ledger, AThousandBurstsAreAThousand_whateverThePoolForgets_andGoneQueuesWithTheirStatistics) {
  recorder->numSharedChunksIs(1);
  for (U64 n = 0; n < 3000; ++n) burst(1000 * ms + n * 5 * ms, 1 * ms, 3000 + static_cast<U32>(n));
  ledger.settle(100'000 * ms);
  EXPECT_EQ(account().totals.bursts, 3000U);
  EXPECT_EQ(account().totals.congested, 3000 * ms);
  EXPECT_EQ(countOf(account().totals.peak), 3000U);
  EXPECT_EQ(account().totals.peak.counts[0], 1097U) << "a bound belongs to its class";
  for (U32 n = 0; n <= 256; ++n) {
    QueueAddress const other = {Pylo::IntfId("v" + std::to_string(n)), 0, 0};
    feed.handlePresent(other);
    feed.handleUpdate(other, {.begins = true, .ends = true, .timestamp = 20'000 * ms, .drops = 1});
    feed.handleGone(other);
  }
  EXPECT_EQ(ledger.accounts().find({Pylo::IntfId("v0"), 0}), nullptr);
  EXPECT_EQ(ledger.accounts().size(), 257U);
}

TEST_F(Ledger, Metrics_sayInBaseUnitsWhatThereIs_within40SeriesAQueue) {
  queue.intfId = Pylo::IntfId("e\"\\\n\xff");
  burst(1000 * ms, 5 * ms, 70'000, 1'250);
  ledger.settle(2000 * ms);
  feed.handleUpdate(queue, {.begins = true, .timestamp = 3000 * ms, .qLen = 9000, .drops = 7});
  AgentStatus status;
  status.now = Vorn::Microseconds(5'000'000);
  status.beginning.wallTime = Vorn::Microseconds(2'500'000);
  status.poolLimit = 9;
  status.chunks = {1, 2, 3};
  auto const written = [&](MetricsForm form) {
    return ::Test::Bench::written([&](std::FILE* out) { writeMetrics(ledger, status, form, out); });
  };
  std::string const labels = R"({device="e\"\\\\x0a\\xff",queue="1:10",kind="tbf")";
  std::string const text = written(MetricsForm::openMetrics);
  for (std::string const& line : {
           "# TYPE vorn_bursts counter\nvorn_bursts_total" + labels + "} 2",
           "# UNIT vorn_congested_seconds seconds\nvorn_congested_seconds_total" + labels + "} 0.005000",
           "vorn_dropped_packets_total" + labels + "} 7",
           "vorn_queue_congested" + labels + "} 1",
           "vorn_queue_peak_bytes" + labels + "} 9000",
           "vorn_burst_peak_bytes_bucket" + labels + ",le=\"65536.0\"} 0",
           "vorn_burst_peak_bytes_bucket" + labels + ",le=\"262144.0\"} 1",
           "vorn_burst_peak_bytes_bucket" + labels + ",le=\"+Inf\"} 1",
           "vorn_burst_duration_seconds_bucket" + labels + ",le=\"0.001\"} 0",
           "vorn_burst_duration_seconds_bucket" + labels + ",le=\"0.005\"} 1",
           "vorn_burst_latency_seconds_bucket" + labels + ",le=\"2.0\"} 1",
           "vorn_burst_latency_seconds_sum" + labels + "} 0.001250",
           "vorn_burst_latency_seconds_count" + labels + "} 1",
           std::string("vorn_pool_chunks{state=\"unmade\"} 4"),
           std::string("vorn_history_reach_seconds 2.500000"),
       })
    EXPECT_NE(text.find('\n' + line + '\n'), std::string::npos) << line << '\n' << text;
  EXPECT_TRUE(text.ends_with("\n# EOF\n"));
  std::size_t series = 0;
  for (std::size_t at = 0; (at = text.find("device=", at)) != std::string::npos; ++at) ++series;
  EXPECT_EQ(series, 38U);
  std::string const classic = written(MetricsForm::classic);
  EXPECT_NE(classic.find("# TYPE vorn_bursts_total counter\nvorn_bursts_total{"), std::string::npos);
  EXPECT_EQ(classic.find("UNIT"), std::string::npos);
  EXPECT_EQ(classic.find("EOF"), std::string::npos);
}

TEST_F(Ledger, SlackTellsHowFarARecordReachesPastThoseBehindIt) {
  Pylo::IntfId const intfId("eth0");
  EXPECT_EQ(ledger.slack(intfId), 0U);
  burst(1000 * ms, 300 * ms, 5000);
  burst(2000 * ms, 1 * ms, 5000);
  EXPECT_EQ(ledger.slack(intfId), 300 * ms);
  auto const record = [&](U64 time) {
    LogOrder order(*recorder->portData(intfId));
    auto const entry = Kes::makePtr<LinuxEntry>(0U, 0U, CongestionUpdate{.timestamp = time});
    order.handleRecord(*entry);
    return order.slack();
  };
  U64 const newest = recorder->portData(intfId)->chunkTail()->entry(Vorn::EntryIndex(1))->timestamp().value();
  EXPECT_EQ(record(newest - 7'000 * ms), 7'300 * ms) << "the wall clock was set back";
  EXPECT_EQ(record(newest + 7'000 * ms), 300 * ms);
}

}  // namespace
