// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/NetlinkMessage.h"

#include <linux/gen_stats.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Agent {

namespace {

using Bytes = std::span<std::byte const>;

constexpr std::size_t aligned(std::size_t length) { return (length + 3) & ~std::size_t{3}; }

// The leading sizeof(T) bytes as a T; zeros where the message is shorter, as an older kernel's may be.
template <class T>
T leading(Bytes bytes) {
  T value{};
  std::memcpy(&value, bytes.data(), std::min(sizeof value, bytes.size()));
  return value;
}

// Calls visit(type, payload) for each attribute up to the first malformed one.
template <class Visit>
void forEachAttribute(Bytes bytes, Visit visit) {
  while (bytes.size() >= sizeof(rtattr)) {
    auto const header = leading<rtattr>(bytes);
    if (header.rta_len < sizeof(rtattr) || header.rta_len > bytes.size()) return;
    visit(header.rta_type & NLA_TYPE_MASK, bytes.first(header.rta_len).subspan(sizeof(rtattr)));
    bytes = bytes.subspan(std::min(aligned(header.rta_len), bytes.size()));
  }
}

// The last character stays NUL.
void readText(Bytes payload, std::array<char, 16>& text) {
  std::memcpy(text.data(), payload.data(), std::min(payload.size(), text.size() - 1));
}

// Queues that count per processor can sum up to slightly less than nothing while packets are under way.
Kes::U32 settledBacklog(Kes::U32 backlog) {
  constexpr Kes::U32 slightlyNegative = 0xFF000000;
  return backlog >= slightlyNegative ? 0 : backlog;
}

void readStatistics(Bytes statistics, QdiscSample& sample) {
  forEachAttribute(statistics, [&sample](int type, Bytes payload) {
    if (type == TCA_STATS_BASIC) {
      sample.bytes = leading<gnet_stats_basic>(payload).bytes;
    } else if (type == TCA_STATS_QUEUE) {
      auto const queue = leading<gnet_stats_queue>(payload);
      sample.backlog = settledBacklog(queue.backlog);
      sample.drops = queue.drops;
    }
  });
}

}  // namespace

std::optional<NetlinkMessage> takeMessage(Bytes& bytes) {
  if (bytes.size() < sizeof(nlmsghdr)) return std::nullopt;
  auto const header = leading<nlmsghdr>(bytes);
  if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > bytes.size()) return std::nullopt;
  Bytes const body = bytes.first(header.nlmsg_len).subspan(sizeof(nlmsghdr));
  bytes = bytes.subspan(std::min(aligned(header.nlmsg_len), bytes.size()));
  return NetlinkMessage{header.nlmsg_type, header.nlmsg_flags, header.nlmsg_seq, body};
}

std::optional<QdiscSample> readQdisc(NetlinkMessage const& message) {
  if (message.type != RTM_NEWQDISC || message.body.size() < sizeof(tcmsg)) return std::nullopt;
  auto const header = leading<tcmsg>(message.body);
  QdiscSample sample;
  sample.id.ifindex = static_cast<Kes::U32>(header.tcm_ifindex);
  sample.id.parent = header.tcm_parent;
  sample.id.handle = header.tcm_handle;
  forEachAttribute(message.body.subspan(sizeof(tcmsg)), [&sample](int type, Bytes payload) {
    if (type == TCA_KIND)
      readText(payload, sample.id.kind);
    else if (type == TCA_STATS2)
      readStatistics(payload, sample);
  });
  return sample;
}

std::optional<LinkNotice> readLink(NetlinkMessage const& message) {
  if (message.type != RTM_NEWLINK && message.type != RTM_DELLINK) return std::nullopt;
  if (message.body.size() < sizeof(ifinfomsg)) return std::nullopt;
  auto const header = leading<ifinfomsg>(message.body);
  // Bridges tell of their ports in messages of the same type: one that leaves its bridge is not gone.
  if (header.ifi_family != AF_UNSPEC) return std::nullopt;
  LinkNotice notice;
  notice.ifindex = static_cast<Kes::U32>(header.ifi_index);
  notice.gone = message.type == RTM_DELLINK;
  notice.type = header.ifi_type;
  forEachAttribute(message.body.subspan(sizeof(ifinfomsg)), [&notice](int type, Bytes payload) {
    if (type == IFLA_IFNAME)
      readText(payload, notice.name);
    else if (type == IFLA_MTU)
      notice.mtu = leading<Kes::U32>(payload);
  });
  return notice;
}

std::optional<TrafficNotice> readTraffic(NetlinkMessage const& message) {
  bool const isClass = message.type == RTM_NEWTCLASS || message.type == RTM_DELTCLASS;
  bool const isQdisc = message.type == RTM_NEWQDISC || message.type == RTM_DELQDISC;
  if ((!isClass && !isQdisc) || message.body.size() < sizeof(tcmsg)) return std::nullopt;
  auto const header = leading<tcmsg>(message.body);
  bool const gone = message.type == RTM_DELTCLASS || message.type == RTM_DELQDISC;
  return TrafficNotice{static_cast<Kes::U32>(header.tcm_ifindex), header.tcm_parent, header.tcm_handle,
                       isClass, gone};
}

std::optional<int> readEnd(NetlinkMessage const& message) {
  if (message.type != NLMSG_ERROR && message.type != NLMSG_DONE) return std::nullopt;
  int const error = leading<int>(message.body);
  if (error < 0) return -std::max(error, -4095);
  // An acknowledgement is no answer.
  return message.type == NLMSG_DONE ? 0 : EPROTO;
}

}  // namespace Agent
