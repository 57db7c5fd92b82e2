// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "agent/base/FileDescriptor.h"

namespace Agent {

// A socket that listens at "127.0.0.1:9753", "[::1]:9753", "localhost:9753", or, without an address in front
// of the colon, at all addresses. Throws std::runtime_error with the reason.
FileDescriptor listenAt(std::string const& address);

}  // namespace Agent
