// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/ChangeWatch.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace Agent {

namespace {

// A link's message is about 1.5 KiB, and more for cards with many functions.
constexpr std::size_t receiveBytes = 64 * 1024;

constexpr int maxMessages = 256;

}  // namespace

void readChanges(std::span<std::byte const> messages, KernelChanges& changes) {
  while (auto const message = takeMessage(messages)) {
    if (auto const link = readLink(*message))
      changes.links.push_back(*link);
    else if (auto const traffic = readTraffic(*message))
      changes.traffic.push_back(*traffic);
  }
  if (!messages.empty()) changes.lost = true;
}

ChangeWatch::ChangeWatch()
    : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)),
      buffer_(receiveBytes) {
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK | 1U << (RTNLGRP_TC - 1);
  sockaddr generic{};
  static_assert(sizeof address <= sizeof generic);
  std::memcpy(&generic, &address, sizeof address);
  if (!socket_ || bind(socket_.get(), &generic, sizeof address) != 0)
    throwErrno("cannot watch the network interfaces");
}

bool ChangeWatch::take(KernelChanges& changes) {
  for (int taken = 0; taken < maxMessages; ++taken) {
    ssize_t const length = recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_TRUNC);
    if (length < 0 && errno == EINTR) continue;
    // Anything but an empty queue means that messages were lost; reading has cleared the error.
    if (length < 0 && errno == EAGAIN) return taken != 0;
    if (length < 0 || static_cast<std::size_t>(length) > buffer_.size())
      changes.lost = true;
    else
      readChanges(std::span(buffer_).first(static_cast<std::size_t>(length)), changes);
  }
  return true;
}

}  // namespace Agent
