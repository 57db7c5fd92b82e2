// SPDX-License-Identifier: Apache-2.0
// From the kernel's messages to readings of queues: made-up messages, made-up dumps, and the source itself
// where the kernel refuses.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/gen_stats.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <limits>
#include <map>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "agent/base/Journal.h"
#include "agent/kernel/ChangeWatch.h"
#include "agent/kernel/DumpParser.h"
#include "agent/kernel/InnerShare.h"
#include "agent/kernel/QdiscSource.h"
#include "agent/kernel/QueueRoster.h"
#include "agent/kernel/QueueTree.h"

namespace {

using namespace Agent;
using namespace std::chrono_literals;
using Kes::U16;
using Kes::U32;
using Kes::U64;

// Messages as the kernel writes them.
template <class Value>
std::string raw(Value const& value) {
  return {reinterpret_cast<char const*>(&value), sizeof value};
}
std::string attribute(int type, std::string value) {
  rtattr const header = {static_cast<U16>(RTA_LENGTH(value.size())), static_cast<U16>(type)};
  value.resize(RTA_ALIGN(value.size()));
  return raw(header) + value;
}
template <class Body>
std::string message(U16 type, Body const& body, std::string const& rest = "", U16 flags = 0,
                    U32 sequence = 5) {
  U32 const length = static_cast<U32>(NLMSG_LENGTH(sizeof body) + rest.size());
  return raw(nlmsghdr{length, type, flags, sequence, 0}) + raw(body) + rest;
}
std::string qdiscMessage(char const* kind, U32 parent, std::string const& rest = "") {
  tcmsg body{};
  body.tcm_ifindex = 3;
  body.tcm_parent = parent;
  return message(RTM_NEWQDISC, body, attribute(TCA_KIND, std::string(kind) + '\0') + rest);
}
// Of the two parts of the statistics so many bytes: older kernels tell less.
std::string statistics(U64 bytes, U32 backlog, U32 drops, std::size_t basicSize = sizeof(gnet_stats_basic),
                       std::size_t queueSize = sizeof(gnet_stats_queue)) {
  gnet_stats_basic basic{};
  basic.bytes = bytes;
  gnet_stats_queue queue{};
  queue.backlog = backlog;
  queue.drops = drops;
  return attribute(TCA_STATS2 | NLA_F_NESTED,
                   attribute(TCA_STATS_RATE_EST, "?") +
                       attribute(TCA_STATS_BASIC, raw(basic).substr(0, basicSize)) +
                       attribute(TCA_STATS_QUEUE, raw(queue).substr(0, queueSize)));
}
// With another 16-bit number so many bytes from the end.
std::string spoilt(std::string message, std::size_t fromEnd, U16 value) {
  return message.replace(message.size() - fromEnd, sizeof value, reinterpret_cast<char const*>(&value),
                         sizeof value);
}
std::span<std::byte const> bytesOf(std::string const& messages) { return std::as_bytes(std::span(messages)); }

TEST(Dump, SamplesOutOfWholeShortAndDamagedMessages) {
  using State = DumpParser::State;
  std::vector<QdiscSample> samples;
  DumpParser parser(5);
  std::string const part =
      qdiscMessage("htb", TC_H_ROOT, attribute(TCA_OPTIONS, "x") + statistics(5'000'000'000, 3028, 7)) +
      qdiscMessage("noqueue", TC_H_ROOT) + qdiscMessage("clsact", TC_H_CLSACT) +
      message(RTM_NEWQDISC, U32{0}) + message(RTM_NEWLINK, tcmsg{}) +  // too short; of no interest
      qdiscMessage("a_kind_of_16_chr", 0x10010, statistics(100, 0xFFFFFF00, 9, 8, 8)) +  // slightly negative
      spoilt(qdiscMessage("pfifo", 0x10020, statistics(100, 200, 9)), 4 + sizeof(gnet_stats_queue), 999) +
      message(RTM_NEWQDISC, tcmsg{}, "", NLM_F_DUMP_INTR, 4);  // of an older answer
  EXPECT_EQ(parser.handlePart(bytesOf(part), 77, samples), State::more);
  std::ostringstream told;
  for (auto const& [id, stamp, bytes, backlog, drops] : samples)
    told << id.ifindex << ' ' << id.kind.data() << std::hex << ' ' << id.parent << std::dec << ' ' << stamp
         << ": " << bytes << ' ' << backlog << ' ' << drops << '\n';
  EXPECT_EQ(told.str(),
            "3 htb ffffffff 77: 5000000000 3028 7\n"
            "3 a_kind_of_16_ch 10010 77: 100 0 0\n"
            "3 pfifo 10020 77: 100 0 0\n");
  EXPECT_FALSE(parser.interrupted());
  std::string const end = message(NLMSG_DONE, 0, "", NLM_F_DUMP_INTR);
  EXPECT_EQ(parser.handlePart(bytesOf(end), 78, samples), State::whole);
  EXPECT_TRUE(parser.interrupted());

  std::string const empty = message(RTM_NEWQDISC, tcmsg{});
  for (auto const& [messages, error] : {std::pair(message(NLMSG_ERROR, -EPERM), EPERM),
                                        {message(NLMSG_DONE, -ENOMEM), ENOMEM},
                                        {message(NLMSG_ERROR, 0), EPROTO},  // an acknowledgement
                                        {message(NLMSG_ERROR, -0x7FFFFFFF - 1), 4095},
                                        {spoilt(empty, empty.size(), 37), EBADMSG},  // longer than all
                                        {spoilt(empty, empty.size(), 15), EBADMSG},
                                        {attribute(1, ""), EBADMSG}}) {  // no header
    DumpParser failing(5);
    EXPECT_EQ(failing.handlePart(bytesOf(messages), 1, samples), State::failed);
    EXPECT_EQ(failing.error(), error);
  }
}

std::string link(U16 type, int ifindex, char const* name, U32 mtu, unsigned char family = AF_UNSPEC) {
  ifinfomsg const body = {family, 0, ARPHRD_ETHER, ifindex, 0, 0};
  return message(type, body,
                 attribute(IFLA_MTU, raw(mtu)) + attribute(IFLA_IFNAME, std::string(name) + '\0'));
}

TEST(Changes, OnlyWhatMakesAnInterfaceAnotherMatters) {
  KernelChanges changes;
  tcmsg body{};
  body.tcm_handle = 0x10020;
  std::string const traffic =
      message(RTM_DELTCLASS, body) + message(RTM_NEWTFILTER, body) + message(RTM_NEWQDISC, body);
  readChanges(bytesOf(traffic), changes);
  ASSERT_EQ(changes.traffic.size(), 2U);
  EXPECT_TRUE(changes.traffic[0].isClass && changes.traffic[0].gone);
  EXPECT_EQ(changes.traffic[0].handle, 0x10020U);
  EXPECT_FALSE(changes.traffic[1].isClass || changes.traffic[1].gone);
  EXPECT_FALSE(changes.lost);
  readChanges(bytesOf(spoilt(traffic, 36, 99)), changes);
  EXPECT_TRUE(changes.lost);

  std::map<U32, Interface> there = {{1, {Pylo::IntfId("eth0"), 1514}}, {2, {Pylo::IntfId("wan"), 1514}}};
  int lookups = 0;
  WatchedInterfaces interfaces({"eth*"}, [&](U32 ifindex) -> std::optional<Interface> {
    ++lookups;
    return there.contains(ifindex) ? std::optional(there.at(ifindex)) : std::nullopt;
  });
  auto const matters = [&](std::string const& notice) {
    changes.clear();
    readChanges(bytesOf(notice), changes);
    return changes.links.size() == 1 && interfaces.handleNotice(changes.links[0]);
  };
  EXPECT_TRUE(interfaces.watched(1) && interfaces.watched(1));
  EXPECT_FALSE(interfaces.watched(2) || interfaces.watched(2) || interfaces.watched(9));
  EXPECT_EQ(lookups, 3) << "each once";
  EXPECT_FALSE(matters(link(RTM_NEWLINK, 1, "eth0", 1500))) << "a flap";
  EXPECT_FALSE(matters(link(RTM_DELLINK, 1, "eth0", 1500, AF_BRIDGE))) << "it has left its bridge";
  EXPECT_FALSE(matters(link(RTM_NEWLINK, 8, "eth8", 1500))) << "no queues";
  EXPECT_TRUE(matters(link(RTM_NEWLINK, 1, "eth0", 9000)));
  there.at(1).frameBytes = 9014;
  EXPECT_EQ(interfaces.watched(1)->frameBytes, 9014U);
  EXPECT_TRUE(matters(link(RTM_NEWLINK, 2, "eth2", 1500))) << "its name may be asked for now";
  there.at(2).intfId = Pylo::IntfId("eth2");
  EXPECT_TRUE(interfaces.watched(2));
  EXPECT_TRUE(matters(link(RTM_DELLINK, 1, "eth0", 9000)));
  EXPECT_FALSE(interfaces.isWatched(1));
}

QdiscSample qdisc(char const* kind, U32 parent, U32 handle, U32 ifindex = 1) {
  QdiscSample sample;
  sample.id = {ifindex, parent, handle, {}};
  std::strcpy(sample.id.kind.data(), kind);
  return sample;
}

// "2 3^(4 5)!": queues by position, "^" at a device, with the children of inner ones, and "!" for those that
// drop from inside.
std::string queuesOf(std::vector<QdiscSample> const& samples) {
  QueueTree const tree(samples);
  std::ostringstream text;
  for (auto const& [position, children, dropsFromInside, outermost] : tree.queues()) {
    text << (text.tellp() == 0 ? "" : " ") << position << (outermost ? "^" : "");
    for (auto const& child : children) text << (&child == &children.front() ? '(' : ' ') << child;
    text << (children.empty() ? "" : ")") << (dropsFromInside ? "!" : "");
  }
  return text.str();
}

TEST(QueueTree, TreesOfEveryShape) {
  EXPECT_EQ(queuesOf({qdisc("tbf", TC_H_ROOT, 0x80010000, 2), qdisc("bfifo", 0x80010001, 0, 2)}), "0^");
  // htb with a default leaf, a named one and a shaper as leaf.
  EXPECT_EQ(queuesOf({qdisc("htb", TC_H_ROOT, 0x10000), qdisc("pfifo", 0x10010, 0),
                      qdisc("fq_codel", 0x10020, 0x200000), qdisc("tbf", 0x10030, 0x300000),
                      qdisc("bfifo", 0x300001, 0)}),
            "0^(1 2 3) 1 2! 3");
  // A shaper around classes, which stand before what they hang in, as the kernel may have it. The default mq,
  // whose handle is that of its leaves, keeps nothing; what stands twice is one.
  EXPECT_EQ(
      queuesOf({qdisc("tbf", TC_H_ROOT, 0x10000), qdisc("pfifo", 0x20001, 0), qdisc("pfifo", 0x20002, 0),
                qdisc("prio", 0x10001, 0x20000), qdisc("mq", TC_H_ROOT, 0, 7), qdisc("pfifo_fast", 2, 0, 7),
                qdisc("pfifo_fast", 1, 0, 7), qdisc("pfifo_fast", 1, 0, 7)}),
      "0^(3)! 1 2 3(1 2)! 5^ 6^");
  // What no kernel shows: a discipline in itself, two in each other.
  EXPECT_EQ(queuesOf({qdisc("tbf", 0x10001, 0x10000), qdisc("tbf", 0x30001, 0x20000),
                      qdisc("tbf", 0x20001, 0x30000)}),
            "0! 1(2)! 2(1)!");
}

// An htb with a class whose packets and losses are known, and a queue of its own; its counters are read
// before or after its class's, with traffic in between.
TEST(InnerShare, ClaimsNothingThatItsChildrenMayHaveDone) {
  struct Counters {
    U64 sent;
    U32 backlog, drops;
  };
  for (std::size_t const child : {0U, 1U}) {
    std::mt19937 random(1);
    InnerShare share(1 - child, std::span(&child, 1));
    Counters inClass = {7'000'000, 0, 0}, own = {500, 0, 40};  // 40 went with a class of earlier days
    U32 most = 0;
    QueueReading before;
    for (int look = 0; look < 1400; ++look) {
      // From the 1000th look on a burst into its own queue, while the class goes on, and what it loses.
      int const burst = look - 1000;
      if (burst == 0) own.backlog = 100'000;
      if (burst == 10) own.drops += 297;
      if (burst > 20 && burst <= 40) own.sent += 5'000, own.backlog -= 5'000;
      // A class goes, with its packets, and comes again under its name: the past of both counts for nothing.
      if (burst == 100) {
        own.drops += inClass.drops + 12;
        own.sent += inClass.sent;
        inClass = {};
      }
      std::vector<QdiscSample> samples(2);
      for (std::size_t const position : {0U, 1U}) {
        std::uniform_int_distribution<U32> packets(0, position == 0 ? 20 : 2);
        U32 const in = packets(random) * 1514;
        U32 const out = std::min(inClass.backlog + in, packets(random) * 1514);
        inClass.sent += out;
        inClass.backlog += in - out;
        inClass.drops += packets(random) / 2;
        Counters const more = position == child ? Counters{} : own;
        samples[position] = {{},
                             1000U * static_cast<U64>(look),
                             inClass.sent + more.sent,
                             inClass.backlog + more.backlog,
                             inClass.drops + more.drops};
      }
      QueueReading const reading = share.read(samples);
      ASSERT_LE(reading.backlog, own.backlog + 2 * 1514) << look;
      ASSERT_LE(reading.drops, burst < 10 ? 0U : 297U) << look;
      ASSERT_GE(reading.drops, burst < 100 ? 0U : 297U) << look;
      bool const vanishes = reading.bytes + reading.backlog < before.bytes + before.backlog;
      ASSERT_FALSE(vanishes && burst > 0 && burst < 100) << look;
      before = reading;
      most = std::max(most, reading.backlog);
    }
    EXPECT_GE(most, 80'000U);
  }
}

// Writes down what it is told.
class Notes : public CongestionSink {
 public:
  void handlePresent(QueueAddress const& queue) override { add("+", queue); }
  void handleGone(QueueAddress const& queue) override { add("-", queue); }
  void handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) override {
    if (update.begins) add("*" + std::to_string(update.drops) + " ", queue);
  }
  void handleTotal(CongestionUpdate const& update) override { total += update.drops, ends += update.ends; }
  U32 total = 0, ends = 0;  // of the sum: drops and ends of bursts
  // What was written since the last time.
  std::string take() { return std::exchange(text_, ""); }

 private:
  void add(std::string const& what, QueueAddress const& queue) {
    text_ += (text_.empty() ? "" : ", ") + what + queue.intfId.stringValue().str() + " " +
             std::string(QueueName::ofKey(queue.key).text());
  }
  std::string text_;
};

class Roster : public testing::Test {
 protected:
  // One look, as the source does it. Returns what the sink is told.
  std::string look(bool torn = false) {
    stamp += 1000;
    for (QdiscSample& sample : samples) sample.stamp = stamp;
    if (torn && !roster.fits(samples))
      roster.locate(samples);
    else if (!roster.fits(samples))
      roster.learn(samples, interfaces, notes);
    roster.handleSamples(samples, 1000, sum, notes);
    return notes.take();
  }
  std::string renamed(U32 ifindex, char const* name) {
    names.at(ifindex) = name;
    interfaces.forgetAll();
    roster.learn(samples, interfaces, notes);
    return notes.take();
  }

  std::map<U32, std::string> names = {{1, "eth0"}, {2, "eth1"}, {3, "skip"}};
  WatchedInterfaces interfaces{{"eth*"}, [this](U32 ifindex) -> std::optional<Interface> {
                                 if (!names.contains(ifindex)) return std::nullopt;
                                 return Interface{Pylo::IntfId(names[ifindex]), 1514};
                               }};
  std::vector<QdiscSample> samples = {qdisc("htb", TC_H_ROOT, 0x10000), qdisc("pfifo", 0x10010, 0),
                                      qdisc("pfifo", 0x10020, 0), qdisc("tbf", TC_H_ROOT, 0x80010000, 2),
                                      qdisc("pfifo_fast", TC_H_ROOT, 0, 3)};
  U64 stamp = 1'000'000;
  QueueRoster roster{0};
  QueueSum sum;
  Notes notes;
};

TEST_F(Roster, QueuesAppearGoAndAreRenamed) {
  EXPECT_EQ(look(), "+eth0 root, +eth0 1:10, +eth0 1:20, +eth1 root");
  EXPECT_EQ(look(), "");
  EXPECT_EQ(roster.size(), 4U);
  auto const class20 = samples[2];
  samples.erase(samples.begin() + 2);
  EXPECT_EQ(look(), "-eth0 1:20");
  samples.insert(samples.begin() + 2, class20);
  samples[1].id.handle = 0x100000;
  EXPECT_EQ(look(), "-eth0 1:10, +eth0 1:10, +eth0 1:20") << "another discipline in the same place";
  EXPECT_EQ(renamed(2, "eth7"), "-eth1 root, +eth7 root");
  names.at(1) = "eth7";
  EXPECT_EQ(renamed(2, "eth0"),
            "-eth0 root, -eth0 1:10, -eth0 1:20, -eth7 root, "
            "+eth7 root, +eth7 1:10, +eth7 1:20, +eth0 root")
      << "names change hands";
  EXPECT_EQ(renamed(3, "eth9"), "+eth9 root");
  names.erase(3);
  EXPECT_EQ(renamed(2, "veth"), "-eth0 root, -eth9 root");
  roster.forgetAll(notes);
  EXPECT_EQ(notes.take(), "-eth7 root, -eth7 1:10, -eth7 1:20");
}

TEST_F(Roster, QueuesThatAreMadeAgainBeginAnew) {
  samples[1].drops = samples[3].drops = 80;
  samples[1].bytes = samples[3].bytes = 5000;
  look();
  samples[3].drops = 1;
  EXPECT_EQ(look(), "*1 eth1 root") << "drops went backwards";
  // Forwards, but the kernel told: of the class, then of the discipline that takes its classes along.
  samples[1].drops = 4000;
  roster.handleRemoval({1, 0x10000, 0x10010, true, true});
  EXPECT_EQ(look(true), "") << "whose counters these are is not known";
  EXPECT_EQ(look(), "-eth0 1:10, +eth0 1:10");
  samples[2].drops = 4000;
  roster.handleRemoval({1, TC_H_ROOT, 0x10000, false, true});
  EXPECT_EQ(look(), "-eth0 root, -eth0 1:10, -eth0 1:20, +eth0 root, +eth0 1:10, +eth0 1:20");
  roster.handleRemoval({2, TC_H_ROOT, 0x70000, false, true});  // it had the place before
  EXPECT_EQ(look(), "");
  samples[2].drops = 4002;
  EXPECT_EQ(look(), "*2 eth0 1:20");
}

TEST_F(Roster, TornDumpsAreReadButNotLearnedFrom) {
  look();
  look();
  std::vector<QdiscSample> const whole = samples;
  samples = {whole[3], whole[1], qdisc("pfifo", TC_H_ROOT, 0x50000, 9)};
  samples[0].backlog = samples[1].drops = 5000;
  EXPECT_EQ(look(true), "*5000 eth0 1:10, *0 eth1 root") << "1:20 and the htb's own have no reading";
  samples = whole;
  samples[1].drops = 5000;
  samples[3].backlog = 5000;
  samples[0].drops = 5003;
  EXPECT_EQ(look(), "*3 eth0 root") << "nobody was gone, nothing is lost";
  samples = {whole[1]};
  look(true);
  EXPECT_EQ(std::pair(notes.total, notes.ends), std::pair(5003U, 0U)) << "1:20 may be as it was";
  look();
  EXPECT_EQ(std::pair(notes.total, notes.ends), std::pair(5003U + 4U, 1U)) << "gone";
}

TEST(QueueRoster, LearnsInTimeInProportion) {
  auto const timeFor = [](U32 classes) {  // of the processor
    std::vector<QdiscSample> samples = {qdisc("htb", TC_H_ROOT, 0x10000)};
    for (U32 i = 1; i <= classes; ++i) samples.push_back(qdisc("pfifo", 0x10000 + i, 0));
    WatchedInterfaces interfaces({}, [](U32) { return Interface{Pylo::IntfId("eth0"), 1514}; });
    std::clock_t least = std::numeric_limits<std::clock_t>::max();
    for (int round = 0; round < 3; ++round) {
      QueueRoster roster(0);
      Notes notes;
      std::clock_t const begin = std::clock();
      roster.learn(samples, interfaces, notes);
      samples.back().id.kind[0] ^= 1;
      roster.learn(samples, interfaces, notes);
      least = std::min(least, std::clock() - begin);
      EXPECT_EQ(roster.size(), classes + 1);
    }
    return least;
  };
  EXPECT_LT(timeFor(20'000), 40 * timeFor(2'000)) << "quadratic would be 100 times";
}

// Sockets cannot be had while the descriptors are used up, and the one that the source has is no socket any
// more.
TEST(QdiscSource, SaysOnceThatItCannotReadAndWhenItCanAgain) {
  // A sanitizer needs descriptors for the first look at the type of an object: it looks at this one here.
  std::string const reason = std::generic_category().message(EMFILE);
  static rlimit before;
  getrlimit(RLIMIT_NOFILE, &before);
  auto const descriptorsAre = [](rlim_t limit) {
    rlimit const now = {limit, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &now), 0);
  };
  auto const hardware = Kes::makePtr<Vorn::Hardware::Status>();
  hardware->vornEnabledByDefaultIs(true);
  EventLoop loop;
  Notes notes;
  QdiscSource source(notes, Kes::makePtr<Vorn::Config>(), hardware, {});
  descriptorsAre(1);
  std::string refused;
  try {
    source.start(loop);
  } catch (std::system_error const& error) {
    descriptorsAre(before.rlim_cur);
    refused = error.what();
  }
  EXPECT_EQ(refused, "cannot read this machine's queues: " + reason);

  auto const look = [&loop] {
    for (int i = 0; i < 50; ++i, std::this_thread::sleep_for(1ms)) loop.serveOne();
  };
  openJournal(true);
  testing::internal::CaptureStderr();
  FileDescriptor const none(open("/dev/null", O_RDONLY | O_CLOEXEC));
  int const next = dup(none.get());
  close(next);
  source.start(loop);
  look();
  dup2(none.get(), next);
  descriptorsAre(1);
  look();
  std::string const whileFailing = source.status().text();
  descriptorsAre(before.rlim_cur);
  look();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "vorn-agent: cannot read this machine's queues: Socket operation on non-socket\n"
            "vorn-agent: this machine's queues can be read again\n");
  EXPECT_EQ(whileFailing.find("cannot read this machine's queues (Too many open files)\nlooking"), 0U)
      << whileFailing;
  EXPECT_NE(source.status().text().find(" failed (last: Too many open files)"), std::string::npos);
}

}  // namespace
