// SPDX-License-Identifier: Apache-2.0
// Who filled a queue: as it is told, kept, named, and shown.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "agent/burst/CongestionFeed.h"
#include "agent/query/FlowReport.h"
#include "agent/query/QueryReport.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/record/LocalZone.h"
#include "agent/record/RecordColumns.h"
#include "tests/FailingAllocations.h"
#include "tests/support.h"

using namespace Agent;
using namespace Test;

namespace {

constexpr U64 begun = 1'795'507'466'500'000;  // 2026-11-24 08:04:26.5

FlowKey udp(Kes::U8 host, Kes::U16 port) {
  return {{10, 0, 1, host}, {10, 0, 1, 9}, port, 9, FlowKey::ipv4, 0, 17};
}

TEST(FlowName, IsWhatPeopleKnow) {
  FlowKey const v6{{0x20, 1, 0xd, 0xb8}, {0xfe, 0x80}, 443, 4000, FlowKey::ipv6, 7, 6};
  FlowKey network = v6, fragment = udp(1, 0), mute = udp(1, 0);
  network.prefix = 64, fragment.fragment = true, fragment.destinationPort = 0;
  mute.destinationPort = 0, mute.protocol = 200;
  std::vector<std::pair<FlowKey, std::string>> const names = {
      {udp(1, 40000), "10.0.1.1:40000 > 10.0.1.9:9 udp"},
      {v6, "[2001:db8::]:443 > [fe80::]:4000 tcp vlan 7"},
      {network, "[2001:db8::/64]:443 > [fe80::/64]:4000 tcp vlan 7"},
      {fragment, "10.0.1.1 > 10.0.1.9 udp fragment"},
      {mute, "10.0.1.1 > 10.0.1.9 protocol 200"},
      {{.etherType = 0x0806, .vlan = 9}, "arp vlan 9"},
      {{.etherType = 0x88b5}, "ethertype 0x88b5"},
      {{}, "unknown"}};
  for (auto const& [key, name] : names) EXPECT_EQ(FlowName(key).flow, name);
}

// A copy, of so many as records keep; what comes late as well. Without memory the record is there all the
// same.
TEST(Flows, AreKeptWithTheirRecord) {
  Bench bench;
  BurstLedger ledger;
  CongestionFeed feed(bench.recorder, bench.config, bench.status, Kes::makePtr<AgentClock>(), ledger);
  QueueAddress const queue{Pylo::IntfId("eth0"), 0x10010, 0};
  BurstFlows flows{900, 90, std::vector<FlowShare>(7, {udp(1, 1), 100, 10, 1, 2, std::string(2000, 'c')})};
  auto const tell = [&](CongestionUpdate update) {
    update.timestamp = ++bench.time, update.flows = flows.bytes == 0 ? nullptr : &flows;
    feed.handleUpdate(queue, update);
    auto const chunk = bench.port("eth0")->chunkTail();
    return dynamic_cast<LinuxEntry const&>(*chunk->entry(chunk->entryTailIndex())).flows();
  };
  BurstFlows const* const kept = tell({.begins = true, .qLen = 9});
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->largest, std::vector<FlowShare>(5, {udp(1, 1), 100, 10, 1, 2, std::string(255, 'c')}));
  flows = {1000, 95, {{udp(2, 2), 300, 3}}};
  EXPECT_EQ(*tell({.ends = true, .qLen = 9}), flows);
  flows = {};
  EXPECT_EQ(tell({.late = true, .qLen = 9})->bytes, 1000U) << "nothing new is known";
  flows = {1001, 96, {{udp(2, 2), 301, 4}, {udp(3, 3), 7, 1}}};
  EXPECT_EQ(*tell({.late = true, .qLen = 9}), flows);
  for (std::size_t left = 0; left < 3; ++left) {
    flows.largest = {{udp(1, 1), 5, 1, 0, 0, std::string(200 + 20 * left, 'd')}};
    auto const record = Kes::makePtr<LinuxEntry>(0U, 0U, CongestionUpdate{.timestamp = 5});
    allocationsLeft = left;
    record->flowsAre(flows);
    EXPECT_TRUE(std::exchange(allocationsLeft, forever) == forever && record->flows() == nullptr) << left;
    record->flowsAre(flows);
    EXPECT_EQ(*record->flows(), flows);
  }
}

