// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

#include "agent/base/FileDescriptor.h"

namespace Agent {

// The agent's one thread: waits on descriptors with epoll and calls the handler of each that is ready.
//
// Level-triggered; `events` are epoll's (EPOLLIN, EPOLLOUT, ...), and EPOLLHUP and EPOLLERR arrive unasked.
// The watched descriptors stay their owner's, who must remove() each before closing it. From inside a handler
// everything is allowed: a handler that removes its own descriptor, or that of another which is ready in the
// same round, is not disturbed in its own work, and the removed one is not called any more, not even if the
// number of its descriptor has been given to a new file meanwhile.
//
// What a handler throws costs its event and no more: it is counted and noted (Failures.h), and the loop goes
// on. Failures of the loop's own system calls are thrown as std::system_error.
//
// A loop can be watched by another through fd(): whatever many descriptors it holds, all of them together
// then get one call a round beside the other's own.
class EventLoop {
 public:
  using Handler = std::function<void(std::uint32_t events)>;

  EventLoop();

  // `fd` must not be watched yet; it is not if this throws.
  void add(int fd, std::uint32_t events, Handler handler);
  // Changes what a watched descriptor is watched for; with 0 only EPOLLHUP and EPOLLERR remain.
  void modify(int fd, std::uint32_t events);
  // A descriptor that is not watched is left alone.
  void remove(int fd) noexcept;

  // Serves until stop() is called, from a handler or beforehand.
  void run();
  void stop() { stopped_ = true; }

  // Readable while a watched descriptor is ready.
  int fd() const { return epoll_.get(); }
  // Calls the handler of one descriptor that is ready; all that are get their turns. Does not wait.
  void serveOne();

 private:
  struct Watch {
    std::uint32_t generation;
    std::shared_ptr<Handler const> handler;
  };

  int control(int operation, int fd, std::uint32_t events, std::uint32_t generation) noexcept;
  void dispatch(std::uint64_t tag, std::uint32_t events);

  FileDescriptor epoll_;
  std::unordered_map<int, Watch> watches_;
  std::uint32_t generations_ = 0;
  bool stopped_ = false;
};

}  // namespace Agent
