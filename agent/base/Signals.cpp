// SPDX-License-Identifier: Apache-2.0
#include "agent/base/Signals.h"

#include <sys/epoll.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <csignal>
#include <utility>

namespace Agent {

namespace {

constexpr int watched[] = {SIGTERM, SIGINT, SIGQUIT, SIGHUP};

// Faults of the process itself; those that end no process by default.
constexpr int untouched[] = {SIGILL,  SIGTRAP, SIGABRT, SIGBUS,   SIGFPE,  SIGSEGV, SIGSYS,
                             SIGCONT, SIGURG,  SIGTSTP, SIGWINCH, SIGTTIN, SIGTTOU};

bool contains(auto const& signals, int signal) {
  return std::find(std::begin(signals), std::end(signals), signal) != std::end(signals);
}

}  // namespace

Signals::Signals(EventLoop& loop, std::function<void()> handleHangUp)
    : loop_(loop), handleHangUp_(std::move(handleHangUp)) {
  sigset_t mask;
  ::sigemptyset(&mask);
  // SIGKILL, SIGSTOP and what the C library keeps for itself refuse.
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (contains(watched, signal)) {
      ::sigaddset(&mask, signal);
    } else if (!contains(untouched, signal)) {
      // A parent's SIG_IGN would be inherited, and children's ends with it be lost.
      ::signal(signal, signal == SIGCHLD ? SIG_DFL : SIG_IGN);
    }
  }
  if (::sigprocmask(SIG_SETMASK, &mask, nullptr) != 0) throwErrno("sigprocmask");
  fd_ = FileDescriptor(::signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!fd_) throwErrno("signalfd");
  loop_.add(fd_.get(), EPOLLIN, [this](std::uint32_t) { handleSignal(); });
}

Signals::~Signals() { loop_.remove(fd_.get()); }

void Signals::handleSignal() {
  signalfd_siginfo signal{};
  if (::read(fd_.get(), &signal, sizeof signal) != sizeof signal) return;
  if (signal.ssi_signo != SIGHUP) return loop_.stop();
  handleHangUp_();
}

void leaveTheAgentsSignals() {
  for (int signal = 1; signal <= SIGRTMAX; ++signal) ::signal(signal, SIG_DFL);
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace Agent
