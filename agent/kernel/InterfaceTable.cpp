// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/InterfaceTable.h"

#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>

namespace Agent {

Interface interfaceOf(LinkNotice const& notice) {
  constexpr Kes::U32 ethernetHeaderBytes = 14;
  bool const ethernet = notice.type == ARPHRD_ETHER || notice.type == ARPHRD_LOOPBACK;
  return {Pylo::IntfId{Kes::String(std::string_view(notice.name.data()))},
          notice.mtu + (ethernet ? ethernetHeaderBytes : 0)};
}

InterfaceTable::InterfaceTable() : query_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  if (!query_) throwErrno("cannot ask for the network interfaces");
}

std::optional<Interface> InterfaceTable::interface(Kes::U32 ifindex) const {
  ifreq request{};
  request.ifr_ifindex = static_cast<int>(ifindex);
  // The name stays in the request for the two questions behind it.
  if (ioctl(query_.get(), SIOCGIFNAME, &request) != 0) return std::nullopt;
  LinkNotice notice{};
  static_assert(sizeof request.ifr_name == sizeof notice.name);
  std::copy_n(request.ifr_name, notice.name.size() - 1, notice.name.begin());
  if (ioctl(query_.get(), SIOCGIFMTU, &request) != 0) return std::nullopt;
  notice.mtu = static_cast<Kes::U32>(request.ifr_mtu);
  if (ioctl(query_.get(), SIOCGIFHWADDR, &request) != 0) return std::nullopt;
  notice.type = request.ifr_hwaddr.sa_family;
  return interfaceOf(notice);
}

}  // namespace Agent
