/* SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause */
/*
 * The bursts of one queue that is seen whenever a packet enters or leaves it. C, since it runs in the kernel;
 * the agent and its tests compile it as well. No memory of its own: observations in, a burst out.
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
  __u64 bytes;       /* that have left the queue while it was congested, */
  __u64 packets;     /* and how many packets */
  __u32 peak;        /* the longest backlog, */
  __u32 peakPackets; /* and what stood there in packets */
  __u32 drops;       /* packets */
  __u32 table;       /* with its flows: its number and 1, or 0 for none */
  __u64 number;      /* of this queue's bursts, from 1 */
  __u64 begin;
  __u64 end;     /* when the backlog last fell back; 0 while it exceeds the threshold */
  __u64 latency; /* that the last byte of the peak waited until it had left; 0 while unknown */
};

enum QueuePhase {
  queueQuiet, /* since it was made or emptied by force */
  queueAbove, /* congested */
  queueBelow  /* the burst may go on yet */
};

/* What every packet needs comes first. */
struct QueueState {
  /* At the last observation. */
  __u32 backlog;
  __u32 packets;
  __u32 drops;
  __u32 phase;
  __u32 measuring;           /* whether the last byte of the peak has not left yet, */
  __u32 start;               /* the threshold */
  __u64 ahead;               /* until so many bytes have, */
  __u64 peakAt;              /* since this moment */
  __u64 coalescing;          /* the time */
  struct ProbedBurst burst;  /* the latest, */
  struct ProbedBurst before; /* and the one before it */
};

struct QueueObservation {
#ifndef __bpf__
  __u64 now;
#endif
  __u32 backlog;
  __u32 packets; /* that wait */
  __u32 drops;   /* packets dropped so far, modulo 2^32 */
};

enum QueueNews { burstBegins = 1, burstIsOver = 2 };

/* When the observation was made. In the kernel the clock is only asked when that matters: it costs more than
 * the rest of most observations. */
static inline __u64 momentOf(const struct QueueObservation* seen) {
#ifdef __bpf__
  (void)seen;
  return bpf_ktime_get_ns();
#else
  return seen->now;
#endif
}

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

static inline int isApart(const struct QueueState* queue, __u64 now) {
  return queue->phase == queueQuiet || now - queue->burst.end > queue->coalescing;
}

/* To be called whenever a packet has entered, left or been dropped, one call after the other. Returns a set
 * of QueueNews. */
static inline __u32 observeQueue(struct QueueState* queue, const struct QueueObservation* seen) {
  struct ProbedBurst* const burst = &queue->burst;
  __u32 const dropped = seen->drops - queue->drops;
  __u32 const left = seen->backlog < queue->backlog ? queue->backlog - seen->backlog : 0;
  __u32 const leftPackets = seen->packets < queue->packets ? queue->packets - seen->packets : 0;
  int const exceeds = seen->backlog > queue->start;
  __u32 news = 0;
  queueIs(queue, seen);
  if ((exceeds || dropped) && queue->phase != queueAbove) {
    __u64 const now = momentOf(seen);
    if (isApart(queue, now)) {
      beginBurst(queue, now);
      news = burstBegins;
    }
    queue->phase = queueAbove;
    burst->end = 0;
  }
  if (queue->measuring && left) {
    if (queue->ahead > left) {
      queue->ahead -= left;
    } else {
      burst->latency = momentOf(seen) - queue->peakAt;
      queue->measuring = 0;
    }
  }
  if (queue->phase != queueAbove) return news;
  if (dropped) burst->drops += dropped;
  if (!news && left) {
    burst->bytes += left;
    burst->packets += leftPackets;
  }
  if (seen->backlog > burst->peak) {
    burst->peak = seen->backlog;
    burst->peakPackets = seen->packets;
    burst->latency = 0;
    queue->peakAt = momentOf(seen);
    queue->ahead = seen->backlog;
    queue->measuring = 1;
  }
  if (!exceeds) {
    queue->phase = queueBelow;
    burst->end = momentOf(seen);
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
