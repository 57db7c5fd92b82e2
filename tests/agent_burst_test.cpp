// From counters to records: the detector against a queue whose truth is known, the hand-over to the recorder,
// the clock, and the lines of the records.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "agent/base/AgentClock.h"
#include "agent/burst/CongestionDetector.h"
#include "agent/burst/CongestionFeed.h"
#include "agent/burst/SampledQueue.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/record/LocalZone.h"
#include "agent/record/ReportColumns.h"
#include "tests/support.h"

namespace {

using namespace Agent;
using Kes::U32;
using Kes::U64;

constexpr U32 frame = 1514;
constexpr CongestionDetector::Limits limits = {2 * frame, 1000};
constexpr double rate = 12.5;  // bytes a microsecond: 100 Mbit/s

// The counters of a queue, at `time`, into which `bytes` come at once at `burst`, with three packets too
// many.
QueueReading modelReading(double time, double burst, double bytes, U64 sentBefore, U32 dropsBefore) {
  if (time < burst) return {static_cast<U64>(time), sentBefore, 0, dropsBefore};
  double const backlog = std::max(0.0, bytes - (time - burst) * rate);
  return {static_cast<U64>(time), sentBefore + static_cast<U64>(bytes - backlog), static_cast<U32>(backlog),
          dropsBefore + 3};
}

// Readings come at random phases, in the second round a tenth of them 4 ms late; the drops wrap.
TEST(Detector, BurstsOfKnownTruthAtRandomPhases) {
  std::mt19937 random(1);
  for (double const late : {0.0, 4000.0}) {
    CongestionDetector detector({1000, 0, 0, 0xFFFFFFF0});
    std::bernoulli_distribution isLate(0.1);
    U64 sent = 0;
    for (U32 burst = 1; burst <= 400; ++burst) {
      double const bytes = std::uniform_real_distribution(25000.0, 250000.0)(random) + late * rate;
      double const at = burst * 100000.0 + std::uniform_real_distribution(2000.0, 9000.0)(random);
      U64 start = 0, end = 0, drops = 0;
      U32 begun = 0, ended = 0, qLen = 0, peakBound = 0;
      for (double time = burst * 100000.0; time < at + bytes / rate + 6000;
           time += isLate(random) ? 1000 + late : 1000) {
        auto const update =
            detector.handleReading(modelReading(time, at, bytes, sent, 3 * burst - 0x13U), limits);
        if (!update) continue;
        if (update->begins) start = update->timestamp;
        begun += update->begins;
        ended += update->ends;
        EXPECT_GE(update->timestamp, end);
        end = update->timestamp;
        drops += update->drops;
        qLen = update->qLen;
        peakBound = update->peakBound;
      }
      sent += static_cast<U64>(bytes);
      ASSERT_EQ(begun, 1U) << burst;
      EXPECT_EQ(ended, 1U);
      EXPECT_EQ(drops, 3U);
      EXPECT_LE(qLen, bytes);
      EXPECT_NEAR(peakBound, bytes, 2);
      EXPECT_NEAR(static_cast<double>(end - start), bytes / rate, burst > 1 ? 750 : 750 + late / 2);
    }
  }
}

TEST(Detector, QuietQueuesAndCountersThatStartAgainAreNoBursts) {
  CongestionDetector detector({1000, 5'000'000'000, 3000, 7});
  EXPECT_FALSE(detector.handleReading({2000, 5'000'500'000, 2 * frame, 7}, limits));
  // Made anew under its old name: nothing dropped, then two packets.
  EXPECT_FALSE(detector.handleReading({3000, 200, 0, 0}, limits));
  auto const update = detector.handleReading({4000, 9200, 100, 2}, limits);
  ASSERT_TRUE(update && update->begins && update->ends) << "drops alone are a burst";
  EXPECT_EQ(update->timestamp, 3500U);
  EXPECT_EQ(update->drops, 2U);
  EXPECT_EQ(update->qLen, 100U);
  EXPECT_EQ(update->peakBound, 9100U);
  EXPECT_EQ(update->drainRate, 0U);
}

class Feed : public testing::Test {
 protected:
  Feed() {
    hardware->defLowThresholdIs(50000);
    hardware->defHighThresholdIs(80000);
  }
  void reading(U64 stamp, U64 bytes, U32 backlog, U32 drops) {
    sampled.handleReading({stamp, bytes, backlog, drops}, limits.interval, feed);
  }
  std::vector<LinuxEntry const*> records() const {
    std::vector<LinuxEntry const*> result;
    if (auto const port = recorder->portData(queue.intfId))
      for (auto i = port->chunkTail()->entryIterator(); i; ++i)
        result.push_back(dynamic_cast<LinuxEntry const*>((*i).get()));
    return result;
  }

  Vorn::Config::Ptr config = Kes::makePtr<Vorn::Config>();
  Vorn::Hardware::Status::Ptr hardware = Kes::makePtr<Vorn::Hardware::Status>();
  Vorn::CongestionData::Ptr recorder = Kes::makePtr<Vorn::CongestionData>(
      hardware, Kes::makePtr<Vorn::TestClock>(), config, Kes::makePtr<LinuxPortMetaDataDumper>());
  CongestionFeed feed{recorder, config, hardware, Kes::makePtr<AgentClock>([] {
                        return AgentClock::Readings{1, 1};
                      })};
  QueueAddress queue{Pylo::IntfId("eth0"), 0x10010, 0};
  SampledQueue sampled{
      queue, {.startThreshold = limits.startThreshold, .packetBytes = frame}, {1000000, 0, 0, 0}};
};

TEST_F(Feed, OneRecordABurstAndOneForEachThresholdThatItCrosses) {
  reading(1001000, 0, 40000, 1);
  ASSERT_EQ(records().size(), 1U) << "stands in the log as soon as it begins";
  EXPECT_EQ(records()[0]->duration().value(), 0U);
  reading(1002000, 12500, 45000, 2);
  reading(1009000, 100000, 49000, 2);  // late: still the same
  ASSERT_EQ(records().size(), 1U);
  EXPECT_EQ(records()[0]->timestamp().value(), 1000500U);
  EXPECT_EQ(records()[0]->duration().value(), 8500U);
  EXPECT_EQ(records()[0]->qLen(), 49000U);
  EXPECT_EQ(records()[0]->drops(), 2U);
  EXPECT_EQ(records()[0]->peakBound(), 136500U);
  EXPECT_EQ(records()[0]->latency(), 3920U);
  reading(1010000, 112500, 60000, 2);
  reading(1011000, 125000, 90000, 5);
  reading(1012000, 137500, 99000, 5);
  ASSERT_EQ(records().size(), 3U);
  EXPECT_EQ(records()[1]->timestamp().value(), 1010000U);
  EXPECT_FALSE(records()[1]->alwaysLog());
  EXPECT_TRUE(records()[2]->alwaysLog());
  EXPECT_EQ(records()[2]->drops(), 3U);
  auto const metaData = recorder->portData(queue.intfId)->portMetaData(queue.key);
  EXPECT_EQ(metaData->timeOfCongestionStart().value(), 1000500U);
  reading(1013000, 236500, 0, 5);
  EXPECT_EQ(metaData->timeOfCongestionStart().value(), 0U);
  // The next burst follows closely, and as long: the same record, judged already.
  reading(1014000, 240000, 85000, 5);
  ASSERT_EQ(records().size(), 3U);
  reading(1022000, 325000, 0, 5);
  reading(1060000, 325000, 0, 5);
  reading(1061000, 325000, 90000, 5);
  ASSERT_EQ(records().size(), 4U);
  EXPECT_TRUE(records()[3]->alwaysLog()) << "another burst is judged anew";
  EXPECT_EQ(metaData->counter(), 3U);
  EXPECT_EQ(metaData->maxQLen(), 99000U);
  EXPECT_EQ(metaData->timeOfMaxQLen().value(), 1012000U);
}

TEST_F(Feed, SmallBeginningsSilenceNoMessage) {
  dynamic_cast<Vorn::TestClock&>(*recorder->clock()).utcTimeIs(100);
  config->logIntervalIs(60);
  static int messages;
  messages = 0;
  Kes::logSinkIs([](Kes::LogHandle const&, Kes::String const&) { ++messages; });
  reading(1001000, 0, 40000, 0);
  reading(1002000, 12500, 60000, 0);
  EXPECT_EQ(messages, 1) << "the record over the low threshold, 1 ms after the first";
  reading(1009000, 100000, 0, 0);
  reading(1060000, 100000, 60000, 0);
  EXPECT_EQ(messages, 1) << "a message does silence the next";
  Kes::logSinkIs(nullptr);
}

TEST(Clock, FollowsStepsForwardsAtOnceAndBackwardsSlowly) {
  static AgentClock::Readings readings;
  readings = {5'000'000'000, 1'000'000'000};
  auto const clock = Kes::makePtr<AgentClock>([] { return readings; });
  auto const after = [&clock](Kes::S64 milliseconds, Kes::S64 stepMilliseconds) {
    readings.monotonicNanoseconds += milliseconds * 1'000'000;
    readings.wallNanoseconds += (milliseconds + stepMilliseconds) * 1'000'000;
    return clock->now().value();
  };
  EXPECT_EQ(after(0, 0), 5'000'000U);
  EXPECT_EQ(after(10, 1000), 6'010'000U);
  EXPECT_EQ(after(100, -2), 6'108'000U);
  EXPECT_EQ(after(0, -50), 6'108'000U);
  EXPECT_EQ(after(1000, 0), 7'088'000U) << "two per cent slow";
  EXPECT_EQ(after(5000, 0), 12'058'000U) << "caught up";
  EXPECT_DOUBLE_EQ(clock->getUTCTime(), 12.058);
  readings = {};
  EXPECT_EQ(Kes::makePtr<AgentClock>([] { return readings; })->now().value(), 1U) << "never 0";
}

TEST(Lines, KeepTheZoneOfTheirTitle) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  LocalZone winter(1740830829);  // in March, before summer time began
  EXPECT_EQ(winter.name(), "CET, +01:00");
  EXPECT_EQ(winter.second(1740830829), "2025-03-01 13:07:09");
  EXPECT_EQ(winter.second(1751371629), "2025-07-01 13:07:09");
  LocalZone summer(1751371629);
  EXPECT_EQ(summer.name() + ' ' + std::string(summer.second(1740830829)), "CEST, +02:00 2025-03-01 14:07:09");
  setenv("TZ", "<-0330>3:30", 1);
  tzset();
  EXPECT_EQ(LocalZone(1740830829).name(), "-03:30");
}

TEST(Lines, StandUnderTheirTitlesAndHaveAllFields) {
  setenv("TZ", "UTC-2", 1);
  tzset();
  CongestionUpdate update;
  update.timestamp = 1740830829000042;
  update.qLen = 25000;
  update.peakBound = 31000;
  update.drops = 7;
  update.drainRate = 12500000;
  auto const record = Kes::makePtr<LinuxEntry>(0x10010U, 0U, update);
  auto const global = Kes::makePtr<LinuxEntry>(noQueue, 0U, CongestionUpdate{});
  auto const start = Vorn::portMetaDataFactory(0, Pylo::IntfId("a,\"b"));
  auto const queue = Vorn::portMetaDataFactory(0x10020, Pylo::IntfId("e\xc3\xbcx\xc2\x9b"));
  auto const dumper = Kes::makePtr<LinuxPortMetaDataDumper>();
  record->durationIs(Vorn::Microseconds(2010));
  auto const title = [](char const* command) { return columnsFor(Vorn::parseCommand(command)).str(); };

  auto const line = ::Test::Bench::written(
      [&](auto* f) { return record->dumpEntry(f, "1740830829000042", "eth\x1b", false); });
  EXPECT_EQ(line,
            "2025-03-01 14:07:09.000042 eth?         1:10      25000 B    31000"
            " B     2.010 ms    2.000 ms      7\n");
  EXPECT_EQ(line.size(), 101U);
  EXPECT_EQ(line.size(), title("").size());
  EXPECT_TRUE(title("").starts_with("Time (UTC, +02:00)")) << title("");
  EXPECT_EQ(::Test::Bench::written([&](auto* f) { return dumper->dumpStatistics(queue.get(), f); }),
            "e\xc3\xbcx??        1:20            0\n");
  EXPECT_EQ(
      ::Test::Bench::written([&](auto* f) { return record->dumpEntry(f, "1740830829000042", "eth0", true); }),
      "record,eth0,1:10,65552,,1740830829000042,2010,25000,31000,2000,7\n");
  EXPECT_EQ(::Test::Bench::written([&](auto* f) { return global->dumpEntry(f, "9", "N/A", true); }),
            "global,N/A,,,,9,0,0,0,,0\n");
  EXPECT_EQ(::Test::Bench::written([&](auto* f) { return dumper->dumpStartMetaData(start.get(), f, true); }),
            "start,\"a,\"\"b\",root,0,,0,,,,,\n");
  EXPECT_EQ(std::count(csvColumns.begin(), csvColumns.end(), ','), 10);
  std::FILE* const full = std::fopen("/dev/full", "w");
  std::setbuf(full, nullptr);
  EXPECT_EQ(record->dumpDrops(full, "", "eth0"), -1);
  std::fclose(full);
}

}  // namespace
