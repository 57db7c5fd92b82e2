// Which of the disciplines that the kernel shows are queues.

#include <gtest/gtest.h>
#include <linux/pkt_sched.h>

#include <cstring>
#include <vector>

#include "agent/kernel/LeafQueues.h"

namespace {

using namespace Agent;
using Kes::U32;

QdiscSample qdisc(char const* kind, U32 parent, U32 handle, U32 ifindex = 1) {
  QdiscSample sample;
  sample.id = {ifindex, parent, handle, {}};
  std::strcpy(sample.id.kind.data(), kind);
  return sample;
}

TEST(LeafQueues, TreesOfEveryShape) {
  using Samples = std::vector<QdiscSample>;
  using Positions = std::vector<std::size_t>;
  EXPECT_EQ(leafQueues(Samples{qdisc("noqueue", TC_H_ROOT, 0), qdisc("tbf", TC_H_ROOT, 0x80010000, 2),
                               qdisc("bfifo", 0x80010001, 0, 2)}),
            Positions{1});
  // htb with a default leaf, a named one and a shaper as leaf.
  EXPECT_EQ(leafQueues(Samples{qdisc("htb", TC_H_ROOT, 0x10000), qdisc("pfifo", 0x10010, 0),
                               qdisc("fq_codel", 0x10020, 0x200000), qdisc("tbf", 0x10030, 0x300000),
                               qdisc("bfifo", 0x300001, 0), qdisc("clsact", TC_H_CLSACT, 0xFFFF0000)}),
            (Positions{1, 2, 3}));
  // A shaper around classes is no queue. Neither is the default mq, whose handle is that of its leaves.
  EXPECT_EQ(leafQueues(Samples{qdisc("tbf", TC_H_ROOT, 0x10000), qdisc("prio", 0x10001, 0x20000),
                               qdisc("pfifo", 0x20001, 0), qdisc("pfifo", 0x20002, 0),
                               qdisc("mq", TC_H_ROOT, 0, 7), qdisc("pfifo_fast", 2, 0, 7),
                               qdisc("pfifo_fast", 1, 0, 7), qdisc("pfifo_fast", 1, 0, 7)}),
            (Positions{2, 3, 5, 6}));
}

}  // namespace
