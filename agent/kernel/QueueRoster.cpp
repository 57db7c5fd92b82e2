// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/QueueRoster.h"

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

constexpr auto none = QueueTree::none;

// What stands in a queue as one packet may be many frames that belong together and are cut only behind it. It
// counts with the headers of all of them.
constexpr U32 largestPacketBytes = 65'536 + 65'536 / 8;

// What is removed and made again faster than that between two looks is told by its counters alone.
constexpr std::size_t maxRemoved = 4096;

}  // namespace

bool QueueRoster::fits(std::span<QdiscSample const> samples) const {
  auto const same = [](QdiscSample const& sample, QdiscId const& id) { return sample.id == id; };
  return !displaced_ && removed_.empty() &&
         std::equal(samples.begin(), samples.end(), known_.begin(), known_.end(), same);
}

void QueueRoster::learn(std::span<QdiscSample const> samples, WatchedInterfaces& interfaces,
                        CongestionSink& sink) {
  QueueTree const tree(samples);
  enum class Fate : char { vanished, unwatched, stays };
  // Memory that can be short is asked for before anything is touched, but for that of shares.
  std::vector<Queue> room;
  room.reserve(tree.queues().size());
  index_.reserve(std::max(queues_.size(), samples.size()));
  known_.reserve(samples.size());
  // Of each before: whether it has vanished, is there but not to be watched as what it was, or goes on.
  std::vector<Fate> fates(queues_.size(), Fate::vanished);
  std::vector<std::size_t> appeared;  // in queues_
  appeared.reserve(tree.queues().size());
  std::vector<Queue> before = std::exchange(queues_, std::move(room));
  index_.clear();
  for (std::size_t i = 0; i < before.size(); ++i) index_.emplace_back(before[i].id, i);
  std::sort(index_.begin(), index_.end());
  for (QueueTree::Queue const& found : tree.queues()) {
    QdiscSample const& sample = samples[found.position];
    Interface const* const interface = interfaces.watched(sample.id.ifindex);
    std::size_t const former = indexed(sample.id);
    std::size_t const at = wasRemoved(tree, samples, found.position) ? none : former;
    if (at != none) fates[at] = Fate::unwatched;
    if (interface == nullptr) continue;
    QueueTraits const traits = {std::max(2 * interface->frameBytes, startThresholdBytes_),
                                interface->frameBytes, std::max(interface->frameBytes, largestPacketBytes),
                                found.dropsFromInside};
    if (at != none && before[at].share.has_value() == !found.children.empty()) {
      fates[at] = Fate::stays;
      Queue& queue = queues_.emplace_back(std::move(before[at]));
      QueueAddress const& address = queue.sampled.address();
      if (address.intfId != interface->intfId) {
        sink.handleGone(address);
        queue.sampled.addressIs({interface->intfId, address.key, address.handle, address.kind});
        appeared.push_back(queues_.size() - 1);
      }
      if (queue.share) takeChildren(*queue.share, found, samples);
      queue.position = found.position;
      queue.sampled.traitsIs(traits);
      queue.probed = probed_ && found.outermost && !queue.share;
    } else {
      appeared.push_back(queues_.size());
      queues_.push_back(newQueue(found, samples, interface->intfId, traits));
      queues_.back().probed = probed_ && found.outermost && found.children.empty();
      // What a queue that has surely been made anew counts by now has happened since the last look.
      if (at == none && former != none && found.children.empty()) {
        QueueReading const& last = before[former].sampled.lastReading();
        SampledQueue& made = queues_.back().sampled;
        if (startedAgain(last, readingOf(sample))) made = {made.address(), traits, {.stamp = last.stamp}};
      }
    }
  }
  // Names may have changed hands, so all that are given up come first.
  for (std::size_t i = 0; i < before.size(); ++i) {
    if (fates[i] == Fate::vanished) lost_ += before[i].sampled.handleGone(sink);
    if (fates[i] == Fate::unwatched) before[i].sampled.handleUnwatched(sink);
  }
  for (std::size_t const i : appeared) sink.handlePresent(queues_[i].sampled.address());
  known_.clear();
  for (QdiscSample const& sample : samples) known_.push_back(sample.id);
  removed_.clear();
  displaced_ = false;
}

QueueRoster::Queue QueueRoster::newQueue(QueueTree::Queue const& found, std::span<QdiscSample const> samples,
                                         Pylo::IntfId const& intfId, QueueTraits const& traits) {
  QdiscSample const& sample = samples[found.position];
  QueueAddress const address = {intfId, keyOf(sample.id), sample.id.handle, sample.id.kind};
  std::optional<InnerShare> share;
  if (!found.children.empty()) share.emplace(found.position, found.children);
  QueueReading const first = share ? share->read(samples) : readingOf(sample);
  return {.id = sample.id,
          .position = found.position,
          .sampled = SampledQueue(address, traits, first),
          .share = std::move(share)};
}

