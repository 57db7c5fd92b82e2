/* SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause */
/*
 * The bursts of one queue that is seen whenever a packet enters or leaves it. C, since it runs in the kernel;
 * the agent and its tests compile it as well. No clock, no memory of its own: observations in, a burst out.
 *
 * A queue is congested while its backlog exceeds the start threshold. What exceeds it again after no more
 * than the coalescing time is the same burst. A packet that a queue drops while it is not congested is a
 * congestion of that moment. Times are nanoseconds of the monotonic clock, lengths are bytes.
 */
#pragma once

#include <linux/types.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast" /* C has no other */

struct ProbedBurst {
  __u64 number; /* of this queue's bursts, from 1 */
  __u64 begin;
  __u64 end;         /* when the backlog last fell back; 0 while it exceeds the threshold */
  __u64 bytes;       /* that have left the queue while it was congested, */
  __u64 packets;     /* and how many packets */
  __u64 latency;     /* that the last byte of the peak waited until it had left; 0 while unknown */
  __u32 peak;        /* the longest backlog, */
  __u32 peakPackets; /* and what stood there in packets */
  __u32 drops;       /* packets */
  __u32 table;       /* with its flows: its number and 1, or 0 for none */
};

enum QueuePhase {
  queueQuiet, /* since it was made or emptied by force */
  queueAbove, /* congested */
  queueBelow  /* the burst may go on yet */
};

struct QueueState {
  struct ProbedBurst burst;  /* the latest, */
  struct ProbedBurst before; /* and the one before it */
  __u64 peakAt;
  __s64 ahead;     /* bytes that are to leave until the last byte of the peak has left */
  __u32 measuring; /* whether that is not yet the case */
  __u32 phase;
  /* At the last observation. */
  __u32 backlog;
  __u32 packets;
  __u32 drops;
};

struct QueueObservation {
  __u64 now;
  __u32 backlog;
  __u32 packets; /* that wait */
  __u32 drops;   /* packets dropped so far, modulo 2^32 */
};

struct QueueLimits {
  __u64 coalescing; /* nanoseconds */
  __u32 start;      /* bytes */
};

enum QueueNews { burstBegins = 1, burstIsOver = 2 };

/* Whether the queue's next packets, in or out, have to be observed even if they do not exceed the threshold.
 */
static inline int needsObserving(const struct QueueState* queue) {
  return queue->phase == queueAbove || queue->measuring;
}

/* The first look at a queue: bursts are found from here on. */
static inline void queueIs(struct QueueState* queue, const struct QueueObservation* seen) {
  queue->backlog = seen->backlog;
  queue->packets = seen->packets;
  queue->drops = seen->drops;
}

static inline void beginBurst(struct QueueState* queue, __u64 now) {
  struct ProbedBurst const fresh = {};
  queue->before = queue->burst;
  queue->burst = fresh;
  queue->burst.number = queue->before.number + 1;
  queue->burst.begin = now;
  queue->measuring = 0;
}

/* To be called whenever a packet has entered, left or been dropped, one call after the other. Returns a set
 * of QueueNews. */
static inline __u32 observeQueue(struct QueueState* queue, const struct QueueObservation* seen,
                                 const struct QueueLimits* limits) {
  struct ProbedBurst* const burst = &queue->burst;
  __u32 const dropped = seen->drops - queue->drops;
  __s64 const left = (__s64)queue->backlog - seen->backlog;
  __s64 const leftPackets = (__s64)queue->packets - seen->packets;
  int const exceeds = seen->backlog > limits->start;
  __u32 news = 0;
  queueIs(queue, seen);
  if (exceeds || dropped) {
    int const apart = queue->phase == queueBelow && seen->now - burst->end > limits->coalescing;
    if (queue->phase == queueQuiet || apart) {
      beginBurst(queue, seen->now);
      news = burstBegins;
    }
    queue->phase = queueAbove;
    burst->end = 0;
  }
  if (queue->measuring && left > 0) {
    queue->ahead -= left;
    if (queue->ahead <= 0) {
      burst->latency = seen->now - queue->peakAt;
      queue->measuring = 0;
    }
  }
  if (queue->phase != queueAbove) return news;
  burst->drops += dropped;
  if (!news && left > 0) burst->bytes += (__u64)left;
  if (!news && leftPackets > 0) burst->packets += (__u64)leftPackets;
  if (seen->backlog > burst->peak) {
    burst->peak = seen->backlog;
    burst->peakPackets = seen->packets;
    burst->latency = 0;
    queue->peakAt = seen->now;
    queue->ahead = seen->backlog;
    queue->measuring = 1;
  }
  if (!exceeds) {
    queue->phase = queueBelow;
    burst->end = seen->now;
  }
  return news;
}

/* What waits is thrown away: the queue goes, or its link does. What a congested queue held is lost. */
static inline __u32 emptyQueue(struct QueueState* queue, __u64 now) {
  __u32 const news = queue->phase == queueQuiet ? 0 : burstIsOver;
  if (queue->phase == queueAbove) {
    queue->burst.drops += queue->packets;
    queue->burst.end = now;
  }
  queue->phase = queueQuiet;
  queue->measuring = 0;
  queue->backlog = queue->packets = 0;
  return news;
}

#pragma GCC diagnostic pop
