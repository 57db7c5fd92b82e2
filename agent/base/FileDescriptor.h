// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace Agent {

// The one owner of an open descriptor: closes it on destruction. Movable, so that ownership can be handed on;
// -1 stands for none.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  ~FileDescriptor() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

// Throws std::system_error for the present errno; its text is "WHAT: reason".
[[noreturn]] inline void throwErrno(std::string const& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace Agent
