// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <string>

#include "agent/base/EventLoop.h"
#include "agent/base/FileDescriptor.h"

namespace Agent {

// Tells the service manager that started this process, if one did, what the process is doing: by datagrams to
// the socket that $NOTIFY_SOCKET names, as sd_notify(3) describes them. As long as the loop goes round it
// also gets a sign of life, at half the time that $WATCHDOG_USEC allows.
//
// Never waits. A state that could not be delivered is offered again until it, or one that follows it, is
// taken.
class ServiceManager {
 public:
  // Takes the variables out of the environment: what they say is for this process and for no child of it.
  // `loop` outlives this.
  explicit ServiceManager(EventLoop& loop);
  ~ServiceManager();
  ServiceManager(ServiceManager const&) = delete;
  ServiceManager& operator=(ServiceManager const&) = delete;

  // It does what it is there for, from now on or again; `status` is a line for people.
  void tellReady(std::string const& status);
  // It takes a new configuration, until it is ready again.
  void tellReloading();
  void tellStopping();

 private:
  void tell(std::string state);
  bool send(std::string const& state) const;
  void handleTimer();
  void startTimer();

  EventLoop& loop_;
  FileDescriptor socket_;  // none: there is nobody to be told
  sockaddr_un address_{};
  socklen_t addressBytes_ = 0;
  std::chrono::microseconds betweenSigns_{0};  // 0: no sign of life is asked for
  FileDescriptor timer_;
  std::string unsent_;  // the latest state, until it is delivered
};

}  // namespace Agent
