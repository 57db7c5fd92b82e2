#include "agent/base/UnixSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace Agent {

namespace {

constexpr int backlog = 128;

sockaddr_un addressOf(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    throw std::system_error(path.empty() ? EINVAL : ENAMETOOLONG, std::generic_category(),
                            "socket path \"" + path + "\"");
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

sockaddr const* generic(sockaddr_un const& address) { return reinterpret_cast<sockaddr const*>(&address); }

// Whether anybody listens there. A full backlog (EAGAIN) is an agent too, if a slow one.
bool answers(std::string const& path) {
  sockaddr_un const address = addressOf(path);
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

ServerSocket::ServerSocket(std::string path) : path_(std::move(path)) {
  sockaddr_un const address = addressOf(path_);
  makeDirectoryOf(path_);
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
  sockaddr_un const address = addressOf(path);
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) throwErrno("socket");
  timeval const patience{patienceSeconds, 0};
  ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (::connect(fd.get(), generic(address), sizeof address) != 0) throwErrno(path);
  return fd;
}

}  // namespace Agent
