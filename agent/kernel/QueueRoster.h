// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "agent/burst/CongestionSink.h"
#include "agent/burst/QueueSum.h"
#include "agent/burst/SampledQueue.h"
#include "agent/kernel/InnerShare.h"
#include "agent/kernel/NetlinkMessage.h"
#include "agent/kernel/QdiscSample.h"
#include "agent/kernel/QueueTree.h"
#include "agent/kernel/WatchedInterfaces.h"

namespace Agent {

// The queues that are watched, each with its detector, and what becomes of them from dump to dump. The sink
// is told of queues that appear and go.
//
// A queue that is renamed goes on under its new name. One begins anew, as if another had gone and it had
// come, when it was missing from a whole dump, takes its first child or gives its last away, or when the
// kernel told that it was removed. That it has been removed and made again is told by its counters as well:
// see SampledQueue.
class QueueRoster {
 public:
  // A queue is congested above so many bytes, and never below two full frames.
  explicit QueueRoster(Kes::U32 startThresholdBytes) : startThresholdBytes_(startThresholdBytes) {}

  // From the next time on that queues are learned.
  void startThresholdIs(Kes::U32 bytes) { startThresholdBytes_ = bytes; }

  // From the next time on that queues are learned: whether another means tells of what happens in those that
  // stand at a device, and are not spread over classes. They are known here, and not read.
  void probedIs(bool probed) { probed_ = probed; }

  // What stands where a probe has found congestion.
  enum class Standing : char {
    unknown,  // nothing that was learned
    unasked,  // of an interface that is not watched
    queue,    // a queue that only the probe tells of
    classes   // a discipline that spreads packets over queues, which are read here
  };
  Standing standing(QdiscId const& id) const;
  // Of what is a queue; empty for others.
  std::optional<QueueAddress> address(QdiscId const& id) const;

  // Nobody has looked for a while, and nothing in the interface was congested before `since` (microseconds,
  // monotonic), nor have more than `sent` bytes left it from then on: its queues are to be read as if they
  // had been seen empty at that moment. What a discipline with children keeps itself is not.
  void quietUntil(Kes::U32 ifindex, Kes::U64 since, Kes::U64 sent, std::span<QdiscSample const> samples);

  // Whether a dump shows the disciplines that were learned last, in the same order, and nothing has been
  // removed since. If not, either learn or locate is to be called before handleSamples.
  bool fits(std::span<QdiscSample const> samples) const;

  // Takes over the queues of a whole dump.
  void learn(std::span<QdiscSample const> samples, WatchedInterfaces& interfaces, CongestionSink& sink);

  // Finds the known queues in a dump that is torn: what it shows of each is right, but what is missing may be
  // there, and what is new may have its parent or children missing. Queues that are not found have no reading
  // this time, nor have those of interfaces that have had a removal, and shares of inner disciplines.
  // Allocates nothing once grown.
  void locate(std::span<QdiscSample const> samples);

  // The kernel tells of a discipline or class of a watched interface that it is gone.
  void handleRemoval(TrafficNotice const& notice);

  // One look: reads every queue from the samples. Allocates nothing.
  void handleSamples(std::span<QdiscSample const> samples, Pace const& pace, QueueSum& sum,
                     CongestionSink& sink);

  void forgetAll(CongestionSink& sink);

  std::size_t size() const { return queues_.size(); }

 private:
  struct Queue {
    QdiscId id;
    std::size_t position;  // in a dump of the present order, or QueueTree::none
    SampledQueue sampled;
    std::optional<InnerShare> share;  // of a discipline with children
    bool probed = false;
  };
  // A discipline by its place and name, or a class, whose own queue stands in it.
  struct Removed {
    Kes::U32 ifindex;
    Kes::U32 parent;
    Kes::U32 handle;
    bool isClass;
    auto operator<=>(Removed const&) const = default;
  };

  // The position that `index_` has for a discipline, or none.
  std::size_t indexed(QdiscId const& id) const;
  Queue const* find(QdiscId const& id) const;
  bool lacks(Kes::U32 ifindex) const;
  static Queue newQueue(QueueTree::Queue const& found, std::span<QdiscSample const> samples,
                        Pylo::IntfId const& intfId, QueueTraits const& traits);
  bool wasRemoved(QueueTree const& tree, std::span<QdiscSample const> samples, std::size_t position) const;
  void takeChildren(InnerShare& share, QueueTree::Queue const& found,
                    std::span<QdiscSample const> samples) const;

  Kes::U32 startThresholdBytes_;
  bool probed_ = false;
  std::vector<Queue> queues_;                           // in order of the dump
  std::vector<QdiscId> known_;                          // what the dump showed when the queues were learned
  std::vector<std::pair<QdiscId, std::size_t>> index_;  // sorted; only of use while it is made
  bool displaced_ = false;                              // positions are those in a torn dump
  std::set<Removed> removed_;                           // since the queues were learned
  Kes::U64 lost_ = 0;                                   // packets told of queues gone since the last look
};

}  // namespace Agent
