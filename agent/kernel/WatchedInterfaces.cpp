// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/WatchedInterfaces.h"

#include <algorithm>
#include <utility>

#include "agent/base/NamePattern.h"

namespace Agent {

WatchedInterfaces::WatchedInterfaces(std::vector<std::string> patterns, Lookup lookup)
    : patterns_(std::move(patterns)), lookup_(std::move(lookup)) {}

void WatchedInterfaces::patternsAre(std::vector<std::string> patterns, std::vector<std::string> excluded) {
  patterns_ = std::move(patterns);
  excluded_ = std::move(excluded);
  for (auto& [ifindex, known] : known_) known.watched = isAskedFor(known.interface);
}

Interface const* WatchedInterfaces::watched(Kes::U32 ifindex) {
  auto known = known_.find(ifindex);
  if (known == known_.end()) {
    auto const interface = lookup_(ifindex);
    if (!interface) return nullptr;
    known = known_.emplace(ifindex, Known{*interface, isAskedFor(*interface)}).first;
  }
  return known->second.watched ? &known->second.interface : nullptr;
}

bool WatchedInterfaces::isWatched(Kes::U32 ifindex) const {
  auto const known = known_.find(ifindex);
  return known != known_.end() && known->second.watched;
}

bool WatchedInterfaces::handleNotice(LinkNotice const& notice) {
  auto const known = known_.find(notice.ifindex);
  if (known == known_.end()) return false;
  if (!notice.gone && known->second.interface == interfaceOf(notice)) return false;
  known_.erase(known);
  return true;
}

Kes::U32 WatchedInterfaces::smallestFrame() const {
  Kes::U32 smallest = 0;
  for (auto const& [ifindex, known] : known_) {
    Kes::U32 const frame = known.interface.frameBytes;
    smallest = smallest == 0 ? frame : std::min(smallest, frame);
  }
  return smallest;
}

bool WatchedInterfaces::isAskedFor(Interface const& interface) const {
  std::string const name = interface.intfId.stringValue().charPtr();
  auto const isMeant = [&name](std::string const& pattern) { return fits(pattern, name); };
  return (patterns_.empty() || std::any_of(patterns_.begin(), patterns_.end(), isMeant)) &&
         std::none_of(excluded_.begin(), excluded_.end(), isMeant);
}

}  // namespace Agent
