// SPDX-License-Identifier: Apache-2.0
// What is asked of a history: as text that travels, and what it finds.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <map>
#include <tuple>

#include "agent/query/QueryReport.h"
#include "agent/query/QueueSummary.h"
#include "agent/query/TimeText.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/record/LocalZone.h"
#include "agent/record/RecordColumns.h"
#include "agent/show/Follow.h"
#include "agent/show/FollowReader.h"
#include "tests/support.h"

using namespace Agent;
using namespace Test;

namespace {

constexpr U64 inSecond = 1'000'000;
constexpr U64 now = 1'795'507'466'500'000;  // 2026-11-24 08:04:26.5

// Records of three interfaces with two queues each, two seconds apart at most.
struct History : Bench {
  explicit History(U32 seed, U32 records, bool stepsBack = false) {
    LocalZone::ofReports() = LocalZone::utc();
    recorder =
        Kes::makePtr<Vorn::CongestionData>(status, clock, config, Kes::makePtr<LinuxPortMetaDataDumper>());
    recorder->numSharedChunksIs(9), recorder->allocateGlobalChunk();
    clock->utcTimeIs(Vorn::Microseconds::toSeconds(us(now)));
    U64 moment = now - U64{records} * 2 * inSecond;
    for (U32 const end = seed + records; seed < end; ++seed) {
      U64 const some = Kes::hashNumber(seed) >> 20;
      moment += some % (2 * inSecond);
      if (stepsBack && rows.size() % 700 == 600) moment -= 300 * inSecond;
      add("eth" + std::to_string(some % 3), static_cast<QueueKey>(some % 2 * 0x10010), moment,
          some / 7 % inSecond, static_cast<U32>(some % 100'000),
          static_cast<U32>(some / 11 % 4 == 0 ? some % 50 : 0), static_cast<U32>(some % 3 * 1000),
          rows.size() % 5 == 0);
    }
  }
  void add(std::string const& name, QueueKey queue, U64 moment, U64 duration, U32 length, U32 drops,
           U32 latency, bool inSum = false) {
    CongestionUpdate const update{
        .timestamp = moment, .qLen = length, .peakBound = length, .drops = drops, .latency = latency};
    auto const make = [&](QueueKey key) {
      auto entry = Kes::makePtr<LinuxEntry>(key, 0U, update);
      entry->durationIs(us(duration));
      return entry;
    };
    auto const record = make(queue);
    recorder->doAddToLog(Pylo::IntfId(name), record);
    ledger.handleRecord(Pylo::IntfId(name), *record);
    if (inSum) recorder->doAddToGlobalLog(make(noQueue));
    auto const port = recorder->portData(Pylo::IntfId(name));
    if (!port->portMetaData(queue))
      port->portMetaDataIs(Vorn::portMetaDataFactory(queue, Pylo::IntfId(name)));
    port->portMetaData(queue)->counterInc(1);
    auto row = record->row(name);
    row.interface = *names.insert(name).first;
    rows.push_back(row);
  }
  std::string ask(Query const& query) {
    return written(
        [&](std::FILE* out) { failure = QueryReport(query, *recorder, ledger, {"lo"}).write(out); });
  }
  std::string own(std::string const& command) {
    return written([&](std::FILE* out) {
      recorder->doMergeAndDumpEntries(out, command, columnsFor(Vorn::parseCommand(command)), "");
    });
  }

  BurstLedger ledger;
  std::set<std::string> names;
  std::vector<RecordRow> rows;  // as added
  std::string failure;
};

std::string withoutFrame(std::string const& report) { return report.substr(report.find('\n', 1) + 1); }

std::string refusal(auto const& operation) {
  try {
    operation();
  } catch (QueryError const& error) {
    return error.what();
  }
  return "";
}

TEST(Query, ReportsWithoutLimits_areTheRecordersOwn) {
  using Report = Query::Report;
  std::vector<std::pair<Query, std::string>> const cases = {
      {{}, ""},
      {{.all = true}, "-a"},
      {{.latency = true}, "-l"},
      {{.drops = true}, "-d"},
      {{.interfaces = {"eth2"}}, "-ieth2"},
      {{.patterns = {"eth[01]", "eth2"}}, "-ieth[01],eth2"},
      {{.report = Report::global}, "-b"},
      {{.report = Report::stats}, "-c"},
      {{.form = Query::Form::csv}, "csv"},
      {{.form = Query::Form::csv, .all = true}, "csv -a"},
      {{.report = Report::global, .form = Query::Form::csv}, "-i csv -a"}};
  for (U32 records : {1U, 40U, 3000U}) {
    History history(records, records);
    // One queue is congested since before its interface's oldest record.
    auto const queue = history.recorder->portData(Pylo::IntfId(history.rows.back().interface.data()))
                           ->portMetaData(history.rows.back().queue);
    for (auto const& [query, command] : cases) {
      queue->timeOfCongestionStartIs(us(query.all ? 0 : inSecond));
      std::string const expected = history.own(command);
      bool const framed = query.form == Query::Form::text;
      EXPECT_EQ(history.ask(query), framed ? expected : withoutFrame(expected)) << command << ' ' << records;
      if (records == 1) break;  // of the others some are empty, which is told in words
    }
  }
}

// Every filter, window and order, against the plainest way to find the same.
TEST(Query, Finds_whatALinearSearchFinds) {
  using Order = Query::Order;
  History history(11, 4000, /*stepsBack=*/true);
  std::sort(history.rows.begin(), history.rows.end(),
            [](auto& a, auto& b) { return a.timestamp < b.timestamp; });
  U32 nonEmpty = 0;
  for (U32 seed = 0; seed < 300; ++seed) {
    U64 const some = Kes::hashNumber(seed + 1);
    auto choose = [&, shift = 0](U64 of) mutable { return some >> (shift += 3) & (of - 1); };
    U64 const since = now - (some >> 8) % (6000 * inSecond);
    U64 const until = since + (some >> 16) % (2000 * inSecond);
    auto const at = [](U64 time) {
      return "@" + std::to_string(time / inSecond) + "." +
             std::to_string(inSecond + time % inSecond).substr(1);
    };
    Query query{.form = Query::Form::csv};
    if (choose(2) == 0) query.interfaces = {"eth1"};
    if (choose(4) == 0) query.queues = {"1:10"};
    if (choose(2) == 0) query.since = at(since);
    if (choose(2) == 0) query.until = at(until);
    if (choose(4) == 0) query.minLength = 50'000;
    if (choose(4) == 0) query.minDuration = inSecond / 2;
    if (choose(4) == 0) query.minLatency = 1000;
    if (choose(4) == 0) query.drops = true;
    if (choose(2) == 0) query.order = static_cast<Order>(1 + choose(4));
    if (choose(4) == 0) query.count = 1 + choose(64);
    query.reverse = choose(4) == 0;
    std::vector<RecordRow> expected;
    for (RecordRow const& row : history.rows) {
      if (!query.interfaces.empty() && row.interface != "eth1") continue;
      if (!query.queues.empty() && row.queue != 0x10010) continue;
      if (!query.since.empty() && row.end() < since) continue;
      if (!query.until.empty() && row.timestamp > until) continue;
      if (row.length >= query.minLength && row.duration >= query.minDuration &&
          row.latency >= query.minLatency && (row.drops != 0 || !query.drops))
        expected.push_back(row);
    }
    if (query.order) {
      auto const key = [order = *query.order](RecordRow const& row) {
        std::map<Order, U64> const keys = {{Order::length, row.length},
                                           {Order::duration, row.duration},
                                           {Order::latency, row.latency},
                                           {Order::drops, row.drops}};
        return std::pair(keys.at(order), row.timestamp);
      };
      std::sort(expected.begin(), expected.end(), [&](auto& a, auto& b) { return key(a) > key(b); });
      if (query.reverse) std::reverse(expected.begin(), expected.end());
      if (query.count && *query.count < expected.size()) expected.resize(*query.count);
    } else {
      if (query.count && *query.count < expected.size())
        expected.erase(expected.begin(), expected.end() - *query.count);
      if (query.reverse) std::reverse(expected.begin(), expected.end());
    }
    nonEmpty += !expected.empty();
    std::string const lines = Bench::written([&](std::FILE* out) {
      std::fputs(recordFieldNames().c_str(), out);
      for (RecordRow const& row : expected) writeCsvLine(out, row);
    });
    EXPECT_EQ(history.ask(queryFrom(requestFor(query))), lines) << requestFor(query);
  }
  EXPECT_GT(nonEmpty, 120U);
}

TEST(Query, Answers_inWordsWithWhatIsNearest) {
  History history(1, 0);
  EXPECT_EQ(withoutFrame(history.ask({})), "No congestion has been recorded.\n");
  EXPECT_EQ(withoutFrame(history.ask({.drops = true})), "Nothing that fits has been recorded.\n");
  history.add("eth0", 0, now - 60 * inSecond, 5000, 70'000, 3, 0);
  history.add("eth0", 0, now, 5000, 70'000, 3, 0);
  EXPECT_EQ(withoutFrame(history.ask({.since = "08:04", .until = "08:04:10", .drops = true})),
            "Nothing fits from 2026-11-24 08:04:00.000000 to 2026-11-24 08:04:10.000000 (UTC, +00:00).\n"
            "\nThe nearest before:\n" +
                recordTitles(RecordView::drops) +
                "2026-11-24 08:03:26.500000 eth0         root       5.000 ms      3\n"
                "\nThe nearest after:\n" +
                recordTitles(RecordView::drops) +
                "2026-11-24 08:04:26.500000 eth0         root       5.000 ms      3\n");
  EXPECT_EQ(history.ask({.form = Query::Form::json, .until = "@5"}), "[]\n");
  history.ask({.interfaces = {"lo"}, .patterns = {"e.*", "n\x1b"}});
  EXPECT_EQ(history.failure, "no interface matches n?");
}

TEST(Query, Top_sumsUpAQueueInsideTheWindow) {
  History history(1, 0);
  history.add("quiet", 0, now - 8 * inSecond, 1000, 5'000, 0, 300);
  for (U64 const second : {20U, 9U, 5U, 1U})
    history.add("busy", 0x10020, now - second * inSecond, inSecond / 2, 40'000, 2, 1500);
  history.add("busy", 0x10020, now - inSecond / 4, inSecond / 4, 90'000, 0, 0);
  history.recorder->portData(Pylo::IntfId("busy"))
      ->portMetaData(0x10020)
      ->timeOfCongestionStartIs(us(now - inSecond / 4));
  history.config->defaultThresholdsConfigIs({120'000, 1000, true});
  EXPECT_EQ(history.ask({.report = Query::Report::top, .form = Query::Form::csv, .last = "8750ms"}),
            "interface,queue,queue_id,bursts,congested_us,congested_share,longest_us,peak_bytes,worst_"
            "latency_us,drops,"
            "last_us,open,open_length_bytes\n"
            "busy,1:20,65568,4,1500000,171428,500000,90000,1500,6,1795507466250000,1,90000\n"
            "quiet,root,0,1,1000,114,1000,5000,300,0,1795507458500000,0,\n");
  // A congestion whose first record is gone and that went on in another one is one burst.
  History old(1, 0);
  old.add("busy", 0, now - 2 * inSecond, inSecond, 9'000, 0, 0);
  for (QueueKey const queue : {0U, 0x10010U}) {
    auto const port = old.recorder->portData(Pylo::IntfId("busy"));
    if (queue != 0) port->portMetaDataIs(Vorn::portMetaDataFactory(queue, Pylo::IntfId("busy")));
    port->portMetaData(queue)->timeOfCongestionStartIs(us(now - 5 * inSecond));
  }
  EXPECT_EQ(old.ask({.report = Query::Report::top, .form = Query::Form::csv, .last = "4"}),
            fieldNames(summaryColumns) +
                "busy,root,0,1,4000000,1000000,5000000,9000,,0,1795507464500000,1,9000\n"
                "busy,1:10,65552,1,4000000,1000000,5000000,0,,0,1795507461500000,1,0\n");
  std::string const text = history.ask({.report = Query::Report::top, .count = 1});
  EXPECT_NE(
      text.find(
          "busy         1:20        5  11.25 %  500.000 ms    90000 B    1.500 ms      8 now ███████████▎"),
      std::string::npos)
      << text;
  EXPECT_EQ(text.find("quiet"), std::string::npos);
  Query const picture{.report = Query::Report::timeline,
                      .interfaces = {"quiet", "busy"},
                      .last = "20",
                      .width = 41,
                      .ascii = true};
  std::string const drawn = history.ask(picture);
  EXPECT_NE(drawn.find("busy         1:20   |!          !   !   !\n"), std::string::npos) << drawn;
  EXPECT_NE(drawn.find("quiet        root   |            .\n"), std::string::npos) << drawn;
}

TEST(TimeText, Moments_andSpans) {
  constexpr long offset = 5400;  // +01:30: 09:34:26.5 there
  std::map<std::string, Kes::S64> const seconds = {
      {"now", 0}, {"-90", -90}, {"2h ago", -7200}, {"+1min 30s", 90}, {"-1.5h", -5400}};
  for (auto const& [text, distance] : seconds)
    EXPECT_EQ(momentFrom(text, now, offset), now + static_cast<U64>(distance * Kes::S64{inSecond})) << text;
  std::map<std::string, std::string> const moments = {{"09:05", "07:35:00.000000"},
                                                      {"2026-11-24 09:05:10.25", "07:35:10.250000"},
                                                      {"2026-11-24T09:05Z", "09:05:00.000000"},
                                                      {"09:05 UTC", "09:05:00.000000"},
                                                      {"09:05 -02:00", "11:05:00.000000"},
                                                      {" today", "-1 22:30:00.000000"},
                                                      {"2026-11-25", "22:30:00.000000"},
                                                      {"@1795507466.000001", "08:04:26.000001"},
                                                      {"yesterday", "-2 22:30:00.000000"}};
  for (auto const& [text, expected] : moments) {
    std::string const found = rfc3339(us(momentFrom(text, now, offset)));
    EXPECT_EQ(found.substr(11, 15), expected.substr(expected.find(' ') == std::string::npos ? 0 : 3)) << text;
    EXPECT_EQ(found.substr(0, 10), expected.starts_with("-1")   ? "2026-11-23"
                                   : expected.starts_with("-2") ? "2026-11-22"
                                                                : "2026-11-24")
        << text;
  }
  for (char const* text :
       {"", "soon", "24:00", "9", "09:60", "2026-02-30", "2026-13-01", "1969-01-01", "@", "@1.", "-",
        "-2 parsecs", "2026-11-24 09:05x", "14:05:10.", "@99999999999999999999", "+9999999999999w"})
    EXPECT_NE(refusal([&] { momentFrom(text, now, 0); }), "") << text;
  EXPECT_EQ(spanFrom("1d 2hours 3m4"), 93784 * inSecond);
  EXPECT_EQ(spanFrom("1.5ms"), 1500U);
  EXPECT_EQ(spanFrom("12 months"), spanFrom("1y"));
  for (char const* text : {"", "x", "1q", "-1", "1..5", "99999999999999h"})
    EXPECT_NE(refusal([&] { spanFrom(text); }), "") << text;
}

TEST(Query, Text_travelsWhole) {
  Query const query{.report = Query::Report::top,
                    .form = Query::Form::json,
                    .interfaces = {"a b", "%=\n\xff"},
                    .patterns = {"e{1,2}"},
                    .queues = {"1:20"},
                    .since = "2026-11-23 14:05",
                    .until = "now",
                    .last = "1h 30min",
                    .minLength = ~U32{0},
                    .minDuration = ~U64{0},
                    .minLatency = 9,
                    .drops = true,
                    .latency = true,
                    .all = true,
                    .order = Query::Order::drops,
                    .reverse = true,
                    .count = 3,
                    .utc = true,
                    .width = 7,
                    .colour = true,
                    .ascii = true};
  EXPECT_EQ(queryFrom(requestFor(query)), query);
  EXPECT_EQ(queryFrom(requestFor({})), Query());
  EXPECT_TRUE(isQuery("query") && isQuery("query x") && !isQuery("queryx") && !isQuery(""));
  for (char const* text :
       {"query nothing", "query top what=1", "query top form", "query top form=xml", "query top count=-1",
        "query top count=4294967296", "query top since=%4", "query top since=%zz", "query top form=html",
        "query timeline form=trace", "query top drops=2", "query top count=0"})
    EXPECT_NE(refusal([&] { queryFrom(text); }), "") << text;
  for (char const* queue : {"best", "1:zz", "-", "1:", ":"})
    EXPECT_NE(refusal([&] { RecordFilter(Query{.queues = {queue}}, now); }), "") << queue;
  EXPECT_NE(refusal([] { RecordFilter(Query{.since = "now", .until = "-1h"}, now); }), "");
  EXPECT_NE(refusal([] { RecordFilter(Query{.since = "now", .last = "1h"}, now); }), "");
}

// What a follower shows of agents that speak and end, one after the other, its remarks in brackets, and its
// end.
std::string followed(Query const& query, std::vector<std::string> agents) {
  std::string all;
  std::reverse(agents.begin(), agents.end());
  auto const connect = [&] {
    if (agents.empty()) throw std::system_error(ECONNREFUSED, std::generic_category(), "nobody");
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    FileDescriptor const agent(ends[0]);
    EXPECT_GE(::send(agent.get(), agents.back().data(), agents.back().size(), 0), 0);
    agents.pop_back();
    return FileDescriptor(ends[1]);
  };
  FileDescriptor const reader(::socket(AF_UNIX, SOCK_DGRAM, 0));
  auto const remark = [&](std::string const& text) { all += '[' + text + "]\n"; };
  auto const end =
      followRecords(query, {connect, [&](std::string_view lines) { all += lines; }, reader.get(), remark});
  return all + end.text;
}

TEST(Follow, Shows_whatFitsAcrossAgents) {
  std::string const names = recordFieldNames();
  std::string const one = "record,eth0,1:20,65568,8001:,1795507466500000,25803,302800,492050,24310,117\n";
  std::string const other = "record,\"a,\"\"\x1b[2J\",root,0,,1795507467500000,5,400,401,,0\n";
  std::string const otherName =
      "type,new,drops,latency_us,peak_at_most_bytes,queue_length_bytes,duration_us,"
      "timestamp_us,handle,queue_id,interface\n"
      "record,?,117,24310,492050,302800,25803,1795507466500000,8001:,65568,eth0\n";
  Query const csv{.form = Query::Form::csv, .count = 3};
  EXPECT_EQ(followed(csv, {names + one + "skipped,12\nlater,kind\n" + other + "record,cut o", otherName}),
            names + one +
                "[12 records skipped]\nrecord,\"a,\"\"?[2J\",root,0,,1795507467500000,5,400,401,,0\n" +
                "[the agent has ended; waiting for it to come back]\n"
                "[the agent is back; what it recorded meanwhile is in its history]\n" +
                one);
  Query const json{.form = Query::Form::json, .patterns = {"a.*"}, .count = 1};
  std::string const object = followed(json, {names + one + other + other});
  EXPECT_TRUE(object.starts_with(R"({"type":"record","interface":"a,\"\u001B[2J","queue":"root",)"))
      << object;
  EXPECT_EQ(object.find('\n'), object.size() - 1);
  EXPECT_EQ(followed({.minLatency = 1, .count = 1, .utc = true}, {names + other + one}),
            recordTitles(RecordView::records) +
                "2026-11-24 08:04:26.500000 eth0         1:20     302800 B   "
                "492050 B    25.803 ms   24.310 ms    117\n");
}

TEST(Follow, Nonsense_endsIt) {
  std::string const names = recordFieldNames();
  Query const csv{.form = Query::Form::csv};
  EXPECT_EQ(followed(csv, {}), "cannot reach the agent: nobody: Connection refused");
  EXPECT_EQ(followed(csv, {""}), "the agent closed the connection without an answer");
  EXPECT_EQ(followed(csv, {std::string("\0too \x1bmany\n", 11)}), "the agent says: too ?many");
  EXPECT_EQ(followed(csv, {"type,interface\n"}), names + "the agent does not know how to be followed");
  EXPECT_EQ(followed(csv, {names + "record,x\n"}), names + "the agent sends a record that is not whole");
  EXPECT_EQ(followed(csv, {names + std::string(5000, '"')}), names + "the agent sends lines without an end");
  for (std::string const number : {"-1", "4294967296", "1e3", "9 ", "x"})
    EXPECT_EQ(followed(csv, {names + "record,eth0,root,0,,1,1," + number + ",1,1,1\n"}),
              names + "the agent sends a record with a number that is none");
}

}  // namespace
