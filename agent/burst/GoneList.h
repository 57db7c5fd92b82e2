// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <utility>

namespace Agent {

// What is gone, and what of it is to be forgotten: whatever went longest ago, as soon as there are more than
// 256.
//
// What a history that was read back tells of may be gone as well, or come up a moment later than the agent.
// It is not counted at first: only from ten minutes after the start on, and then before all that has gone
// since.
template <class Id>
class GoneList {
 public:
  // Read back; in the order in which they are to be forgotten, and before anything else is added.
  void addUnseen(Id id) {
    ids_.push_back(std::move(id));
    ++unseen_;
  }
  void add(Id id) { ids_.push_back(std::move(id)); }
  // It is here again.
  void remove(Id const& id) {
    auto const at = std::find(ids_.begin(), ids_.end(), id);
    if (at == ids_.end()) return;
    if (static_cast<std::size_t>(at - ids_.begin()) < unseen_) --unseen_;
    ids_.erase(at);
  }

  // Takes out the next one to be forgotten, as long as there are too many.
  std::optional<Id> takeSurplus() {
    if (std::chrono::steady_clock::now() >= settled_) unseen_ = 0;
    if (ids_.size() - unseen_ <= most) return std::nullopt;
    auto const at = ids_.begin() + static_cast<std::ptrdiff_t>(unseen_);
    std::optional<Id> id = std::move(*at);
    ids_.erase(at);
    return id;
  }

 private:
  static constexpr std::size_t most = 256;

  std::chrono::steady_clock::time_point const settled_ =
      std::chrono::steady_clock::now() + std::chrono::minutes(10);
  std::deque<Id> ids_;
  std::size_t unseen_ = 0;  // at the front
};

}  // namespace Agent
