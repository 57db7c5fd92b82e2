// SPDX-License-Identifier: Apache-2.0
// The kernel's messages. Input: one byte, which dumps are torn, then parts of dumps and notifications, each
// behind its kind and length; what they say is taken as the source does.

#include <linux/rtnetlink.h>

#include <map>

#include "agent/kernel/ChangeWatch.h"
#include "agent/kernel/DumpParser.h"
#include "agent/kernel/QueueRoster.h"
#include "fuzz/Harness.h"

namespace {

using namespace Agent;

// Who is present, by interface and key.
class Presence : public CongestionSink {
 public:
  void handlePresent(QueueAddress const& queue) override {
    Fuzz::check(++present_[{queue.intfId.stringValue().str(), queue.key}] == 1, "present twice");
  }
  void handleGone(QueueAddress const& queue) override {
    Fuzz::check(present_.erase({queue.intfId.stringValue().str(), queue.key}) == 1, "gone before it came");
  }
  void handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) override {
    Fuzz::check(present_.contains({queue.intfId.stringValue().str(), queue.key}), "an update of nobody");
    Fuzz::check(update.drops <= 0x7FFFFFFF, "drops backwards");
  }
  void handleTotal(CongestionUpdate const&) override {}
  std::size_t size() const { return present_.size(); }

 private:
  std::map<std::pair<std::string, QueueKey>, int> present_;
};

std::span<std::byte const> bytesOf(std::string const& text) { return std::as_bytes(std::span(text)); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  Kes::U32 const torn = input.byte();
  WatchedInterfaces interfaces({}, [](Kes::U32 ifindex) -> std::optional<Interface> {
    if (ifindex % 4 == 0) return std::nullopt;
    return Interface{Pylo::IntfId(Kes::String("eth" + std::to_string(ifindex))), 1514};
  });
  Presence presence;
  QueueRoster roster(0);
  QueueSum sum;
  std::vector<QdiscSample> samples;
  KernelChanges changes;
  for (Kes::U64 look = 1; !input.empty(); ++look) {
    bool const isDump = input.below(2) == 0;
    std::string const part = input.text(256 * input.byte() + input.byte());
    if (isDump) {
      samples.clear();
      DumpParser parser(0);
      parser.handlePart(bytesOf(part), 1000 * look, samples);
      Fuzz::check(samples.size() <= part.size() / NLMSG_LENGTH(sizeof(tcmsg)), "more samples than messages");
      for (QdiscSample const& sample : samples) Fuzz::check(sample.id.kind.back() == 0, "kind has no end");
      bool const isTorn = ((torn >> look % 8) & 1) != 0;
      if (!roster.fits(samples) && isTorn)
        roster.locate(samples);
      else if (!roster.fits(samples))
        roster.learn(samples, interfaces, presence);
      roster.handleSamples(samples, 1000, sum, presence);
    } else {
      changes.clear();
      readChanges(bytesOf(part), changes);
      for (LinkNotice const& notice : changes.links) {
        Fuzz::check(notice.name.back() == 0, "name has no end");
        interfaces.handleNotice(notice);
      }
      for (TrafficNotice const& notice : changes.traffic)
        if (notice.gone && interfaces.isWatched(notice.ifindex)) roster.handleRemoval(notice);
    }
    Fuzz::check(presence.size() == roster.size(), "the sink knows other queues than the roster");
  }
  roster.forgetAll(presence);
  Fuzz::check(presence.size() == 0, "queues are left");
  return 0;
}
