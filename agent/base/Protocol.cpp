// SPDX-License-Identifier: Apache-2.0
#include "agent/base/Protocol.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace Agent::Protocol {

std::string_view requestIn(std::string_view line) {
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string userSocketPath() {
  char const* const directory = std::getenv("XDG_RUNTIME_DIR");
  return directory == nullptr || *directory == '\0' ? std::string() : std::string(directory) + "/vorn.sock";
}

std::string defaultSocketPath() { return ::geteuid() == 0 ? systemSocketPath : userSocketPath(); }

}  // namespace Agent::Protocol
