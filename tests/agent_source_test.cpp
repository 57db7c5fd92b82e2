// From the kernel's messages to readings of queues: made-up messages, made-up dumps, and the source itself
// where the kernel refuses.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/gen_stats.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <system_error>
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
using Kes::U16;
using Kes::U32;
using Kes::U64;

// Messages as the kernel writes them.
class Messages {
 public:
  template <class Body>
  Messages& message(U16 type, Body const& body, U16 flags = 0, U32 sequence = 5) {
    start_ = bytes_.size();
    nlmsghdr header{};
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    header.nlmsg_seq = sequence;
    append(header);
    append(body);
    return *this;
  }
  Messages& qdisc(char const* kind, U32 parent, U32 handle) {
    tcmsg body{};
    body.tcm_ifindex = 3;
    body.tcm_parent = parent;
    body.tcm_handle = handle;
    return message(RTM_NEWQDISC, body).attribute(TCA_KIND, kind, std::strlen(kind) + 1);
  }
  Messages& attribute(int type, void const* data, std::size_t size) {
    rtattr header{};
    header.rta_len = static_cast<U16>(RTA_LENGTH(size));
    header.rta_type = static_cast<U16>(type);
    append(header);
    append(data, size);
    return *this;
  }
  // `basic` and `queue` bytes of the statistics: older kernels tell less.
  Messages& statistics(U64 bytes, U32 backlog, U32 drops, std::size_t basicSize = sizeof(gnet_stats_basic),
                       std::size_t queueSize = sizeof(gnet_stats_queue)) {
    gnet_stats_basic basic{};
    basic.bytes = bytes;
    gnet_stats_queue queue{};
    queue.backlog = backlog;
    queue.drops = drops;
    Messages nested;
    nested.attribute(TCA_STATS_RATE_EST, "?", 1).attribute(TCA_STATS_BASIC, &basic, basicSize);
    nested.attribute(TCA_STATS_QUEUE, &queue, queueSize);
    return attribute(TCA_STATS2 | NLA_F_NESTED, nested.bytes_.data(), nested.bytes_.size());
  }
  // Overwrites a 16-bit number so many bytes from the end.
  Messages& spoil(std::size_t fromEnd, U16 value) {
    std::memcpy(&bytes_[bytes_.size() - fromEnd], &value, sizeof value);
    return *this;
  }
  std::span<std::byte const> bytes() const { return bytes_; }

 private:
  template <class T>
  void append(T const& value) {
    append(&value, sizeof value);
  }
  void append(void const* data, std::size_t size) {
    bytes_.resize(bytes_.size() + NLMSG_ALIGN(size));
    std::memcpy(bytes_.data() + bytes_.size() - NLMSG_ALIGN(size), data, size);
    if (start_ == none_) return;
    auto const length = static_cast<U32>(bytes_.size() - start_);
    std::memcpy(&bytes_[start_], &length, sizeof length);
  }

  static constexpr std::size_t none_ = ~std::size_t{0};
  std::vector<std::byte> bytes_;
  std::size_t start_ = none_;  // of the last message
};

