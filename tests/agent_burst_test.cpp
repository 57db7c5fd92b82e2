// SPDX-License-Identifier: Apache-2.0
// From counters to records: queues whose truth is known, the hand-over to the recorder, the clock, and the
// lines of the records.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/AgentClock.h"
#include "agent/base/Journal.h"
#include "agent/burst/CongestionFeed.h"
#include "agent/burst/QueueSum.h"
#include "agent/burst/SampledQueue.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/record/LocalZone.h"
#include "agent/record/RecordColumns.h"
#include "tests/support.h"

namespace {

using namespace Agent;
using Kes::S64;
using Kes::U32;
using Kes::U64;

constexpr U32 frame = 1514;
constexpr U64 interval = 1000;
constexpr QueueTraits fifo = {.startThreshold = 2 * frame, .packetBytes = frame, .dropsFromInside = false};

// The clocks of an agent, and what makes it one.
AgentClock::Readings clocks;
AgentClock::Ptr clockAt(S64 wallNanoseconds, S64 monotonicNanoseconds) {
  clocks = {wallNanoseconds, monotonicNanoseconds};
  return Kes::makePtr<AgentClock>([] { return clocks; });
}
void pass(S64 nanoseconds, S64 step = 0) {
  clocks.monotonicNanoseconds += nanoseconds;
  clocks.wallNanoseconds += nanoseconds + step;
}

class Feed : public testing::Test {
 protected:
  Feed() {
    hardware->defLowThresholdIs(50000);
    hardware->defHighThresholdIs(80000);
    hardware->defGlobalBufLowThresholdIs(50000);
    hardware->defGlobalBufHighThresholdIs(80000);
    messages.clear();
    Kes::logSinkIs([](Kes::LogHandle const&, Kes::String const& text) { messages += text.str() + '\n'; });
  }
  ~Feed() override { Kes::logSinkIs(nullptr); }

