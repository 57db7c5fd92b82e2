// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/QdiscDump.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <ctime>
#include <span>

namespace Agent {

namespace {

// The kernel fills at most 32 KiB a part, provided that the receiver has shown room for it.
constexpr std::size_t receiveBytes = 64 * 1024;

Kes::U64 monotonicTime() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<Kes::U64>(time.tv_sec) * 1'000'000 + static_cast<Kes::U64>(time.tv_nsec) / 1000;
}

}  // namespace

QdiscDump::QdiscDump() : buffer_(receiveBytes) {}

QdiscDump::Outcome QdiscDump::poll(std::vector<QdiscSample>& samples) {
  samples.clear();
  DumpParser parser(++sequence_);
  State state = request();
  while (state == State::more) state = receive(parser, samples);
  if (state == State::failed) {
    socket_.reset();
    return Outcome::failed;
  }
  return parser.interrupted() ? Outcome::interrupted : Outcome::whole;
}

QdiscDump::State QdiscDump::request() {
  if (!socket_)
    socket_ = FileDescriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
  if (!socket_) return fail(errno);
  struct {
    nlmsghdr header;
    tcmsg body;
    rtattr invisible;
  } message{};
  static_assert(sizeof message == NLMSG_LENGTH(sizeof(tcmsg)) + RTA_LENGTH(0));
  message.header.nlmsg_len = sizeof message;
  message.header.nlmsg_type = RTM_GETQDISC;
  message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  message.header.nlmsg_seq = sequence_;
  message.body.tcm_family = AF_UNSPEC;
  message.invisible.rta_len = RTA_LENGTH(0);
  message.invisible.rta_type = TCA_DUMP_INVISIBLE;
  if (send(socket_.get(), &message, sizeof message, 0) < 0) return fail(errno);
  snapshotStamp_ = monotonicTime();
  return State::more;
}

QdiscDump::State QdiscDump::receive(DumpParser& parser, std::vector<QdiscSample>& samples) {
  // The request filled the first part; each receive hands out one part and fills the next. Filling is the
  // last that the system call does, behind any wait for the configuration lock.
  Kes::U64 const stamp = snapshotStamp_;
  ssize_t const length = recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_TRUNC);
  if (length < 0) return fail(errno);
  snapshotStamp_ = monotonicTime();
  auto const received = static_cast<std::size_t>(length);
  if (received == 0 || received > buffer_.size()) return fail(EMSGSIZE);
  auto const state = parser.handlePart(std::span(buffer_).first(received), stamp, samples);
  return state == State::failed ? fail(parser.error()) : state;
}

QdiscDump::State QdiscDump::fail(int error) {
  error_ = error;
  return State::failed;
}

}  // namespace Agent
