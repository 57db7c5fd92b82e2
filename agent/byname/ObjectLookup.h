// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <functional>
#include <string_view>

#include "Vorn/CongestionData.h"

namespace Agent {

// A request that only reads, by name:
//
//   types [--json]                               every registered type
//   type NAME [--json]                           its attributes
//   get [--json] [--depth=N | --all] [PATH]      a value, an object or a collection (ObjectPath.h)
//
// A path's names may be cut short where that leaves one; the answer then shows the whole names. An object or
// a collection is shown with what is directly in it, with N levels, or with all.
class ObjectLookup {
 public:
  static bool claims(std::string_view request);

  // Reads the request and finds what it asks for, which stays alive as long as this does. ObjectError.
  ObjectLookup(Vorn::CongestionData::Ptr const& recorder, std::string_view request);

  // Streams the answer; what it allocates is bounded by one collection a level. In a forked child the walk
  // also gets copies of the pages that it visits, since it counts the objects that it holds: a walk over all
  // of a recorder takes up to as much again. The stream tells by its error flag whether it succeeded.
  void write(std::FILE* out) const { write_(out); }

 private:
  std::function<void(std::FILE*)> write_;
};

}  // namespace Agent
