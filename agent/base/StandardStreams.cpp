// SPDX-License-Identifier: Apache-2.0
#include "agent/base/StandardStreams.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "agent/base/FileDescriptor.h"

namespace Agent {

void openClosedStandardStreams() {
  for (int const fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // The lowest number that is free is this one.
    if (::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) throwErrno("/dev/null");
  }
}

// O_NONBLOCK belongs to an open file that others may share, so it is opened anew. An ordinary file has no
// need of it, a socket is written to without waiting anyway, and where it cannot be opened poll(2) has to do.
void standardErrorNeverWaits() {
  struct stat file {};
  if (::fstat(STDERR_FILENO, &file) != 0 || (!S_ISFIFO(file.st_mode) && !S_ISCHR(file.st_mode))) return;
  FileDescriptor const own(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (own) ::dup2(own.get(), STDERR_FILENO);
}

bool writeToStandardError(std::string line) {
  line.resize(std::min<std::size_t>(line.size(), PIPE_BUF - 1));
  if (!line.ends_with('\n')) line += '\n';
  ssize_t written = ::send(STDERR_FILENO, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (written < 0 && errno == ENOTSOCK) {
    pollfd ready{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&ready, 1, 0) != 1 || (ready.revents & POLLOUT) == 0) return false;
    written = ::write(STDERR_FILENO, line.data(), line.size());
  }
  return written > 0;
}

}  // namespace Agent