TEST(Dump, SamplesOutOfWholeShortAndDamagedMessages) {
  using State = DumpParser::State;
  std::vector<QdiscSample> samples;
  DumpParser parser(5);
  Messages part;
  part.qdisc("htb", TC_H_ROOT, 0x10000).attribute(TCA_OPTIONS, "x", 1).statistics(5'000'000'000, 3028, 7);
  part.qdisc("noqueue", TC_H_ROOT, 0).qdisc("clsact", TC_H_CLSACT, 0xFFFF0000);
  part.message(RTM_NEWQDISC, U32{0}).message(RTM_NEWLINK, tcmsg{});  // too short; of no interest
  part.qdisc("a_kind_of_16_chr", 0x10010, 0).statistics(100, 0xFFFFFF00, 9, 8, 8);
  part.qdisc("pfifo", 0x10020, 0).statistics(100, 200, 9).spoil(4 + sizeof(gnet_stats_queue), 999);
  part.message(RTM_NEWQDISC, tcmsg{}, NLM_F_DUMP_INTR, 4);  // of an older answer
  EXPECT_EQ(parser.handlePart(part.bytes(), 77, samples), State::more);
  ASSERT_EQ(samples.size(), 3U);
  EXPECT_EQ(samples[0].id.ifindex, 3U);
  EXPECT_STREQ(samples[0].id.kind.data(), "htb");
  EXPECT_EQ(samples[0].stamp, 77U);
  EXPECT_EQ(samples[0].bytes, 5'000'000'000U);
  EXPECT_EQ(samples[0].backlog, 3028U);
  EXPECT_EQ(samples[0].drops, 7U);
  EXPECT_STREQ(samples[1].id.kind.data(), "a_kind_of_16_ch");
  EXPECT_EQ(samples[1].bytes, 100U);
  EXPECT_EQ(samples[1].backlog, 0U) << "slightly negative";
  EXPECT_EQ(samples[1].drops, 0U) << "not told";
  EXPECT_EQ(samples[2].id.parent, 0x10020U);
  EXPECT_EQ(samples[2].bytes, 100U) << "what stands before a malformed attribute";
  EXPECT_EQ(samples[2].backlog, 0U);
  EXPECT_FALSE(parser.interrupted());
  EXPECT_EQ(parser.handlePart(Messages().message(NLMSG_DONE, 0, NLM_F_DUMP_INTR).bytes(), 78, samples),
            State::whole);
  EXPECT_TRUE(parser.interrupted());

  auto const failure = [&samples](Messages const& messages) {
    DumpParser failing(5);
    EXPECT_EQ(failing.handlePart(messages.bytes(), 1, samples), State::failed);
    return failing.error();
  };
  EXPECT_EQ(failure(Messages().message(NLMSG_ERROR, -EPERM)), EPERM);
  EXPECT_EQ(failure(Messages().message(NLMSG_DONE, -ENOMEM)), ENOMEM);
  EXPECT_EQ(failure(Messages().message(NLMSG_ERROR, 0)), EPROTO) << "an acknowledgement";
  EXPECT_EQ(failure(Messages().message(NLMSG_ERROR, -0x7FFFFFFF - 1)), 4095);
  EXPECT_EQ(failure(Messages().message(RTM_NEWQDISC, tcmsg{}).spoil(36, 37)), EBADMSG) << "longer than all";
  EXPECT_EQ(failure(Messages().message(RTM_NEWQDISC, tcmsg{}).spoil(36, 15)), EBADMSG);
  EXPECT_EQ(failure(Messages().attribute(1, "", 0)), EBADMSG) << "no header";
}

Messages link(U16 type, U32 ifindex, char const* name, U32 mtu, unsigned char family = AF_UNSPEC) {
  ifinfomsg body{};
  body.ifi_family = family;
  body.ifi_index = static_cast<int>(ifindex);
  body.ifi_type = ARPHRD_ETHER;
  Messages messages;
  messages.message(type, body).attribute(IFLA_MTU, &mtu, sizeof mtu);
  return messages.attribute(IFLA_IFNAME, name, std::strlen(name) + 1);
}

TEST(Changes, OnlyWhatMakesAnInterfaceAnotherMatters) {
  KernelChanges changes;
  tcmsg body{};
  body.tcm_ifindex = 3;
  body.tcm_handle = 0x10020;
  Messages messages;
  messages.message(RTM_DELTCLASS, body).message(RTM_NEWTFILTER, body).message(RTM_NEWQDISC, body);
  readChanges(messages.bytes(), changes);
  ASSERT_EQ(changes.traffic.size(), 2U);
  EXPECT_TRUE(changes.traffic[0].isClass && changes.traffic[0].gone);
  EXPECT_EQ(changes.traffic[0].handle, 0x10020U);
  EXPECT_FALSE(changes.traffic[1].isClass || changes.traffic[1].gone);
  EXPECT_FALSE(changes.lost);
  readChanges(messages.spoil(36, 99).bytes(), changes);
  EXPECT_TRUE(changes.lost);

  std::map<U32, Interface> there = {{1, {Pylo::IntfId("eth0"), 1514}}, {2, {Pylo::IntfId("wan"), 1514}}};
  int lookups = 0;
  WatchedInterfaces interfaces({"eth*"}, [&](U32 ifindex) -> std::optional<Interface> {
    ++lookups;
    auto const found = there.find(ifindex);
    return found != there.end() ? std::optional(found->second) : std::nullopt;
  });
  auto const matters = [&](Messages const& notice) {
    changes.clear();
    readChanges(notice.bytes(), changes);
    bool result = false;
    for (LinkNotice const& one : changes.links) result = interfaces.handleNotice(one) || result;
    return result;
  };
  EXPECT_TRUE(interfaces.watched(1) != nullptr && interfaces.watched(1) != nullptr);
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
  EXPECT_TRUE(interfaces.watched(2) != nullptr);
  EXPECT_TRUE(matters(link(RTM_DELLINK, 1, "eth0", 9000)));
  EXPECT_FALSE(interfaces.isWatched(1));
}

QdiscSample qdisc(char const* kind, U32 parent, U32 handle, U32 ifindex = 1) {
  QdiscSample sample;
  sample.id = {ifindex, parent, handle, {}};
  std::strcpy(sample.id.kind.data(), kind);
  return sample;
}

// "2 3(4 5)!": queues by position, with the children of inner ones, and "!" for those that drop from inside.
std::string queuesOf(std::vector<QdiscSample> const& samples) {
  std::string text;
  QueueTree const tree(samples);
  for (auto const& queue : tree.queues()) {
    text += (text.empty() ? "" : " ") + std::to_string(queue.position);
    std::string inner;
    for (std::size_t const child : queue.children)
      inner += (inner.empty() ? "" : " ") + std::to_string(child);
    if (!inner.empty()) text += "(" + inner + ")";
    if (queue.dropsFromInside) text += "!";
  }
  return text;
}

TEST(QueueTree, TreesOfEveryShape) {
  EXPECT_EQ(queuesOf({qdisc("tbf", TC_H_ROOT, 0x80010000, 2), qdisc("bfifo", 0x80010001, 0, 2)}), "0");
  // htb with a default leaf, a named one and a shaper as leaf.
  EXPECT_EQ(queuesOf({qdisc("htb", TC_H_ROOT, 0x10000), qdisc("pfifo", 0x10010, 0),
                      qdisc("fq_codel", 0x10020, 0x200000), qdisc("tbf", 0x10030, 0x300000),
                      qdisc("bfifo", 0x300001, 0)}),
            "0(1 2 3) 1 2! 3");
  // A shaper around classes, which stand before what they hang in, as the kernel may have it. The default mq,
  // whose handle is that of its leaves, keeps nothing; what stands twice is one.
  EXPECT_EQ(
      queuesOf({qdisc("tbf", TC_H_ROOT, 0x10000), qdisc("pfifo", 0x20001, 0), qdisc("pfifo", 0x20002, 0),
                qdisc("prio", 0x10001, 0x20000), qdisc("mq", TC_H_ROOT, 0, 7), qdisc("pfifo_fast", 2, 0, 7),
                qdisc("pfifo_fast", 1, 0, 7), qdisc("pfifo_fast", 1, 0, 7)}),
      "0(3)! 1 2 3(1 2)! 5 6");
  // What no kernel shows: a discipline in itself, two in each other.
  EXPECT_EQ(queuesOf({qdisc("tbf", 0x10001, 0x10000), qdisc("tbf", 0x30001, 0x20000),
                      qdisc("tbf", 0x20001, 0x30000)}),
            "0! 1(2)! 2(1)!");
}

// An htb with a class whose packets and losses are known, and a queue of its own; its counters are read
// before or after its class's, with traffic in between.
class ModelTree {
 public:
  explicit ModelTree(bool childFirst) : samples(2), child_(childFirst ? 0 : 1) {}

  void look(U64 stamp) {
    childTraffic(20);
    read(0, stamp);
    childTraffic(2);
    read(1, stamp);
  }
  std::vector<QdiscSample> samples;
  std::mt19937 random{1};
  U64 childSent = 7'000'000, ownSent = 500;
  U32 childBacklog = 0, childDrops = 0, ownBacklog = 0, ownDrops = 0;
  U32 gone = 40;  // packets that went with a class of earlier days

 private:
  void childTraffic(U32 mostPackets) {
    std::uniform_int_distribution<U32> packets(0, mostPackets);
    U32 const in = packets(random) * 1514;
    U32 const out = std::min(childBacklog + in, packets(random) * 1514);
    childSent += out;
    childBacklog += in - out;
    childDrops += packets(random) / 2;
  }
  void read(std::size_t position, U64 stamp) {
    if (position == child_)
      samples[position] = {{}, stamp, childSent, childBacklog, childDrops};
    else
      samples[position] = {
          {}, stamp, childSent + ownSent, childBacklog + ownBacklog, childDrops + ownDrops + gone};
  }
  std::size_t const child_;
};

TEST(InnerShare, ClaimsNothingThatItsChildrenMayHaveDone) {
  for (bool const childFirst : {false, true}) {
    ModelTree tree(childFirst);
    std::size_t const children[] = {childFirst ? 0U : 1U};
    InnerShare share(1 - children[0], children);
    U64 stamp = 1000;
    auto const look = [&] {
      tree.look(stamp += 1000);
      return share.read(tree.samples);
    };
    U32 drops = 0;
    for (int i = 0; i < 1000; ++i) {
      QueueReading const reading = look();
      drops = reading.drops;
      ASSERT_LE(reading.backlog, 2 * 1514U) << i;
    }
    EXPECT_EQ(drops, 0U);
    // A burst into its own queue, while the class goes on, and what it loses.
    U32 most = 0;
    QueueReading before;
    for (int i = 0; i < 100; ++i) {
      tree.ownBacklog = i < 20 ? 100'000 : i < 40 ? 100'000 - 5'000 * static_cast<U32>(i - 20) : 0;
      if (i > 20 && i <= 40) tree.ownSent += 5'000;
      if (i == 10) tree.ownDrops += 297;
      QueueReading const reading = look();
      ASSERT_LE(reading.backlog, tree.ownBacklog + (i == 20 ? 5'000 : 0) + 2 * 1514) << i;
      ASSERT_GE(reading.bytes + reading.backlog, before.bytes + before.backlog) << "nothing vanishes";
      before = reading;
      most = std::max(most, reading.backlog);
      drops = reading.drops;
    }
    EXPECT_EQ(drops, 297U);
    EXPECT_GE(most, 80'000U);
    // A class goes, with its packets, and comes again under its name: the past of both counts for nothing.
    tree.gone += tree.childDrops + 12;
    tree.ownSent += tree.childSent;
    tree.childSent = tree.childDrops = tree.childBacklog = 0;
    for (int i = 0; i < 300; ++i) {
      QueueReading const reading = look();
      ASSERT_LE(reading.backlog, 2 * 1514U) << i;
      ASSERT_EQ(reading.drops, 297U) << i;
    }
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
  auto const secondsFor = [](U32 classes) {
    std::vector<QdiscSample> samples = {qdisc("htb", TC_H_ROOT, 0x10000)};
    for (U32 i = 1; i <= classes; ++i) samples.push_back(qdisc("pfifo", 0x10000 + i, 0));
    WatchedInterfaces interfaces({}, [](U32) { return Interface{Pylo::IntfId("eth0"), 1514}; });
    double least = 1e9;
    for (int round = 0; round < 3; ++round) {
      QueueRoster roster(0);
      Notes notes;
      auto const begin = std::chrono::steady_clock::now();
      roster.learn(samples, interfaces, notes);
      samples.back().id.kind[0] ^= 1;
      roster.learn(samples, interfaces, notes);
      std::chrono::duration<double> const taken = std::chrono::steady_clock::now() - begin;
      least = std::min(least, taken.count());
      EXPECT_EQ(roster.size(), classes + 1);
    }
    return least;
  };
  double const few = secondsFor(2'000), many = secondsFor(20'000);
  std::printf("2,000 classes learned twice in %.2f ms, 20,000 in %.2f ms\n", few * 1e3, many * 1e3);
  EXPECT_LT(many, 40 * few) << "quadratic would be 100 times";
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
  auto const config = Kes::makePtr<Vorn::Config>();
  auto const hardware = Kes::makePtr<Vorn::Hardware::Status>();
  hardware->vornEnabledByDefaultIs(true);
  EventLoop loop;
  Notes notes;
  QdiscSource source(notes, config, hardware, {});
  descriptorsAre(1);
  std::string refused;
  try {
    source.start(loop);
  } catch (std::system_error const& error) {
    descriptorsAre(before.rlim_cur);
    refused = error.what();
  }
  EXPECT_EQ(refused, "cannot read this machine's queues: " + reason);

  openJournal(true);
  testing::internal::CaptureStderr();
  FileDescriptor const phases(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  itimerspec const everyPhase = {{0, 50'000'000}, {0, 50'000'000}};
  timerfd_settime(phases.get(), 0, &everyPhase, nullptr);
  int const none = open("/dev/null", O_RDONLY | O_CLOEXEC);
  int const next = dup(none);
  close(next);
  source.start(loop);
  int phase = 0;
  std::string whileFailing;
  loop.add(phases.get(), EPOLLIN, [&](std::uint32_t) {
    std::uint64_t expirations;
    ASSERT_EQ(read(phases.get(), &expirations, sizeof expirations), ssize_t{sizeof expirations});
    if (++phase == 1) {
      dup2(none, next);
      descriptorsAre(1);
    } else if (phase == 2) {
      whileFailing = source.status();
      descriptorsAre(before.rlim_cur);
    } else {
      loop.stop();
    }
  });
  loop.run();
  loop.remove(phases.get());
  close(none);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "vorn-agent: cannot read this machine's queues: Socket operation on non-socket\n"
            "vorn-agent: this machine's queues can be read again\n");
  EXPECT_EQ(whileFailing.find("cannot read this machine's queues (Too many open files)\nlooking"), 0U)
      << whileFailing;
  EXPECT_NE(source.status().find(" failed (last: Too many open files)"), std::string::npos);
}

}  // namespace
