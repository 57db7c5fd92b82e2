// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>
#include <sys/un.h>

#include <string>

#include "agent/base/FileDescriptor.h"

namespace Agent {

// A path as a socket's name. Throws std::system_error for one that is empty or too long.
sockaddr_un socketAddress(std::string const& path);

// A listening Unix stream socket and its name in the file system, which it removes when it is destroyed.
//
// Construction claims the name: a socket file that nobody answers on any more is replaced; where another
// agent answers, or where a file of another kind stands, std::runtime_error says so and nothing is touched.
// Of several that claim it at the same moment one gets it: a file beside the socket, NAME.lock, is locked for
// as long as this lives. The file stays behind, since removing it could take it from a successor.
// Its directory is made if only the last part is missing.
//
// Everybody on the machine may connect (mode 0666): reports are for every operator, who may change something
// is judged by who asks, and a restricted agent is had by putting the socket into a directory with fewer
// rights.
class ServerSocket {
 public:
  explicit ServerSocket(std::string path);
  ~ServerSocket();
  ServerSocket(ServerSocket const&) = delete;
  ServerSocket& operator=(ServerSocket const&) = delete;

  int fd() const { return fd_.get(); }
  std::string const& path() const { return path_; }

 private:
  std::string path_;
  FileDescriptor lock_;
  FileDescriptor fd_;
  dev_t device_ = 0;  // with inode_: the file we made, so that a successor's is never removed
  ino_t inode_ = 0;
};

// A blocking stream socket connected to `path`. Throws std::system_error, also for a path that is empty or
// too long for a socket's name. `patienceSeconds` bounds the connecting and each later send and receive (0:
// for ever).
FileDescriptor connectTo(std::string const& path, int patienceSeconds);

}  // namespace Agent
