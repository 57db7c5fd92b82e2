// SPDX-License-Identifier: Apache-2.0
// One queue as the probe sees it, beside a naive account of the same: every packet is kept, with the moments
// at which it came and left, and the bursts are found afterwards, from all that happened.
#pragma once

#include <algorithm>
#include <deque>
#include <sstream>
#include <string>
#include <vector>

#include "Kes/Types.h"
#include "agent/probe/QueueState.h"

namespace Model {

using Kes::U32;
using Kes::U64;

struct Moment {
  U64 now;
  U32 backlog;
  U32 left;     // bytes of packets that left at this moment,
  U32 packets;  // how many still wait,
  U32 drops;    // how many were dropped,
  bool reset;   // or all were thrown away: so many
};

struct Stay {
  U64 came;
  U64 left;  // 0: not yet, or thrown away
};

// The bursts in a queue's whole history.
inline std::vector<ProbedBurst> burstsIn(std::vector<Moment> const& moments, std::vector<Stay> const& stays,
                                         U32 start, U64 coalescing) {
  std::vector<ProbedBurst> bursts;
  U64 peakAt = 0;
  bool above = false;
  bool closed = true;
  auto const settle = [&](U64 until) {
    // The last one that waited at the peak.
    Stay const* last = nullptr;
    for (Stay const& stay : stays)
      if (stay.came <= peakAt) last = &stay;
    if (peakAt != 0 && last->left != 0 && last->left < until) bursts.back().latency = last->left - peakAt;
  };
  for (Moment const& at : moments) {
    if (at.reset) {
      if (above) {
        bursts.back().drops += at.packets;
        bursts.back().end = at.now;
      }
      if (!closed) settle(at.now);
      above = false;
      closed = true;
      continue;
    }
    bool const exceeds = at.backlog > start;
    bool const was = above;
    bool begins = false;
    if (exceeds || at.drops != 0) {
      if (!above && (closed || at.now - bursts.back().end > coalescing)) {
        if (!closed) settle(at.now);
        bursts.push_back({});
        bursts.back().number = bursts.size();
        bursts.back().begin = at.now;
        peakAt = 0;
        begins = true;
        closed = false;
      }
      above = true;
    }
    if (!above) continue;
    ProbedBurst& burst = bursts.back();
    if (!begins && (was || at.left != 0)) {
      burst.bytes += at.left;
      burst.packets += at.left != 0;
    }
    burst.drops += at.drops;
    if (at.backlog > burst.peak) {
      burst.peak = at.backlog;
      burst.peakPackets = at.packets;
      peakAt = at.now;
    }
    above = exceeds;
    burst.end = exceeds ? 0 : at.now;
  }
  if (!closed) settle(~U64{0});
  return bursts;
}

inline std::string textOf(ProbedBurst const& burst) {
  std::ostringstream text;
  text << burst.number << ": " << burst.begin << '-' << burst.end << ' ' << burst.peak << " B in "
       << burst.peakPackets << ", " << burst.bytes << " B and " << burst.packets << " left, " << burst.drops
       << " dropped, " << burst.latency;
  return text.str();
}

// Has a queue live through `steps` that choose(n) decides on, a number below n at a time. Returns where probe
// and account differ; empty: nowhere.
template <class Choose>
std::string probeFault(int steps, Choose choose) {
  QueueState queue{};
  queue.start = 100 * choose(8);
  queue.coalescing = 10 * choose(8);
  std::vector<Moment> moments;
  std::vector<Stay> stays;
  std::deque<std::pair<U32, std::size_t>> waiting;  // lengths, and which stay
  std::vector<ProbedBurst> told;
  U32 backlog = 0;
  U32 dropped = choose(2) * 0xFFFFFFF0;  // may wrap
  U64 now = 1000;
  QueueObservation seen{now, 0, 0, dropped};
  queueIs(&queue, &seen);
  bool open = false;
  auto const take = [&](U32 news) {
    if (news & burstBegins && open) told.push_back(queue.before);
    if (news & burstBegins) open = true;
    if (news & burstIsOver) told.push_back(queue.burst);
    if (news & burstIsOver) open = false;
  };
  for (int step = 0; step < steps; ++step) {
    now += 1 + choose(16) * (choose(8) == 0 ? 10 : 1);
    U32 const kind = choose(16);
    Moment at{now, 0, 0, 0, 0, false};
    if (kind == 0) {
      at.reset = true;
      at.packets = static_cast<U32>(waiting.size());
      waiting.clear();
      backlog = 0;
      moments.push_back(at);
      take(emptyQueue(&queue, now));
      continue;
    }
    U32 const length = 1 + choose(150);
    if (kind < 8) {
      waiting.emplace_back(length, stays.size());
      stays.push_back({now, 0});
      backlog += length;
    } else if (kind < 14 && !waiting.empty()) {
      at.left = waiting.front().first;
    } else if (kind == 14 && !waiting.empty()) {  // from inside: the first
      at.left = waiting.front().first;
      at.drops = 1;
    } else if (kind >= 14) {
      at.drops = 1 + choose(3);
    }
    if (at.left != 0) {
      stays[waiting.front().second].left = now;
      backlog -= at.left;
      waiting.pop_front();
    }
    at.backlog = backlog;
    at.packets = static_cast<U32>(waiting.size());
    dropped += at.drops;
    moments.push_back(at);
    seen = {now, at.backlog, at.packets, dropped};
    take(observeQueue(&queue, &seen));
  }
  if (open) told.push_back(queue.burst);
  auto const expected = burstsIn(moments, stays, queue.start, queue.coalescing);
  for (std::size_t i = 0; i < std::max(expected.size(), told.size()); ++i) {
    std::string const wanted = i < expected.size() ? textOf(expected[i]) : "no burst";
    std::string const found = i < told.size() ? textOf(told[i]) : "no burst";
    if (wanted != found) return "expected " + wanted + ", told " + found;
  }
  return {};
}

}  // namespace Model