// Of the discipline itself, or of one that it hangs in: nothing is told of what a removal takes along.
bool QueueRoster::wasRemoved(QueueTree const& tree, std::span<QdiscSample const> samples,
                             std::size_t position) const {
  if (removed_.empty()) return false;
  constexpr int deepest = 16;
  for (int depth = 0; depth < deepest && position != none; ++depth, position = tree.parent(position)) {
    QdiscId const& id = samples[position].id;
    if (removed_.contains({id.ifindex, id.parent, id.handle, false})) return true;
    if (removed_.contains({id.ifindex, 0, id.parent, true})) return true;
  }
  return false;
}

void QueueRoster::takeChildren(InnerShare& share, QueueTree::Queue const& found,
                               std::span<QdiscSample const> samples) const {
  bool same = share.children() == found.children.size();
  for (std::size_t i = 0; same && i < found.children.size(); ++i)
    same = known_[share.position(i)] == samples[found.children[i]].id;
  share.positionsAre(found.position, found.children, same);
}

void QueueRoster::locate(std::span<QdiscSample const> samples) {
  index_.clear();
  for (std::size_t i = 0; i < samples.size(); ++i) index_.emplace_back(samples[i].id, i);
  std::sort(index_.begin(), index_.end());
  for (Queue& queue : queues_)
    queue.position = queue.share || lacks(queue.id.ifindex) ? none : indexed(queue.id);
  displaced_ = true;
}

// Whether something of the interface was removed: what stands there now may be another under the same name.
bool QueueRoster::lacks(U32 ifindex) const {
  auto const found = removed_.lower_bound({ifindex, 0, 0, false});
  return found != removed_.end() && found->ifindex == ifindex;
}

std::size_t QueueRoster::indexed(QdiscId const& id) const {
  auto const found = std::lower_bound(index_.begin(), index_.end(), std::pair(id, std::size_t{0}));
  return found != index_.end() && found->first == id ? found->second : none;
}

void QueueRoster::handleRemoval(TrafficNotice const& notice) {
  if (queues_.empty() || removed_.size() == maxRemoved) return;
  removed_.insert({notice.ifindex, notice.isClass ? 0 : notice.parent, notice.handle, notice.isClass});
}

void QueueRoster::handleSamples(std::span<QdiscSample const> samples, Pace const& pace, QueueSum& sum,
                                CongestionSink& sink) {
  for (Queue& queue : queues_) {
    if (queue.probed) continue;
    QueueReading const last = queue.sampled.lastReading();
    QueueReading const reading = queue.position == none ? last
                                 : queue.share          ? queue.share->read(samples)
                                                        : readingOf(samples[queue.position]);
    if (reading.stamp == last.stamp)
      sum.addUnread(queue.sampled);
    else
      sum.add(queue.sampled, queue.sampled.handleReading(reading, pace, sink));
  }
  sum.addLost(std::exchange(lost_, 0));
  sum.finishLook(pace, sink);
}

QueueRoster::Queue const* QueueRoster::find(QdiscId const& id) const {
  auto const found =
      std::find_if(queues_.begin(), queues_.end(), [&](Queue const& queue) { return queue.id == id; });
  return found == queues_.end() ? nullptr : &*found;
}

QueueRoster::Standing QueueRoster::standing(QdiscId const& id) const {
  Queue const* const queue = find(id);
  if (queue != nullptr) return queue->probed ? Standing::queue : Standing::classes;
  if (std::find(known_.begin(), known_.end(), id) == known_.end()) return Standing::unknown;
  bool const inside = std::any_of(queues_.begin(), queues_.end(),
                                  [&](Queue const& other) { return other.id.ifindex == id.ifindex; });
  return inside ? Standing::classes : Standing::unasked;
}

std::optional<QueueAddress> QueueRoster::address(QdiscId const& id) const {
  Queue const* const queue = find(id);
  return queue == nullptr ? std::nullopt : std::optional(queue->sampled.address());
}

void QueueRoster::quietUntil(U32 ifindex, U64 since, U64 sent, std::span<QdiscSample const> samples) {
  for (Queue& queue : queues_) {
    if (queue.probed || queue.share || queue.id.ifindex != ifindex || queue.position == none) continue;
    QueueReading const last = queue.sampled.lastReading();
    QueueReading const now = readingOf(samples[queue.position]);
    if (last.stamp >= since || since >= now.stamp || startedAgain(last, now)) continue;
    queue.sampled.lastReadingIs({since, now.bytes - std::min(now.bytes - last.bytes, sent), 0, last.drops});
  }
}

void QueueRoster::forgetAll(CongestionSink& sink) {
  for (Queue& queue : queues_) queue.sampled.handleUnwatched(sink);
  queues_.clear();
  known_.clear();
  removed_.clear();
  displaced_ = false;
}

}  // namespace Agent
