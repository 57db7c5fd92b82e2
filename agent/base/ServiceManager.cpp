// SPDX-License-Identifier: Apache-2.0
#include "agent/base/ServiceManager.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <syslog.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "agent/base/Journal.h"
#include "agent/base/UnixSocket.h"

namespace Agent {

namespace {

constexpr std::chrono::milliseconds retryPause{100};

// What the variable holds, which is in the environment no more.
std::string taken(char const* variable) {
  char const* const value = std::getenv(variable);
  std::string const text = value == nullptr ? "" : value;
  ::unsetenv(variable);
  return text;
}

}  // namespace

ServiceManager::ServiceManager(EventLoop& loop) : loop_(loop) {
  std::string const path = taken("NOTIFY_SOCKET");
  std::uint64_t const limit = std::strtoull(taken("WATCHDOG_USEC").c_str(), nullptr, 10);
  std::string const watched = taken("WATCHDOG_PID");
  if (path.empty()) return;
  if (path.front() != '/' && path.front() != '@') {
    note(LOG_WARNING, "the service manager is told nothing: $NOTIFY_SOCKET is no path: " + path);
    return;
  }
  address_ = socketAddress(path);
  addressBytes_ = sizeof address_;
  if (path.front() == '@') {  // a name in no file system; all of its bytes count
    address_.sun_path[0] = '\0';
    addressBytes_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  }
  if (watched.empty() || watched == std::to_string(::getpid()))
    betweenSigns_ = std::chrono::microseconds(limit / 2);
  timer_ = FileDescriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!timer_) throwErrno("timerfd_create");
  loop_.add(timer_.get(), EPOLLIN, [this](std::uint32_t) { handleTimer(); });
  socket_ = FileDescriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket_) throwErrno("socket");
}

ServiceManager::~ServiceManager() {
  if (timer_) loop_.remove(timer_.get());
}

void ServiceManager::tellReady(std::string const& status) { tell("READY=1\nSTATUS=" + status); }

void ServiceManager::tellReloading() {
  auto const now = std::chrono::steady_clock::now().time_since_epoch();
  tell("RELOADING=1\nMONOTONIC_USEC=" +
       std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
}

void ServiceManager::tellStopping() { tell("STOPPING=1\nSTATUS=ending"); }

void ServiceManager::tell(std::string state) {
  if (!socket_) return;
  unsent_ = std::move(state);
  if (send(unsent_)) unsent_.clear();
  startTimer();
}

bool ServiceManager::send(std::string const& state) const {
  return ::sendto(socket_.get(), state.data(), state.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<sockaddr const*>(&address_), addressBytes_) >= 0;
}

void ServiceManager::handleTimer() {
  std::uint64_t expirations = 0;
  if (::read(timer_.get(), &expirations, sizeof expirations) < 0) return;
  if (unsent_.empty())
    send("WATCHDOG=1");
  else if (send(unsent_))
    unsent_.clear();
  startTimer();
}

// A pause of 0 stops it.
void ServiceManager::startTimer() {
  std::chrono::microseconds const pause = unsent_.empty() ? betweenSigns_ : retryPause;
  itimerspec setting{};
  setting.it_value.tv_sec = static_cast<time_t>(pause.count() / 1'000'000);
  setting.it_value.tv_nsec = static_cast<long>(pause.count() % 1'000'000 * 1000);
  if (::timerfd_settime(timer_.get(), 0, &setting, nullptr) != 0) throwErrno("timerfd_settime");
}

}  // namespace Agent
