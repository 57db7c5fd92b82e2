// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iterator>

namespace Kes {

// Lets a range-for walk with an iterator that tells by itself whether it is at an end:
//
//   for (Entry::Ptr const& entry : chunk.entryIterator()) ...
//
// Where the key is wanted, or the member at the iterator is removed on the way, the iterator is used as such:
//
//   for (auto i = chunk.entryIterator(); i; ++i) use(i.key(), *i);
template <class Iterator>
class Walkable {
 public:
  Iterator begin() const { return static_cast<Iterator const&>(*this); }
  static std::default_sentinel_t end() { return {}; }
  friend bool operator==(Iterator const& at, std::default_sentinel_t) { return !at; }
};

}  // namespace Kes