struct FlowHistory : Bench {
  FlowHistory() {
    LocalZone::ofReports() = LocalZone::utc();
    recorder =
        Kes::makePtr<Vorn::CongestionData>(status, clock, config, Kes::makePtr<LinuxPortMetaDataDumper>());
    clock->utcTimeIs(Vorn::Microseconds::toSeconds(us(begun + 60'000'000)));
  }
  void add(char const* name, QueueKey queue, U64 moment, BurstFlows const* flows, U32 drops = 0) {
    CongestionUpdate const update{
        .timestamp = begun + moment, .qLen = 40'000, .peakBound = 50'000, .drops = drops, .flows = flows};
    recorder->doAddToLog(Pylo::IntfId(name), Kes::makePtr<LinuxEntry>(queue, 0U, update));
  }
  std::string ask(Query const& query) {
    std::string const report =
        written([&](std::FILE* out) { QueryReport(query, *recorder, BurstLedger(), {}).write(out); });
    return query.form == Query::Form::text ? report.substr(report.find('\n', 1) + 1) : report;
  }
};

TEST(Who, TellsTheFlowsBelowTheirBursts) {
  FlowHistory history;
  FlowKey const far{
      {0x20, 1, 0xd, 0xb8, 1, 2, 3, 4, 5, 6, 7, 8}, {0x20, 1, 0xd, 0xb8, 9}, 443, 65000, FlowKey::ipv6, 0, 6};
  BurstFlows const first{
      1000, 10, {{udp(1, 40000), 600, 6, 20, 3, "/a.slice"}, {far, 300, 3, 0, 0, "/b\x1b,\"c"}}};
  BurstFlows const second{
      1000, 1, {{udp(1, 40000), ~U64{0}, 1, ~U64{0}, 9}}};  // of a history that was forged
  history.add("eth0", 0, 0, &first, 3);
  history.add("eth1", 0x10020, 1'000'000, nullptr);
  history.add("eth0", 0, 2'000'000, &second);
  std::string const titles =
      recordTitles(RecordView::records) + "       Share       Bytes     Error Packets  Drops Flow\n";
  EXPECT_EQ(
      history.ask({.report = Query::Report::who, .until = "08:04:27.9"}),
      titles +
          "2026-11-24 08:04:26.500000 eth0         root      40000 B    50000 B     0.000 ms           -     "
          " 3\n"
          "     60.00 %       600 B      20 B       6      3 10.0.1.1:40000 > 10.0.1.9:9 udp by /a.slice\n"
          "     30.00 %       300 B       0 B       3      0\n"
          "         [2001:db8:102:304:506:708::]:443 > [2001:db8:900::]:65000 tcp by /b?,\"c\n"
          "     10.00 %       100 B         -       1      - all others\n"
          "\nNobody counted the flows of 1 burst more.\n");
  EXPECT_EQ(
      history.ask({.report = Query::Report::who, .form = Query::Form::csv, .count = 2}),
      fieldNames(flowColumns) +
          "eth0,root,0,1795507466500000,1,1000,10,10.0.1.1:40000 > 10.0.1.9:9 udp,10.0.1.1,40000,10.0.1.9,9,"
          "udp,2048,,0,600,600000,20,6,3,/a.slice\n"
          "eth0,root,0,1795507466500000,1,1000,10,[2001:db8:102:304:506:708::]:443 > [2001:db8:900::]:65000 "
          "tcp,"
          "2001:db8:102:304:506:708::,443,2001:db8:900::,65000,tcp,34525,,0,300,300000,0,3,0,\"/b?,\"\"c\"\n"
          "eth0,root,0,1795507468500000,1,1000,1,10.0.1.1:40000 > 10.0.1.9:9 "
          "udp,10.0.1.1,40000,10.0.1.9,9,udp,"
          "2048,,0,18446744073709551615,1000000,18446744073709551615,1,9,\n");
  EXPECT_EQ(history.ask({.report = Query::Report::who, .since = "08:04:28"}).find("all others"),
            std::string::npos);
  std::string const none =
      "Nobody counted the flows of 1 burst. Only the exact source does (vorn-agent --source, --no-flows).\n";
  for (auto const report : {Query::Report::who, Query::Report::top})
    EXPECT_EQ(history.ask({.report = report, .interfaces = {"eth1"}, .flows = report == Query::Report::top}),
              none);
}

