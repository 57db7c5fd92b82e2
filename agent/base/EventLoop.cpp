// SPDX-License-Identifier: Apache-2.0
#include "agent/base/EventLoop.h"

#include <sys/epoll.h>

#include <array>
#include <exception>

#include "agent/base/Failures.h"

namespace Agent {

namespace {

// An event carries the generation of its watch beside the descriptor, which tells an event for a removed
// watch from one for a new file under the same number.
std::uint64_t tagOf(int fd, std::uint32_t generation) {
  return (std::uint64_t{generation} << 32) | static_cast<std::uint32_t>(fd);
}

}  // namespace

EventLoop::EventLoop() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) throwErrno("epoll_create1");
}

int EventLoop::control(int operation, int fd, std::uint32_t events, std::uint32_t generation) noexcept {
  epoll_event event{};
  event.events = events;
  event.data.u64 = tagOf(fd, generation);
  return ::epoll_ctl(epoll_.get(), operation, fd, &event);
}

void EventLoop::add(int fd, std::uint32_t events, Handler handler) {
  Watch watch{++generations_, std::make_shared<Handler const>(std::move(handler))};
  auto const added = watches_.insert_or_assign(fd, std::move(watch)).first;
  if (control(EPOLL_CTL_ADD, fd, events, generations_) == 0) return;
  int const reason = errno;
  watches_.erase(added);
  errno = reason;
  throwErrno("epoll_ctl");
}

void EventLoop::modify(int fd, std::uint32_t events) {
  if (control(EPOLL_CTL_MOD, fd, events, watches_.at(fd).generation) != 0) throwErrno("epoll_ctl");
}

void EventLoop::remove(int fd) noexcept {
  if (watches_.erase(fd) != 0) control(EPOLL_CTL_DEL, fd, 0, 0);
}

void EventLoop::dispatch(std::uint64_t tag, std::uint32_t events) {
  int const fd = static_cast<int>(tag & 0xffffffffU);
  auto const found = watches_.find(fd);
  if (found == watches_.end() || tagOf(fd, found->second.generation) != tag) return;
  std::shared_ptr<Handler const> const handler = found->second.handler;  // outlives its own removal
  try {
    (*handler)(events);
  } catch (std::exception const& error) {
    countFailure(error);
  }
}

void EventLoop::run() {
  std::array<epoll_event, 32> events;
  while (!stopped_) {
    int const ready = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), -1);
    if (ready < 0 && errno != EINTR) throwErrno("epoll_wait");
    for (int i = 0; i < ready && !stopped_; ++i) {
      epoll_event const& event = events[static_cast<std::size_t>(i)];
      dispatch(event.data.u64, event.events);
    }
  }
  stopped_ = false;
}

void EventLoop::serveOne() {
  epoll_event event{};
  int const ready = ::epoll_wait(epoll_.get(), &event, 1, 0);
  if (ready < 0 && errno != EINTR) throwErrno("epoll_wait");
  if (ready == 1) dispatch(event.data.u64, event.events);
}

}  // namespace Agent
