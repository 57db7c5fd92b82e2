// SPDX-License-Identifier: Apache-2.0
#include "agent/export/ListenAddress.h"

#include <netdb.h>
#include <sys/socket.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace Agent {

FileDescriptor listenAt(std::string const& address) {
  auto const refuse = [&address](std::string const& reason) {
    return std::runtime_error("cannot listen at " + address + ": " + reason);
  };
  std::size_t const colon = address.rfind(':');
  if (colon == std::string::npos || colon + 1 == address.size()) throw refuse("it names no port");
  std::string host = address.substr(0, colon);
  bool const bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (!bracketed && host.find(':') != std::string::npos)
    throw refuse("an IPv6 address stands in brackets: [::1]:9753");
  std::string_view const port = std::string_view(address).substr(colon + 1);
  std::uint16_t number = 0;
  auto const [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
  if (error != std::errc() || end != port.data() + port.size() || number == 0)
    throw refuse("a port is a number from 1 to 65535");
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* first = nullptr;
  int const fault =
      ::getaddrinfo(host.empty() ? nullptr : host.c_str(), address.c_str() + colon + 1, &hints, &first);
  if (fault != 0) throw refuse(fault == EAI_SYSTEM ? std::strerror(errno) : ::gai_strerror(fault));
  std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> const found(first, &::freeaddrinfo);
  int reason = 0;
  for (addrinfo const* one = first; one != nullptr; one = one->ai_next) {
    FileDescriptor socket(::socket(one->ai_family, one->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    int const yes = 1;
    if (socket && ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
        ::bind(socket.get(), one->ai_addr, one->ai_addrlen) == 0 && ::listen(socket.get(), SOMAXCONN) == 0)
      return socket;
    reason = errno;
  }
  throw refuse(std::strerror(reason));
}

}  // namespace Agent
