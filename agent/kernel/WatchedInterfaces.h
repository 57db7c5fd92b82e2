// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/kernel/InterfaceTable.h"

namespace Agent {

// The interfaces that have queues, and which of them are asked for. Each is looked up once and remembered
// until the kernel tells that it is another now.
class WatchedInterfaces {
 public:
  using Lookup = std::function<std::optional<Interface>(Kes::U32 ifindex)>;

  // `patterns` are shell patterns of names; none: all are asked for.
  WatchedInterfaces(std::vector<std::string> patterns, Lookup lookup);

  // Asks for others: those of `patterns`, but for those of `excluded`, which are shell patterns as well.
  void patternsAre(std::vector<std::string> patterns, std::vector<std::string> excluded);

  // Null when it is not there or not asked for. Good until the next call of another function.
  Interface const* watched(Kes::U32 ifindex);

  // Whether it is remembered as one that is asked for.
  bool isWatched(Kes::U32 ifindex) const;

  // Whether one that is remembered has got another name or MTU or is gone; it is remembered no more then.
  // What else changes of a link (up, down, addresses, statistics) is none of our business.
  bool handleNotice(LinkNotice const& notice);

  // In bytes, of all that are remembered; 0 for none.
  Kes::U32 smallestFrame() const;

  void forgetAll() { known_.clear(); }

 private:
  struct Known {
    Interface interface;
    bool watched;
  };

  bool isAskedFor(Interface const& interface) const;

  std::vector<std::string> patterns_;
  std::vector<std::string> excluded_;
  Lookup const lookup_;
  std::unordered_map<Kes::U32, Known> known_;
};

}  // namespace Agent
