// SPDX-License-Identifier: Apache-2.0
#include "agent/base/Protocol.h"

#include <unistd.h>

#include <cstdlib>

namespace Agent::Protocol {

std::string userSocketPath() {
  char const* const directory = std::getenv("XDG_RUNTIME_DIR");
  return directory == nullptr || *directory == '\0' ? std::string() : std::string(directory) + "/vorn.sock";
}

std::string defaultSocketPath() { return ::geteuid() == 0 ? systemSocketPath : userSocketPath(); }

}  // namespace Agent::Protocol
