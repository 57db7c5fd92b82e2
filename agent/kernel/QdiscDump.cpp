#include "agent/kernel/QdiscDump.h"

#include <linux/gen_stats.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ctime>

namespace Agent {

namespace {

using Bytes = std::span<std::byte const>;

// The kernel fills at most 32 KiB a part, provided that the receiver has shown room for it.
constexpr std::size_t receiveBytes = 64 * 1024;

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

Kes::U64 monotonicTime() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<Kes::U64>(time.tv_sec) * 1'000'000 + static_cast<Kes::U64>(time.tv_nsec) / 1000;
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

QdiscSample readQdisc(Bytes message, Kes::U64 stamp) {
  auto const header = leading<tcmsg>(message);
  QdiscSample sample;
  sample.id.ifindex = static_cast<Kes::U32>(header.tcm_ifindex);
  sample.id.parent = header.tcm_parent;
  sample.id.handle = header.tcm_handle;
  sample.stamp = stamp;
  forEachAttribute(message.subspan(sizeof(tcmsg)), [&sample](int type, Bytes payload) {
    if (type == TCA_KIND)
      std::memcpy(sample.id.kind.data(), payload.data(), std::min(payload.size(), sample.id.kind.size() - 1));
    else if (type == TCA_STATS2)
      readStatistics(payload, sample);
  });
  return sample;
}

}  // namespace

QdiscDump::QdiscDump() : buffer_(receiveBytes) {}

QdiscDump::Outcome QdiscDump::poll(std::vector<QdiscSample>& samples) {
  samples.clear();
  interrupted_ = false;
  Part part = Part::more;
  if ((!socket_ && !open()) || !request()) part = Part::failed;
  while (part == Part::more) part = receive(samples);
  if (part == Part::failed) {
    socket_.reset();
    return Outcome::failed;
  }
  return interrupted_ ? Outcome::interrupted : Outcome::whole;
}

bool QdiscDump::open() {
  socket_ = FileDescriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
  return static_cast<bool>(socket_);
}

bool QdiscDump::request() {
  struct {
    nlmsghdr header;
    tcmsg body;
    rtattr invisible;
  } message{};
  static_assert(sizeof message == NLMSG_LENGTH(sizeof(tcmsg)) + RTA_LENGTH(0));
  message.header.nlmsg_len = sizeof message;
  message.header.nlmsg_type = RTM_GETQDISC;
  message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  message.header.nlmsg_seq = ++sequence_;
  message.body.tcm_family = AF_UNSPEC;
  message.invisible.rta_len = RTA_LENGTH(0);
  message.invisible.rta_type = TCA_DUMP_INVISIBLE;
  bool const sent = send(socket_.get(), &message, sizeof message, 0) == ssize_t{sizeof message};
  snapshotStamp_ = monotonicTime();
  return sent;
}

QdiscDump::Part QdiscDump::receive(std::vector<QdiscSample>& samples) {
  // The request filled the first part; each receive hands out one part and fills the next. Filling is the
  // last that the system call does, behind any wait for the configuration lock.
  Kes::U64 const stamp = snapshotStamp_;
  ssize_t const length = recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_TRUNC);
  snapshotStamp_ = monotonicTime();
  if (length <= 0 || static_cast<std::size_t>(length) > buffer_.size()) return Part::failed;
  return parse(Bytes(buffer_).first(static_cast<std::size_t>(length)), stamp, samples);
}

QdiscDump::Part QdiscDump::parse(Bytes messages, Kes::U64 stamp, std::vector<QdiscSample>& samples) {
  while (messages.size() >= sizeof(nlmsghdr)) {
    auto const header = leading<nlmsghdr>(messages);
    if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > messages.size()) return Part::failed;
    Bytes const body = messages.first(header.nlmsg_len).subspan(sizeof(nlmsghdr));
    messages = messages.subspan(std::min(aligned(header.nlmsg_len), messages.size()));
    if (header.nlmsg_seq != sequence_) continue;
    if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) interrupted_ = true;
    if (header.nlmsg_type == NLMSG_ERROR) return Part::failed;
    if (header.nlmsg_type == NLMSG_DONE) return leading<int>(body) < 0 ? Part::failed : Part::last;
    if (header.nlmsg_type == RTM_NEWQDISC && body.size() >= sizeof(tcmsg))
      samples.push_back(readQdisc(body, stamp));
  }
  return Part::more;
}

}  // namespace Agent