  // A time as the monotonic clock has it, without steps.
  static U64 since(Vorn::Microseconds time) { return time.value() - 10'000'000'000; }

  // A look at one queue, in milliseconds.
  void look(SampledQueue& queue, double time, U64 bytes, U32 backlog, U32 drops = 0) {
    pass(static_cast<S64>(time * 1e6) - clocks.monotonicNanoseconds);
    sum.add(queue,
            queue.handleReading({static_cast<U64>(time * 1e3), bytes, backlog, drops}, interval, feed));
  }
  void look(double time, U64 bytes, U32 backlog, U32 drops = 0) {
    look(sampled, time, bytes, backlog, drops);
    sum.finishLook(interval, feed);
  }
  // A short burst of `backlog` bytes that have come by `time` and are gone a millisecond later.
  void burst(double time, U32 backlog) {
    look(time - 1, sent, 0);
    look(time, sent, backlog);
    look(time + 1, sent += backlog, 0);
  }
  std::vector<LinuxEntry const*> records(char const* name = "eth0") const {
    std::vector<LinuxEntry const*> result;
    if (auto const port = recorder->portData(Pylo::IntfId(name)))
      for (auto const& chunk : port->chunkIterator())
        for (auto i = chunk->entryIterator(); i; ++i)
          result.push_back(dynamic_cast<LinuxEntry const*>((*i).get()));
    return result;
  }
  // The records of eth0: "TIME,DURATION,LENGTH,BOUND,LATENCY,DROPS;", without the columns that tell the
  // queue.
  std::string lines() const {
    std::string const all = ::Test::Bench::written([&](auto* out) {
      for (auto const* record : records()) {
        RecordRow row = record->row("eth0");
        row.timestamp = since(record->timestamp());
        writeCsvLine(out, row);
      }
    });
    return std::regex_replace(all, std::regex("record,eth0,1:10,65552,,(.*)\n"), "$1;");
  }
  Vorn::PortMetaData::Ptr metaData(char const* name = "eth0", QueueKey key = 0x10010) const {
    auto const port = recorder->portData(Pylo::IntfId(name));
    return port ? port->portMetaData(key) : nullptr;
  }
  LinuxEntry const& total() const {
    auto const chunk = recorder->globalBufferChunk();
    return dynamic_cast<LinuxEntry const&>(*chunk->entry(chunk->entryTailIndex()));
  }
  // The messages since the last time, as "INTERFACE LEVEL;". The sum's interface is empty.
  static std::string said() {
    std::regex const message("Interface (\\S*) queue length is over (\\w+) threshold.*\n");
    return std::regex_replace(std::exchange(messages, ""), message, "$1 $2;");
  }

  static inline std::string messages;
  AgentClock::Ptr clock = clockAt(10'000'000'000'000, 0);
  Vorn::Config::Ptr config = Kes::makePtr<Vorn::Config>();
  Vorn::Hardware::Status::Ptr hardware = Kes::makePtr<Vorn::Hardware::Status>();
  Vorn::CongestionData::Ptr recorder =
      Kes::makePtr<Vorn::CongestionData>(hardware, clock, config, Kes::makePtr<LinuxPortMetaDataDumper>());
  BurstLedger ledger;
  CongestionFeed feed{recorder, config, hardware, clock, ledger};
  QueueAddress address{Pylo::IntfId("eth0"), 0x10010, 0};
  SampledQueue sampled{address, fifo, {1000000, 0, 0, 0}};
  SampledQueue other{{address.intfId, 7, 0}, fifo, {1000000, 0, 0, 0}};
  QueueSum sum;
  U64 sent = 0;
};

// Looks come at random phases, in the second half a tenth of them 4 ms late; the drops wrap.
TEST_F(Feed, BurstsOfKnownTruthAtRandomPhases) {
  constexpr double rate = 12500;  // bytes a millisecond: 100 Mbit/s
  std::mt19937 random(1);
  U32 drops = 0xFFFFFFF0;
  sampled = SampledQueue(address, fifo, {1000, 0, 0, drops});
  for (U32 burst = 1; burst <= 800; ++burst) {
    double const late = burst <= 400 ? 0 : 4;
    double const bytes = std::uniform_real_distribution(25000.0, 250000.0)(random) + late * rate;
    double const at = burst * 100 + std::uniform_real_distribution(2.0, 9.0)(random);
    double time = burst * 100;
    for (; time < at; time += std::bernoulli_distribution(0.1)(random) ? 1 + late : 1)
      look(time, sent, 0, drops);
    drops += 3;
    for (; time < at + bytes / rate + 9; time += std::bernoulli_distribution(0.1)(random) ? 1 + late : 1) {
      double const left = std::max(0.0, bytes - (time - at) * rate);
      look(time, sent + static_cast<U64>(bytes - left), static_cast<U32>(left), drops);
    }
    sent += static_cast<U64>(bytes);
    ASSERT_EQ(records().size(), burst);
    LinuxEntry const& record = *records().back();
    EXPECT_EQ(record.drops(), 3U);
    EXPECT_LE(record.qLen(), bytes);
    EXPECT_NEAR(record.peakBound(), bytes, 2);
    EXPECT_NEAR(record.latency(), record.qLen() / rate * 1e3, 100 + late * 500);
    EXPECT_NEAR(static_cast<double>(record.duration().value()), bytes / rate * 1e3, 750);
  }
}

TEST_F(Feed, OneBurstIsOneRecordWhateverItCrosses) {
  look(1001, 0, 40000, 1);
  EXPECT_EQ(lines(), "1000500,0,40000,40000,,1;") << "stands in the log as soon as it begins";
  look(1002, 12500, 60000, 2);
  look(1009, 100000, 90000, 2);  // late: still the same
  look(1010, 112500, 99000, 5);
  EXPECT_EQ(since(metaData()->timeOfCongestionStart()), 1000500U);
  look(1018, 211500, 0, 5);
  EXPECT_EQ(metaData()->timeOfCongestionStart().value(), 0U);
  look(1019, 215000, 85000, 5);  // follows closely
  look(1027, 300000, 0, 5);
  EXPECT_EQ(lines(), "1000500,25300,99000,177500,7920,5;") << "the latency of the longest backlog";
  look(1060, 300000, 0, 5);
  look(1061, 300000, 90000, 5);
  EXPECT_EQ(records().size(), 2U);
  EXPECT_EQ(metaData()->counter(), 2U);
  EXPECT_EQ(metaData()->maxQLen(), 99000U);
  EXPECT_EQ(since(metaData()->timeOfMaxQLen()), 1010000U);
  EXPECT_EQ(recorder->globalBufferChunk()->entrys(), 2U);
}

TEST_F(Feed, TellsOfInterfaces_andGrowsThePoolWithThoseThatAreCongested) {
  std::string told;
  feed.interfaceHandlerIs([&told](Pylo::IntfId const& intfId, bool here) {
    told += intfId.stringValue().str() + (here ? "+" : "-");
  });
  feed.poolGrowsIs(true);
  recorder->numSharedChunksIs(3);
  for (QueueKey const key : {1U, 2U}) {
    QueueAddress const queue = {Pylo::IntfId("e" + std::to_string(key)), key, 0};
    for (QueueAddress const& one : {queue, {queue.intfId, 9, 0}}) feed.handlePresent(one);
    feed.handleUpdate(queue, {.begins = true, .timestamp = 1000, .qLen = 1});
    EXPECT_EQ(recorder->numSharedChunks(), key + 2);
    feed.handleGone(queue);
  }
  feed.handleGone({Pylo::IntfId("e1"), 9, 0});
  EXPECT_EQ(told, "e1+e2+e1-");
  // One that is not to grow is told of, once for each size.
  openJournal(true);
  testing::internal::CaptureStderr();
  feed.poolGrowsIs(false);
  for (U32 const chunks : {4U, 3U, 3U, 2U}) {
    recorder->numSharedChunksIs(chunks);
    feed.handleUpdate({Pylo::IntfId("e1"), 1, 0}, {.begins = true, .timestamp = 1000, .qLen = 1});
    EXPECT_EQ(feed.poolFault().empty(), chunks == 4);
  }
  std::string const noted = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(noted.begin(), noted.end(), '\n'), 2) << noted;
  EXPECT_NE(noted.find("pool: 3 is less than two chunks for each of 2 congested interfaces"),
            std::string::npos)
      << noted;
}

TEST_F(Feed, SteadyLossWithoutAQueueIsOneBurst) {
  // Half way a look comes late.
  for (U32 n = 1; n <= 100; ++n) look(1000 + n + (n > 50 ? 8 : 0), n * 10000, 0, n - n % 3);
  EXPECT_EQ(lines(), "1002500,104000,0,10000,,99;");
  EXPECT_EQ(metaData()->counter(), 1U);
  EXPECT_EQ(feed.bursts(), 1U);
  look(1200, 1'000'000, 9000, 99);
  look(1201, 1'009'000, 0, 99);
  look(5000, 1'050'000, 0, 130);
  EXPECT_EQ(feed.bursts(), 3U) << "a burst that was seen to end did not last on unseen";
}

TEST_F(Feed, MessagesOfTheMergedRecordByTheLogInterval) {
  config->logIntervalIs(60);
  look(1001, 0, 40000);  // nothing to say, which silences nothing
  look(1002, 0, 60000);
  EXPECT_EQ(said(), "eth0 low;");
  look(1003, 0, 90000);
  EXPECT_EQ(said(), "eth0 high;") << "even though a low one was";
  other.handleReading({1003000, 0, 90000, 0}, interval, feed);  // has begun before that
  look(1010, sent = 90000, 0);
  for (int n = 0; n < 100; ++n) burst(2000 + 30 * n, n % 2 == 0 ? 90000 : 60000);
  EXPECT_EQ(said(), "") << "at most one an interval of each";
  burst(62010, 60000);
  burst(62050, 90000);  // the first look is high already
  burst(62090, 90000);
  EXPECT_EQ(said(), "eth0 low;eth0 high;");
  hardware->defLowThresholdIs(10000);
  look(130000, sent, 8000);
  hardware->defLowThresholdIs(7000);
  look(130001, sent, 8000);
  EXPECT_EQ(said(), "eth0 low;") << "thresholds of the moment";
  look(130010, sent += 8000, 0);
  config->logIntervalIs(0);
  burst(200000, 90000);
  EXPECT_EQ(said(), "");
  config->globalLogIntervalIs(60);
  look(200101, sent, 40000);
  look(200102, sent, 60000);
  look(200103, sent, 90000);
  EXPECT_EQ(said(), " low; high;") << "of the sum likewise";
  look(200110, sent += 90000, 0);
  config->logIntervalIs(60);
  config->globalLogIntervalIs(0.01);
  for (int n = 0; n < 3; ++n) burst(300000 + 30 * n, 90000);
  EXPECT_EQ(said(), "eth0 high; high; high; high;") << "each by its own interval";
}

TEST_F(Feed, ABurstOutlastsItsChunk) {
  recorder->numSharedChunksIs(2);
  double time = 1001;
  U64 otherSent = 0;
  auto const others = [&](int count) {
    for (; count > 0; --count, time += 20) {
      look(other, time, otherSent, 9000);
      look(other, time + 10, otherSent += 9000, 0);
    }
  };
  others(500);
  look(time, 0, 40000);
  others(600);
  look(time, 0, 45000);
  ASSERT_EQ(records().size(), 1101U) << "its chunk is not the newest any more";
  EXPECT_EQ(records()[500]->queue(), address.key);
  EXPECT_EQ(records()[500]->qLen(), 45000U);
  EXPECT_GT(records()[500]->duration().value(), 12'000'000U);
  others(1000);
  ASSERT_NE(records()[500]->queue(), address.key) << "taken away";
  look(time, 0, 44000);
  look(time + 1, 0, 43000);
  EXPECT_EQ(records().back()->queue(), address.key);
  EXPECT_EQ(since(records().back()->timestamp()), static_cast<U64>(time * 1000));
  EXPECT_EQ(records().back()->duration().value(), 1000U);
  EXPECT_EQ(metaData()->counter(), 1U);
}

TEST_F(Feed, StepsOfTheWallClockMoveNothingInABurst) {
  config->logIntervalIs(60);
  for (S64 const step : {S64{3600}, S64{-7200}}) {
    double const start = static_cast<double>(clocks.monotonicNanoseconds) / 1e6 + 1000;
    look(start, sent, 0);
    look(start + 1, sent, 60000);
    pass(0, step * 1'000'000'000);
    look(start + 2, sent + 12500, 90000);
    look(start + 10, sent += 102500, 0);
    EXPECT_EQ(records().back()->duration().value(), step > 0 ? 8700U : 8200U);  // the rate is known then
    EXPECT_EQ(records().back()->latency(), 7200U);
  }
  EXPECT_EQ(said(), "eth0 low;eth0 high;");
  burst(static_cast<double>(clocks.monotonicNanoseconds) / 1e6 + 60000, 60000);
  EXPECT_EQ(said(), "eth0 low;") << "a message an hour ahead silences nothing";
  EXPECT_EQ(records()[2]->timestamp().value(), static_cast<U64>(clocks.wallNanoseconds / 1000) - 1000);
  EXPECT_LT(records()[2]->timestamp(), records()[0]->timestamp());
  EXPECT_NE(clock->status().text().find("jumped 2 times, the last time by -7200.000 s, 60 s ago"),
            std::string::npos);
}

TEST_F(Feed, AQueueMadeAnewStartsAnew) {
  sampled = SampledQueue(address, fifo, {1000000, 5'000'000'000, 0, 0});
  look(1001, 5'000'000'000, 60000, 81);
  look(1002, 5'000'012'500, 50000, 81);
  look(1003, 5'000'100'000, 0, 0);  // only the drops tell
  look(1004, 100, 0, 4);            // the bytes as well
  look(1010, 900, 0, 6);
  // 50,000 bytes are 34 packets of 1,514 bytes.
  EXPECT_EQ(lines(), "1000500,1500,60000,62500,,115;1004000,3000,0,800,,6;");
  EXPECT_EQ(total().drops(), 121U) << "all of it is one burst of the sum";
}

TEST_F(Feed, LatencyIsTheTimeThatThePeakTookToLeave) {
  SampledQueue fast({Pylo::IntfId("fast"), 0, 0}, fifo, {1000000, 0, 0, 0});
  U64 fastSent = 0;
  auto const both = [&](double time, U64 bytes, U32 backlog) {
    look(fast, time, fastSent += 1'000'000, 40000);
    look(time, bytes, backlog);
  };
  both(1001, 0, 0);
  for (int n = 2; n < 5000; ++n) both(1000 + n, 0, 50000);  // a link that stands still
  EXPECT_EQ(records()[0]->latency(), 0U) << "not known yet";
  for (U32 n = 1; n <= 19; ++n) both(5999 + n, 2500 * n, 50000 - 2500 * n);
  EXPECT_EQ(records()[0]->latency(), 0U) << "the burst is over, the last byte of the peak still there";
  both(6020, 50000, 0);
  EXPECT_EQ(lines(), "1001500,5016500,50000,50000,5018000,0;");
  EXPECT_NEAR(total().latency(), 5'017'000, 1000) << "whatever another queue sends";
}

TEST_F(Feed, WhatVanishesIsLost) {
  look(1001, 0, 300'000);
  look(1002, 12500, 287'500, 3);
  look(1003, 15000, 0, 3);  // the link has gone down
  look(1004, 15000, 0, 3);
  EXPECT_EQ(total().drops(), 192U);
  // A packet on its way, counted as sent only by the next look.
  look(1100, 15000, 65000, 3);
  look(1101, 20000, 0, 3);
  look(1102, 80000, 0, 3);
  // The queue itself goes.
  look(1200, 80000, 30000, 3);
  sampled.handleGone(feed);
  sum.finishLook(interval, feed);
  EXPECT_EQ(metaData()->timeOfCongestionStart().value(), 0U);
  // A fair queue counts what it drops from inside, here many frames at once. That never leaves.
  sampled = SampledQueue(address, {2 * frame, frame, 50'000, true}, {1299000, 0, 0, 0});
  look(1300, 0, 100'000);
  look(1301, 12500, 40000, 1);
  look(1305, 52500, 0, 1);
  // What has vanished is of this burst, not of the one of long ago.
  sampled.traitsIs({.startThreshold = 1'000'000, .packetBytes = frame, .dropsFromInside = false});
  look(5000, 52500, 500'000, 1);
  for (double const time : {5001, 5002}) look(time, 62500, 0, 1);
  EXPECT_EQ(lines(),
            "1000500,2000,300000,300000,,192;"
            "1100000,500,65000,65000,,0;"
            "1200000,0,30000,30000,,20;"
            "1299500,4700,100000,102500,4200,1;"
            "5002000,0,0,0,,324;");
  EXPECT_EQ(recorder->globalBufferChunk()->counter(), 5U) << "the sum without queues was not congested";
  look(6000, 62500, 0, 1);
  sum.addLost(7);
  sum.finishLook(interval, feed);
  EXPECT_EQ(total().drops(), 7U) << "lost with the last queue, short as it was";
}

TEST_F(Feed, StatisticsOutlastRenamesAndQueuesThatGo) {
  auto const rename = [&](char const* from, char const* to) {
    feed.handleGone({Pylo::IntfId(from), address.key, 0});
    sampled.addressIs({Pylo::IntfId(to), address.key, 0});
    feed.handlePresent({Pylo::IntfId(to), address.key, 0});
  };
  burst(1010, 60000);
  look(1999, sent, 60000);
  rename("eth0", "lan0");
  look(2000, sent + 1000, 59000);
  EXPECT_EQ(records("lan0").size(), 1U) << "the burst goes on under the new name";
  EXPECT_EQ(metaData("lan0")->counter(), 1U);
  look(2010, sent + 60000, 2000);
  rename("lan0", "eth0");
  look(2011, sent + 62000, 0);
  EXPECT_EQ(records().size(), 2U) << "nothing but the latency of a burst that is over is no record";
  EXPECT_EQ(metaData()->counter(), 2U);
  for (U32 n = 1; n <= 300; ++n) {
    other = SampledQueue({Pylo::IntfId("eth1"), n, 0}, fifo, {2000000 + n * 2000, 0, 0, 0});
    look(other, 2001 + n * 2, 0, 9000);
    other.handleGone(feed);
  }
  EXPECT_EQ(metaData()->counter(), 2U);
  EXPECT_FALSE(metaData("eth1", 1)) << "gone longest ago";
}

TEST(Clock, FollowsStepsAtOnceAndSmallOnesBackwardsSlowly) {
  auto const clock = clockAt(5'000'000'000, 1'000'000'000);
  auto const after = [&clock](S64 milliseconds, S64 stepMilliseconds) {
    pass(milliseconds * 1'000'000, stepMilliseconds * 1'000'000);
    return clock->now().value();
  };
  EXPECT_EQ(after(0, 0), 5'000'000U);
  EXPECT_EQ(after(10, 99), 5'109'000U);
  EXPECT_EQ(after(100, -2), 5'207'000U);
  EXPECT_EQ(after(0, -50), 5'207'000U);
  EXPECT_EQ(after(1000, 0), 6'187'000U) << "two per cent slow";
  EXPECT_EQ(after(5000, 0), 11'157'000U) << "caught up";
  EXPECT_EQ(after(10, 1000), 12'167'000U);
  EXPECT_EQ(after(0, -1001), 11'166'000U) << "at once";
  EXPECT_EQ(after(20000, 0), 31'166'000U);
  EXPECT_EQ(clock->offset(), 31'166'000 - 27'120'000);
  EXPECT_EQ(clock->status().text(), "the wall clock jumped 2 times, the last time by -1.001 s, 20 s ago");
  EXPECT_EQ(clockAt(0, 0)->now().value(), 1U) << "never 0";
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

// The zone of this process's reports is that of the first report, whichever test makes it.
std::string const reportZone = [] {
  setenv("TZ", "UTC-2", 1);
  tzset();
  return LocalZone::ofReports().name();
}();

TEST(Lines, StandUnderTheirTitlesAndHaveAllFields) {
  CongestionUpdate const update = {
      .timestamp = 1740830829000042, .qLen = 25000, .peakBound = 31000, .drops = 7, .latency = 2000};
  auto const record = Kes::makePtr<LinuxEntry>(0x10010U, 0U, update);
  auto const global = Kes::makePtr<LinuxEntry>(noQueue, 0U, CongestionUpdate{});
  auto const start = Vorn::portMetaDataFactory(0, Pylo::IntfId("a,\"b"));
  auto const queue = Vorn::portMetaDataFactory(0x10020, Pylo::IntfId("e\xc3\xbcx\xc2\x9b"));
  auto const dumper = Kes::makePtr<LinuxPortMetaDataDumper>();
  record->durationIs(Vorn::Microseconds(2010));
  EXPECT_EQ(reportZone, "UTC, +02:00");
  std::string const lines = ::Test::Bench::written([&](auto* out) {
    std::fputs(columnsFor(Vorn::parseCommand("")).str().c_str(), out);
    record->dumpEntry(out, "", "eth\x1b", false);
    record->dumpDrops(out, "", "eth0");
    EXPECT_EQ(global->dumpDrops(out, "", "N/A"), 1) << "the drops report lists records with drops";
    dumper->dumpStatistics(queue.get(), out);
    record->dumpEntry(out, "1740830829000042", "eth0", true);
    global->dumpEntry(out, "9", "N/A", true);
    dumper->dumpStartMetaData(start.get(), out, true);
  });
  EXPECT_EQ(
      lines,
      R"(Time (UTC, +02:00)         Interface    Queue      Length Peak up to     Duration     Latency  Drops
2025-03-01 14:07:09.000042 eth?         1:10      25000 B    31000 B     2.010 ms    2.000 ms      7
2025-03-01 14:07:09.000042 eth0         1:10       2.010 ms      7
eüx??        1:20            0
record,eth0,1:10,65552,,1740830829000042,2010,25000,31000,2000,7
global,N/A,,,,0,0,0,0,,0
start,"a,""b",root,0,,0,,,,,
)");
  std::FILE* const full = std::fopen("/dev/full", "w");
  std::setbuf(full, nullptr);
  EXPECT_EQ(record->dumpDrops(full, "", "eth0"), -1);
  std::fclose(full);
}

}  // namespace
