/* SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause */
/* What the probe in the kernel and the agent tell each other. */
#pragma once

#include "agent/probe/QueueState.h"

/* A queue as the kernel numbers it: the outermost discipline of a transmit queue. */
struct ProbedQueueId {
  __u32 ifindex;
  __u32 parent;
  __u32 handle;
  char kind[16];
};

/* One of them, in the table of queues: at a place that has its number in the table of numbers. */
struct ProbedQueue {
  __u32 lock;       /* 1 while somebody is at it */
  __u32 version;    /* counts changes */
  __u32 generation; /* of the settings that its limits come from */
  __u32 untold;     /* the news of the latest burst that found no room */
  struct QueueState state;
  /* Where the discipline itself has only parts on each processor: their sum. */
  __s64 backlog;
  __s64 packets;
  __s64 leftover; /* what this says is left when the discipline is empty */
  __u32 drops;
  __u32 place;
  __u32 serial; /* tells it from another that had the same place */
  struct ProbedQueueId id;
};

enum { bucketPlaces = 8, buckets = 1024, queuePlaces = bucketPlaces * buckets };

/* The first of the eight places that a queue may have. */
static inline __u32 firstPlace(__u64 number) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
  return (__u32)(number * 0x9E3779B97F4A7C15ULL >> 54) * bucketPlaces;
#pragma GCC diagnostic pop
}

struct ProbeNotice {
  __u64 queue; /* names it until it is gone */
  struct ProbedQueueId id;
  __u32 news; /* set of QueueNews, or that it is gone: */
  struct ProbedBurst burst;
  struct ProbedBurst before; /* of a burst that begins: the one before it */
};

enum { queueIsGone = 4 };

/* Set by the agent, and what the probe counts. */
struct ProbeSettings {
  __u64 coalescing; /* nanoseconds */
  __u32 start;      /* bytes; no queue's threshold is below two full frames */
  __u32 lowest;     /* of all thresholds: what no backlog needs to be looked at below */
  __u32 generation;
  __u32 countFlows;
};

struct ProbeCounts {
  __u64 lostNotices;    /* found no room, and are told later or never */
  __u64 unseenQueues;   /* found no room */
  __u64 crowdedEvents;  /* lost to others at the same queue */
  __u64 flowlessBursts; /* found no table */
};