// Against the plainest way to add them up.
TEST(TopFlows, AddUpOverBursts) {
  FlowHistory history;
  std::map<std::string, U64> entered;              // by queue
  std::map<std::string, std::array<U64, 6>> sums;  // by queue and port: last, bursts and figures
  for (U32 seed = 1; seed < 400; ++seed) {
    U64 const some = Kes::hashNumber(seed) >> 20;
    std::string const name = "eth" + std::to_string(some % 2), queue = some % 3 == 0 ? "1:10" : "root";
    BurstFlows flows{10'000, 100, {}};
    for (Kes::U16 port = 1; port <= some % 6; ++port) {
      FlowShare const share{udp(1, static_cast<Kes::U16>(port * (1 + some / 7 % 5))), some % 997 + port, port,
                            some % 3, some / 3 % 2 != 0 ? port : 0U};
      flows.largest.push_back(share);
      auto& sum = sums[name + ',' + queue + ',' + std::to_string(share.key.sourcePort)];
      sum = {begun + seed,           sum[1] + 1,          sum[2] + share.bytes, sum[3] + share.error,
             sum[4] + share.packets, sum[5] + share.drops};
    }
    entered[name + ',' + queue] += flows.bytes;
    history.add(name.c_str(), some % 3 == 0 ? 0x10010 : 0, seed, &flows);
  }
  Query query{.report = Query::Report::top, .form = Query::Form::csv, .flows = true};
  EXPECT_EQ(queryFrom(requestFor(query)), query);
  std::string const all = history.ask(query);
  for (auto const& [id, sum] : sums) {
    auto const [last, bursts, bytes, error, packets, drops] = sum;
    std::string const queue = id.substr(0, id.rfind(',')), port = id.substr(id.rfind(',') + 1);
    std::string const line =
        Kes::format(
            "\n%s,%u,%u,%u,%u,%u,10.0.1.1:%s > 10.0.1.9:9 "
            "udp,10.0.1.1,%s,10.0.1.9,9,udp,2048,,0,%u,%u,%u,%u,%u,\n",
            queue, queue.ends_with("root") ? 0 : 0x10010, last, bursts, entered[queue], entered[queue] / 100,
            port, port, bytes, bytes * 1'000'000 / entered[queue], error, packets, drops)
            .str();
    EXPECT_NE(all.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(static_cast<std::size_t>(std::count(all.begin(), all.end(), '\n')), sums.size() + 1);
  auto const column = [&](std::size_t place) {
    std::vector<U64> values;
    std::istringstream lines(history.ask(query));
    for (std::string line; std::getline(lines, line);) {
      for (std::size_t i = 0; i < place; ++i) line.erase(0, line.find(',') + 1);
      if (std::isdigit(line[0]) != 0) values.push_back(std::stoull(line));
    }
    return values;
  };
  constexpr std::size_t time = 3, bytes = 16, drops = 20;
  for (auto const& [order, place] : std::map<std::optional<Query::Order>, std::size_t>{
           {std::nullopt, bytes}, {Query::Order::time, time}, {Query::Order::drops, drops}}) {
    query.order = order, query.count.reset(), query.reverse = false;
    std::vector<U64> values = column(place);
    EXPECT_TRUE(std::is_sorted(values.rbegin(), values.rend()) && values.size() == sums.size() &&
                values[0] != 0);
    query.count = 7, query.reverse = true;
    values.erase(values.begin(), values.end() - 7);
    EXPECT_EQ(column(place), std::vector<U64>(values.rbegin(), values.rend()));
  }
}

}  // namespace
