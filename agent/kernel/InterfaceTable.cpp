#include "agent/kernel/InterfaceTable.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace Agent {

namespace {

constexpr Kes::U32 ethernetHeaderBytes = 14;

}  // namespace

InterfaceTable::InterfaceTable()
    : query_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      changes_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK;
  sockaddr generic{};
  static_assert(sizeof address <= sizeof generic);
  std::memcpy(&generic, &address, sizeof address);
  if (!query_ || !changes_ || bind(changes_.get(), &generic, sizeof address) != 0)
    throwErrno("cannot watch the network interfaces");
}

std::optional<Interface> InterfaceTable::interface(Kes::U32 ifindex) const {
  ifreq request{};
  request.ifr_ifindex = static_cast<int>(ifindex);
  // The name stays in the request for the two questions behind it.
  if (ioctl(query_.get(), SIOCGIFNAME, &request) != 0) return std::nullopt;
  std::string_view const name = request.ifr_name;
  Pylo::IntfId const intfId{Kes::String(name)};
  if (ioctl(query_.get(), SIOCGIFMTU, &request) != 0) return std::nullopt;
  auto const mtu = static_cast<Kes::U32>(request.ifr_mtu);
  if (ioctl(query_.get(), SIOCGIFHWADDR, &request) != 0) return std::nullopt;
  int const type = request.ifr_hwaddr.sa_family;
  bool const ethernet = type == ARPHRD_ETHER || type == ARPHRD_LOOPBACK;
  return Interface{intfId, mtu + (ethernet ? ethernetHeaderBytes : 0)};
}

void InterfaceTable::changesTaken() {
  // What changed is asked for afresh, so lost messages (ENOBUFS) lose nothing.
  std::array<char, 4096> discarded;
  while (recv(changes_.get(), discarded.data(), discarded.size(), 0) >= 0 || errno == ENOBUFS ||
         errno == EINTR) {
  }
}

}  // namespace Agent
