// SPDX-License-Identifier: Apache-2.0
#include "agent/base/UnixSocket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace Agent {

namespace {

// Clients that come all at once wait here; the system may allow fewer.
constexpr int backlog = 4096;

sockaddr const* generic(sockaddr_un const& address) { return reinterpret_cast<sockaddr const*>(&address); }

// Whether anybody listens there. A full backlog (EAGAIN) is an agent too, if a slow one.
bool answers(std::string const& path) {
  sockaddr_un const address = socketAddress(path);
  FileDescriptor const probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!probe) throwErrno("socket");
  if (::connect(probe.get(), generic(address), sizeof address) == 0 || errno == EAGAIN) return true;
  if (errno == ECONNREFUSED || errno == ENOENT) return false;
  throwErrno(path);
}

void clearTheWay(std::string const& path) {
  struct stat file {};
  if (::lstat(path.c_str(), &file) != 0) {
    if (errno == ENOENT) return;
    throwErrno(path);
  }
  if (!S_ISSOCK(file.st_mode)) throw std::runtime_error(path + ": is no socket, and is left alone");
  if (answers(path)) throw std::runtime_error(path + ": another agent answers there");
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) throwErrno(path);
}

FileDescriptor lockBeside(std::string const& path) {
  std::string const name = path + ".lock";
  FileDescriptor lock(::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock) throwErrno(name);
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) == 0) return lock;
  if (errno != EWOULDBLOCK) throwErrno(name);
  throw std::runtime_error(path + ": another agent runs or starts there, since it holds " + name);
}

void makeDirectoryOf(std::string const& path) {
  std::string const directory = std::filesystem::path(path).parent_path().string();
  if (directory.empty()) return;
  if (::mkdir(directory.c_str(), 0755) != 0) {
    if (errno != EEXIST) throwErrno(directory);
  } else if (::chmod(directory.c_str(), 0755) != 0) {  // whatever the process's file mode mask is
    throwErrno(directory);
  }
}

}  // namespace

sockaddr_un socketAddress(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    throw std::system_error(path.empty() ? EINVAL : ENAMETOOLONG, std::generic_category(),
                            "socket path \"" + path + "\"");
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

ServerSocket::ServerSocket(std::string path) : path_(std::move(path)) {
  sockaddr_un const address = socketAddress(path_);
  makeDirectoryOf(path_);
  lock_ = lockBeside(path_);
  clearTheWay(path_);
  fd_ = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd_) throwErrno("socket");
  if (::bind(fd_.get(), generic(address), sizeof address) != 0) throwErrno(path_);
  struct stat file {};
  if (::chmod(path_.c_str(), 0666) != 0 || ::stat(path_.c_str(), &file) != 0 ||
      ::listen(fd_.get(), backlog) != 0) {
    int const reason = errno;
    ::unlink(path_.c_str());
    errno = reason;
    throwErrno(path_);
  }
  device_ = file.st_dev;
  inode_ = file.st_ino;
}

ServerSocket::~ServerSocket() {
  struct stat file {};
  if (::lstat(path_.c_str(), &file) == 0 && file.st_dev == device_ && file.st_ino == inode_) {
    ::unlink(path_.c_str());
  }
}

FileDescriptor connectTo(std::string const& path, int patienceSeconds) {
  sockaddr_un const address = socketAddress(path);
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) throwErrno("socket");
  timeval const patience{patienceSeconds, 0};
  ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (::connect(fd.get(), generic(address), sizeof address) != 0) throwErrno(path);
  return fd;
}

}  // namespace Agent
