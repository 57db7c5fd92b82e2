/* SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause */
/*
 * Who filled a queue: bytes, packets and drops by flow, in a table of bounded size, counted by the algorithm
 * known as space-saving within sets of eight. C, since it runs in the kernel; the agent and its tests compile
 * it as well.
 *
 * A flow that finds its set full takes over the entry with the fewest bytes, and with it these bytes: they
 * are its error. So what an entry says of bytes is too much by at most its error, and never too little, and a
 * flow that has no entry had at most the fewest bytes of its set.
 */
#pragma once

#include <linux/types.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast" /* C has no other */

/* What tells one flow from another; 0 where there is no such thing. In network order but for `vlan`. */
struct FlowId {
  __u16 sourcePort;
  __u16 destinationPort;
  __u16 etherType;
  __u16 vlan;
  __u8 source[16]; /* an IPv4 address stands in the first four */
  __u8 destination[16];
  __u8 protocol;
  __u8 fragment; /* one without ports: not the first of its packet */
  __u8 unused[6];
};

struct FlowEntry {
  struct FlowId id;
  __u64 bytes;
  __u64 error;  /* bytes */
  __u64 cgroup; /* number of the sender's, 0: none known */
  __u32 packets;
  __u32 drops;
};

enum { flowWays = 8, flowSets = 64 }; /* the upper six bits of a hash say which */

struct FlowSet {
  __u32 tags[flowWays]; /* from the flow's hash; 0: free */
  struct FlowEntry entries[flowWays];
};

struct FlowTable {
  __u64 bytes; /* of all flows */
  __u64 packets;
  __u64 drops;
  struct FlowSet sets[flowSets];
};

static inline __u64 hashFlow(const struct FlowId* id) {
  __u64 const* const words = (__u64 const*)(void const*)id;
  __u64 hash = 0;
  for (unsigned i = 0; i < sizeof *id / sizeof *words; ++i) {
    hash = (hash ^ words[i]) * 0x9E3779B97F4A7C15ULL;
    hash ^= hash >> 29;
  }
  return hash;
}

static inline int isFlow(const struct FlowId* one, const struct FlowId* other) {
  __u64 const* const a = (__u64 const*)(void const*)one;
  __u64 const* const b = (__u64 const*)(void const*)other;
  return a[0] == b[0] && a[1] == b[1] && a[2] == b[2] && a[3] == b[3] && a[4] == b[4] && a[5] == b[5];
}

/* What the compiler is not to make part of other calculations, so that the kernel's verifier can follow. */
#ifdef __bpf__
#define APART(value) asm volatile("" : "+r"(value))
#else
#define APART(value)
#endif

/* An index below a power of two. */
static inline __u32 within(__u32 index, __u32 size) {
  APART(index);
  return index & (size - 1);
}

/* The flow's entry, which it may have to take over from another; then `*taken` is set, and the caller fills
 * in what the id does not tell. */
static inline struct FlowEntry* flowEntry(struct FlowTable* table, const struct FlowId* id, int* taken) {
  __u64 const hash = hashFlow(id);
  __u32 const tag = (__u32)hash | 1;
  struct FlowSet* set = table->sets;
  struct FlowEntry* entry;
  __u64 fewest = ~0ULL; /* and 1; 0: free */
  unsigned least = 0;
  APART(set);
  set += within((__u32)(hash >> 58), flowSets);
  APART(set);
  *taken = 0;
  for (unsigned i = 0; i < flowWays; ++i) {
    if (set->tags[i] == tag && isFlow(&set->entries[i].id, id)) return &set->entries[i];
    __u64 const weight = set->tags[i] ? set->entries[i].bytes + 1 : 0;
    if (weight < fewest) {
      fewest = weight;
      least = i;
    }
  }
  least = within(least, flowWays);
  entry = &set->entries[least];
  set->tags[least] = tag;
  entry->id = *id;
  entry->error = fewest ? fewest - 1 : 0;
  entry->packets = 0;
  entry->drops = 0;
  entry->cgroup = 0;
  *taken = 1;
  return entry;
}

#pragma GCC diagnostic pop
