// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <unordered_map>

#include "Kes/Types.h"

namespace Agent {

// The control groups of this machine by the kernel's numbers for them: "/system.slice/nginx.service".
class ControlGroups {
 public:
  // Its path below the root of the hierarchy; empty for number 0, for the root itself, whose processes are of
  // no group in particular, and for one that is not there. Groups that are new are looked for in the whole
  // hierarchy, as often as takes a twentieth of the time at most.
  std::string const& path(Kes::U64 number);

 private:
  void readAll();

  std::unordered_map<Kes::U64, std::string> paths_;
  Kes::U64 readAgain_ = 0;  // not before this: microseconds, monotonic
};

}  // namespace Agent
