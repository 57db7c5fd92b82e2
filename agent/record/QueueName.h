// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "Kes/Hash.h"
#include "Kes/Types.h"
#include "Pylo/IntfId.h"

namespace Agent {

// A queue's number inside its interface: the class or slot that it hangs in, as the kernel numbers it, or 0
// for the interface's root. It is the entry key of its records and the identifier of its metadata.
using QueueKey = Kes::U32;

// The key of records that are of no one queue: those of the global buffer.
inline constexpr QueueKey noQueue = 0xFFFFFFFF;

// The name of a kind of queueing discipline, NUL-padded: "tbf".
using QueueKind = std::array<char, 16>;

// A queue of this machine. `handle` names the queueing discipline, 0 if it has no name.
struct QueueAddress {
  Pylo::IntfId intfId;
  QueueKey key = noQueue;
  Kes::U32 handle = 0;
  QueueKind kind{};
};

// What tells one queue from another.
struct QueueId {
  Pylo::IntfId intfId;
  QueueKey key;
  bool operator==(QueueId const&) const = default;
};

struct QueueIdHash {
  Kes::U64 operator()(QueueId const& id) const { return id.intfId.hash() ^ Kes::hashNumber(id.key); }
};

// A queue's key and a discipline's handle as people know them from tc: "root", "1:10", ":1", "-" for none;
// "8001:".
class QueueName {
 public:
  static QueueName ofKey(QueueKey key);
  static QueueName ofHandle(Kes::U32 handle);
  // The key of such a name; noQueue for what names none.
  static QueueKey keyOf(std::string_view name);
  std::string_view text() const { return {text_.data(), length_}; }

 private:
  constexpr explicit QueueName(std::string_view text) : length_(text.copy(text_.data(), text_.size())) {}
  void endIs(char const* end) { length_ = static_cast<std::size_t>(end - text_.data()); }

  std::array<char, 16> text_{};
  std::size_t length_;
};

}  // namespace Agent
