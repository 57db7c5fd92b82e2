// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/QueueTree.h"

#include <linux/pkt_sched.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <string_view>
#include <utility>

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

// Positions by a number within an interface.
using Index = std::vector<std::pair<U64, std::size_t>>;

U64 numberIn(U32 ifindex, U32 number) { return U64{ifindex} << 32 | number; }

template <std::size_t N>
bool isOneOf(QdiscId const& id, std::array<std::string_view, N> const& kinds) {
  return std::find(kinds.begin(), kinds.end(), std::string_view(id.kind.data())) != kinds.end();
}

// Disciplines that hold exactly one inner queue and count it as their own.
bool isWrapper(QdiscId const& id) {
  return isOneOf(id, std::array<std::string_view, 4>{"tbf", "red", "sfb", "cbs"});
}

// Disciplines that queue nothing and show the sum of their children.
bool isSum(QdiscId const& id) { return isOneOf(id, std::array<std::string_view, 2>{"mq", "mqprio"}); }

// Disciplines whose own queue takes what fits, and keeps what it has taken.
bool dropsAtTail(QdiscId const& id) {
  return isOneOf(id, std::array<std::string_view, 4>{"pfifo", "bfifo", "pfifo_fast", "htb"});
}

}  // namespace

QueueTree::QueueTree(std::span<QdiscSample const> samples)
    : samples_(samples),
      repeated_(samples.size(), false),
      parents_(samples.size(), none),
      firstChild_(samples.size() + 1, 0) {
  findRepeated();
  findParents();
  collectChildren();
  for (std::size_t i = 0; i < samples.size(); ++i) {
    bool const inside = parents_[i] != none && isOneQueue(parents_[i]);
    if (repeated_[i] || inside) continue;
    if (isOneQueue(i))
      queues_.push_back({i, {}, !dropsAtTail(innermost(i)), isOutermost(i)});
    else if (!isSum(samples[i].id))
      queues_.push_back({i, children(i), !dropsAtTail(samples[i].id), isOutermost(i)});
  }
}

void QueueTree::findRepeated() {
  Index places;
  for (std::size_t i = 0; i < samples_.size(); ++i)
    places.emplace_back(numberIn(samples_[i].id.ifindex, samples_[i].id.parent), i);
  std::sort(places.begin(), places.end());
  for (std::size_t i = 1; i < places.size(); ++i)
    repeated_[places[i].second] = places[i].first == places[i - 1].first;
}

void QueueTree::findParents() {
  // A default leaf has handle 0 and no children; of those with handle 0 only a root (the default mq) has.
  Index handles;
  for (std::size_t i = 0; i < samples_.size(); ++i) {
    QdiscId const& id = samples_[i].id;
    if (!repeated_[i] && (id.handle != 0 || id.parent == TC_H_ROOT))
      handles.emplace_back(numberIn(id.ifindex, TC_H_MAJ(id.handle)), i);
  }
  std::sort(handles.begin(), handles.end());
  for (std::size_t i = 0; i < samples_.size(); ++i) {
    QdiscId const& id = samples_[i].id;
    if (id.parent == TC_H_ROOT) continue;
    std::pair<U64, std::size_t> const sought = {numberIn(id.ifindex, TC_H_MAJ(id.parent)), 0};
    auto const found = std::lower_bound(handles.begin(), handles.end(), sought);
    if (found != handles.end() && found->first == sought.first && found->second != i)
      parents_[i] = found->second;
  }
}

void QueueTree::collectChildren() {
  auto const isChild = [this](std::size_t i) { return parents_[i] != none && !repeated_[i]; };
  for (std::size_t i = 0; i < samples_.size(); ++i)
    if (isChild(i)) ++firstChild_[parents_[i] + 1];
  std::partial_sum(firstChild_.begin(), firstChild_.end(), firstChild_.begin());
  children_.resize(firstChild_.back());
  auto next = firstChild_;
  for (std::size_t i = 0; i < samples_.size(); ++i)
    if (isChild(i)) children_[next[parents_[i]]++] = i;
}

std::span<std::size_t const> QueueTree::children(std::size_t position) const {
  return std::span(children_).subspan(firstChild_[position],
                                      firstChild_[position + 1] - firstChild_[position]);
}

// Whether packets wait in this discipline as in one queue. The depth bounds the walk through wrappers,
// whatever loops a torn dump may seem to have.
bool QueueTree::isOneQueue(std::size_t position, int depth) const {
  auto const inner = children(position);
  if (inner.empty()) return true;
  return depth > 0 && isWrapper(samples_[position].id) && isOneQueue(inner.front(), depth - 1);
}

// Of those that only add up there is one at most, which gives each transmit queue of the device its own.
bool QueueTree::isOutermost(std::size_t position) const {
  std::size_t const parent = parents_[position];
  if (parent == none) return samples_[position].id.parent == TC_H_ROOT;
  return parents_[parent] == none && isSum(samples_[parent].id);
}

// In a shaper that is one queue with what it holds: that in which the packets wait.
QdiscId const& QueueTree::innermost(std::size_t position) const {
  while (!children(position).empty()) position = children(position).front();
  return samples_[position].id;
}

}  // namespace Agent
