// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/DumpParser.h"

#include <linux/netlink.h>
#include <linux/pkt_sched.h>

#include <cerrno>
#include <string_view>

#include "agent/kernel/NetlinkMessage.h"

namespace Agent {

namespace {

bool queues(QdiscId const& id) {
  return id.parent != TC_H_INGRESS && id.parent != TC_H_UNSPEC &&
         std::string_view(id.kind.data()) != "noqueue";
}

}  // namespace

DumpParser::State DumpParser::handlePart(std::span<std::byte const> part, Kes::U64 stamp,
                                         std::vector<QdiscSample>& samples) {
  while (auto const message = takeMessage(part)) {
    if (message->sequence != sequence_) continue;
    if ((message->flags & NLM_F_DUMP_INTR) != 0) interrupted_ = true;
    if (auto const end = readEnd(*message)) {
      error_ = *end;
      return error_ == 0 ? State::whole : State::failed;
    }
    auto sample = readQdisc(*message);
    if (!sample || !queues(sample->id)) continue;
    sample->stamp = stamp;
    samples.push_back(*sample);
  }
  if (part.empty()) return State::more;
  error_ = EBADMSG;
  return State::failed;
}

}  // namespace Agent
