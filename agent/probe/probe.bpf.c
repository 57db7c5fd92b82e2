// SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause
// Sees every packet enter and leave the queues of this machine, and keeps each queue's bursts. The agent is
// told when a burst begins, and when a queue is emptied by force; everything else it reads when it wants to.
//
// A packet of a queue that is not congested costs a comparison of the backlog that the discipline itself
// counts. Disciplines without a lock of their own (pfifo_fast) count by processor, so their backlog is kept
// here, by adding what enters and subtracting what leaves; it starts anew whenever they are empty.
#include <linux/bpf.h>

#include "agent/probe/KernelTypes.h"

#include <bpf/bpf_core_read.h>
#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>
#include <bpf/bpf_tracing.h>

#include "agent/probe/FlowTable.h"
#include "agent/probe/ProbeNotice.h"

char LICENSE[] SEC("license") = "Dual BSD/GPL";

enum {
  maxTables = 64,
  maxIgnored = 4096,
  ringBytes = 1 << 18,
  maxTries = 256,  // at a lock, which is held for less than a microsecond
  maxBulk = 128,   // packets that a lock-free discipline hands out at once, and are looked at
  ethernet = 1,    // ARPHRD_ETHER
  loopback = 772,  // ARPHRD_LOOPBACK
  ethernetHeader = 14,
  countsByProcessor = 0x20,  // TCQ_F_CPUSTATS
  stateTimeWait = 6,         // TCP_TIME_WAIT
  stateNewSynRecv = 12,      // TCP_NEW_SYN_RECV
};

const volatile __u32 ownNamespace = 0;
const volatile __u32 ipv4Mask = 0xFFFFFFFF;  // in network order
const volatile __u64 ipv6Mask[2] = {~0ULL, ~0ULL};
const volatile __u32 firstDropReason = 0;  // 0: the kernel tells none
const volatile __u32 lastDropReason = 0;

struct ProbeSettings settings = {};
struct ProbeCounts counts = {};
// Queues whose every packet matters.
__u32 busyQueues = 0;

// Which queue has which place, by its address in the kernel; 0: none.
__u64 numbers[queuePlaces] = {};

struct {
  __uint(type, BPF_MAP_TYPE_ARRAY);
  __uint(map_flags, BPF_F_MMAPABLE);
  __uint(max_entries, queuePlaces);
  __type(key, __u32);
  __type(value, struct ProbedQueue);
} vorn_queues SEC(".maps");

// Interfaces that nobody asked for.
struct {
  __uint(type, BPF_MAP_TYPE_HASH);
  __uint(max_entries, maxIgnored);
  __type(key, __u32);
  __type(value, __u8);
} vorn_ignored SEC(".maps");

struct {
  __uint(type, BPF_MAP_TYPE_RINGBUF);
  __uint(max_entries, ringBytes);
} vorn_notices SEC(".maps");

struct {
  __uint(type, BPF_MAP_TYPE_ARRAY);
  __uint(map_flags, BPF_F_MMAPABLE);
  __uint(max_entries, maxTables);
  __type(key, __u32);
  __type(value, struct FlowTable);
} vorn_flows SEC(".maps");

// Numbers of tables that are free, and empty.
struct {
  __uint(type, BPF_MAP_TYPE_QUEUE);
  __uint(max_entries, maxTables);
  __type(value, __u32);
} vorn_free_tables SEC(".maps");

// Of a pointer that the kernel's verifier knows, or of a mere address. The compiler is not to make one load
// of this and another, since the verifier wants to know what each reads.
#define READ(known, pointer, field)                             \
  ({                                                            \
    typeof((pointer)->field) value_;                            \
    if (known)                                                  \
      value_ = (pointer)->field;                                \
    else                                                        \
      bpf_core_read(&value_, sizeof value_, &(pointer)->field); \
    asm volatile("" : "+r"(value_));                            \
    value_;                                                     \
  })

enum { placeTaken = 1 };  // by one that is being made

enum { nowhere = queuePlaces, processors = 1024 };

// The verifier lets nobody calculate with a pointer that it knows, but with what is read from here.
struct {
  __u64 number;
  __u64 unused[7];
} scratch[processors] = {};

static __always_inline __u64 numberOf(struct Qdisc* qdisc, int known) {
  if (!known) return (__u64)qdisc;
  __u32 const processor = bpf_get_smp_processor_id();
  __u64 number = 0;
  if (processor < processors) {
    *(struct Qdisc* volatile*)&scratch[processor].number = qdisc;
    return *(__u64 volatile*)&scratch[processor].number;
  }
  bpf_probe_read_kernel(&number, sizeof number, &qdisc);
  return number;
}

static __always_inline __u32 placeOf(__u64 number) {
  __u32 const first = firstPlace(number);
  for (__u32 i = 0; i < bucketPlaces; ++i) {
    __u32 const place = (first + i) & (queuePlaces - 1);
    if (numbers[place] == number) return place;
  }
  return nowhere;
}

static __always_inline struct ProbedQueue* seenBefore(__u64 number) {
  __u32 const place = placeOf(number);
  return place == nowhere ? 0 : bpf_map_lookup_elem(&vorn_queues, &place);
}

static __always_inline int isLocked(struct ProbedQueue* queue) {
  for (int i = 0; i < maxTries; ++i)
    if (__sync_val_compare_and_swap(&queue->lock, 0, 1) == 0) return 1;
  __sync_fetch_and_add(&counts.crowdedEvents, 1);
  return 0;
}

static __always_inline void unlock(struct ProbedQueue* queue) {
  ++queue->version;
#ifdef VORN_STORES_IN_ORDER
  barrier();
  queue->lock = 0;
#else
  __sync_lock_test_and_set(&queue->lock, 0);
#endif
}

static __always_inline void limitsAre(struct ProbedQueue* queue, struct net_device* device, int known) {
  __u32 const ifindex = queue->id.ifindex;
  __u16 const type = READ(known, device, type);
  __u32 const frame = READ(known, device, mtu) + (type == ethernet || type == loopback ? ethernetHeader : 0);
  queue->state.coalescing = settings.coalescing;
  queue->state.start = 2 * frame > settings.start ? 2 * frame : settings.start;
  // An interface that is not asked for is never congested.
  if (bpf_map_lookup_elem(&vorn_ignored, &ifindex)) queue->state.start = ~0U;
  queue->generation = settings.generation;
}

// Takes a place that nobody has, and that nobody finds yet.
static __always_inline __u32 newPlace(__u64 number) {
  __u32 const first = firstPlace(number);
  for (__u32 i = 0; i < bucketPlaces; ++i) {
    __u32 const place = (first + i) & (queuePlaces - 1);
    if (__sync_val_compare_and_swap(&numbers[place], 0, placeTaken) == 0) return place;
  }
  __sync_fetch_and_add(&counts.unseenQueues, 1);
  return nowhere;
}

// A queue of this namespace that is seen for the first time.
static __always_inline struct ProbedQueue* newQueue(struct Qdisc* qdisc, __u64 number, __u32 drops,
                                                    int known) {
  struct netdev_queue* const slot = READ(known, qdisc, dev_queue);
  struct net_device* const device = READ(known, slot, dev);
  struct net* const net = READ(known, device, nd_net.net);
  if (READ(known, net, ns.inum) != ownNamespace) return 0;
  __u32 const place = newPlace(number);
  struct ProbedQueue* const queue = bpf_map_lookup_elem(&vorn_queues, &place);
  if (!queue) return 0;
  __builtin_memset(queue, 0, sizeof *queue);
  queue->id.ifindex = READ(known, device, ifindex);
  queue->id.parent = READ(known, qdisc, parent);
  queue->id.handle = READ(known, qdisc, handle);
  const struct Qdisc_ops* const ops = READ(known, qdisc, ops);
  bpf_core_read(&queue->id.kind, sizeof queue->id.kind, &ops->id);
  queue->state.drops = drops;
  limitsAre(queue, device, known);
  __sync_lock_test_and_set(&numbers[place & (queuePlaces - 1)], number);
  // Where two processors have made one at once, the first place counts.
  __u32 const other = placeOf(number);
  if (other == place) return queue;
  numbers[place & (queuePlaces - 1)] = 0;
  return bpf_map_lookup_elem(&vorn_queues, &other);
}

static __always_inline void tell(__u64 number, struct ProbedQueue* queue, __u32 news) {
  news |= queue->untold;
  struct ProbeNotice* const notice = bpf_ringbuf_reserve(&vorn_notices, sizeof *notice, 0);
  if (!notice) {
    if (news & ~queue->untold) __sync_fetch_and_add(&counts.lostNotices, 1);
    queue->untold = news;
    // Nobody would give it back if the burst is never told of.
    __u32 const table = queue->state.burst.table - 1;
    if (news & burstBegins && queue->state.burst.table) {
      bpf_map_push_elem(&vorn_free_tables, &table, 0);
      queue->state.burst.table = 0;
    }
    return;
  }
  notice->queue = number;
  notice->id = queue->id;
  notice->news = news;
  notice->burst = queue->state.burst;
  notice->before = queue->state.before;
  bpf_ringbuf_submit(notice, 0);
  queue->untold = 0;
}

// What the queue is known to hold becomes part of its state. The caller has its lock. Returns what is new.
static __always_inline __u32 observe(struct Qdisc* qdisc, __u64 number, struct ProbedQueue* queue,
                                     const struct QueueObservation* seen, int known) {
  int const busy = needsObserving(&queue->state);
  if (queue->generation != settings.generation) {
    struct netdev_queue* const slot = READ(known, qdisc, dev_queue);
    limitsAre(queue, READ(known, slot, dev), known);
  }
  __u32 const news = observeQueue(&queue->state, seen);
  if (news & burstBegins && settings.countFlows) {
    __u32 table = 0;
    if (bpf_map_pop_elem(&vorn_free_tables, &table) == 0)
      queue->state.burst.table = table + 1;
    else
      __sync_fetch_and_add(&counts.flowlessBursts, 1);
  }
  int const change = needsObserving(&queue->state) - busy;
  if (change) __sync_fetch_and_add(&busyQueues, change);
  if (news || queue->untold) tell(number, queue, news);
  return news;
}

static __always_inline struct FlowTable* flowsOf(struct ProbedQueue* queue) {
  __u32 const table = queue->state.burst.table - 1;
  if (queue->state.phase != queueAbove) return 0;
  return bpf_map_lookup_elem(&vorn_flows, &table);
}

static __always_inline void readPorts(struct FlowId* id, __u8 const* header) {
  __builtin_memcpy(&id->sourcePort, header, 4);
}

static __always_inline int hasPorts(__u8 protocol) {
  return protocol == 6 || protocol == 17 || protocol == 132 || protocol == 33 || protocol == 136;
}

static __always_inline void readFlow(struct FlowId* id, struct sk_buff* skb, int known) {
  __u8 header[64];
  __u16 const protocol = READ(known, skb, protocol);
  __u16 const tci = READ(known, skb, vlan_tci);
  unsigned char* const head = READ(known, skb, head);
  unsigned char* network = head + READ(known, skb, network_header);
  id->etherType = protocol;
  id->vlan = tci & 0xFFF;
  if (protocol == bpf_htons(0x8100) || protocol == bpf_htons(0x88A8)) {
    // A tag that stands in the packet, behind the addresses; the network header may be either.
    network = head + READ(known, skb, mac_header) + ethernetHeader;
    if (bpf_probe_read_kernel(header, 4, network)) return;
    id->vlan = (header[0] << 8 | header[1]) & 0xFFF;
    __builtin_memcpy(&id->etherType, header + 2, 2);
    network += 4;
  }
  if (id->etherType == bpf_htons(0x0800)) {
    __u32 word;
    if (bpf_probe_read_kernel(header, 24, network)) return;
    __u32 const length = (header[0] & 0xF) * 4;
    id->protocol = header[9];
    __builtin_memcpy(&word, header + 12, 4);
    word &= ipv4Mask;
    __builtin_memcpy(id->source, &word, 4);
    __builtin_memcpy(&word, header + 16, 4);
    word &= ipv4Mask;
    __builtin_memcpy(id->destination, &word, 4);
    id->fragment = ((header[6] & 0x1F) | header[7]) != 0;
    if (id->fragment || !hasPorts(id->protocol)) return;
    if (length == 20)
      readPorts(id, header + 20);
    else
      bpf_probe_read_kernel(&id->sourcePort, 4, network + length);
  } else if (id->etherType == bpf_htons(0x86DD)) {
    __u64 words[4];
    if (bpf_probe_read_kernel(header, 56, network)) return;
    __builtin_memcpy(words, header + 8, 32);
    words[0] &= ipv6Mask[0];
    words[1] &= ipv6Mask[1];
    words[2] &= ipv6Mask[0];
    words[3] &= ipv6Mask[1];
    __builtin_memcpy(id->source, words, 16);
    __builtin_memcpy(id->destination, words + 2, 16);
    id->protocol = header[6];
    if (id->protocol == 44) {  // a fragment header
      id->protocol = header[40];
      id->fragment = ((header[42] << 8 | header[43]) & 0xFFF8) != 0;
      if (!id->fragment && hasPorts(id->protocol)) readPorts(id, header + 48);
    } else if (hasPorts(id->protocol)) {
      readPorts(id, header + 40);
    }
  }
}

static __always_inline __u64 cgroupOf(struct sk_buff* skb, int known) {
  struct sock* const socket = READ(known, skb, sk);
  if (!socket) return 0;
  __u8 const state = READ(known, socket, __sk_common.skc_state);
  if (state == stateTimeWait || state == stateNewSynRecv) return 0;  // no whole socket
  struct cgroup* const cgroup = READ(known, socket, sk_cgrp_data.cgroup);
  if (!cgroup) return 0;
  struct kernfs_node* const node = READ(known, cgroup, kn);
  return node ? READ(known, node, id) : 0;
}

// The packet has entered a queue that is congested.
static __always_inline void countFlow(struct ProbedQueue* queue, struct sk_buff* skb, __u32 bytes,
                                      __u32 packets, int known) {
  struct FlowTable* const table = flowsOf(queue);
  if (!table) return;
  struct FlowId id = {};
  int taken;
  readFlow(&id, skb, known);
  struct FlowEntry* const entry = flowEntry(table, &id, &taken);
  if (taken) entry->cgroup = cgroupOf(skb, known);
  entry->bytes += bytes;
  entry->packets += packets;
  table->bytes += bytes;
  table->packets += packets;
}

static __always_inline __u32 lengthOf(struct sk_buff* skb, int known) {
  __u32 length = 0;
  if (known)
    length = *(__u32*)&skb->cb;
  else
    bpf_core_read(&length, sizeof length, &skb->cb);
  return length;
}

// What a discipline that counts by processor holds, once `bytes` have been added to it.
static __always_inline void count(struct ProbedQueue* queue, __s64 bytes, __s64 packets) {
  __sync_fetch_and_add(&queue->backlog, bytes);
  __sync_fetch_and_add(&queue->packets, packets);
}

static __always_inline __u32 atLeastNone(__s64 value) { return value < 0 ? 0 : value; }

// No time is asked for until it is needed.
static __always_inline void observation(struct QueueObservation* seen, struct Qdisc* qdisc,
                                        struct ProbedQueue* queue, int byProcessor, int known) {
  if (byProcessor) {
    seen->backlog = atLeastNone(queue->backlog);
    seen->packets = atLeastNone(queue->packets);
    seen->drops = queue->drops;
  } else {
    seen->backlog = READ(known, qdisc, qstats.backlog);
    seen->packets = READ(known, qdisc, q.qlen);
    seen->drops = READ(known, qdisc, qstats.drops);
  }
}

static __always_inline int isUnmoved(const struct ProbedQueue* queue) {
  return !needsObserving(&queue->state) && queue->generation == settings.generation;
}

static __always_inline int handleEnqueue(struct Qdisc* qdisc, struct sk_buff* skb, int known) {
  int const byProcessor = READ(known, qdisc, flags) & countsByProcessor;
  struct ProbedQueue* queue;
  struct QueueObservation seen;
  __u32 length = 0;
  __u64 number;
  if (byProcessor) {
    number = numberOf(qdisc, known);
    queue = seenBefore(number);
    if (!queue) queue = newQueue(qdisc, number, 0, known);
    if (!queue) return 0;
    length = lengthOf(skb, known);
    count(queue, length, 1);
    if (queue->backlog <= queue->state.start && isUnmoved(queue)) return 0;
  } else {
    __u32 const backlog = READ(known, qdisc, qstats.backlog);
    if (backlog <= settings.lowest && !busyQueues) return 0;
    number = numberOf(qdisc, known);
    queue = seenBefore(number);
    if (!queue) {
      if (backlog <= settings.lowest) return 0;
      queue = newQueue(qdisc, number, READ(known, qdisc, qstats.drops), known);
    }
    if (!queue) return 0;
    if (backlog <= queue->state.start && isUnmoved(queue)) return 0;
  }
  if (!isLocked(queue)) return 0;
  observation(&seen, qdisc, queue, byProcessor, known);
  __u32 const before = queue->state.backlog;
  __u32 const packetsBefore = queue->state.packets;
  __u32 const news = observe(qdisc, number, queue, &seen, known);
  if (!byProcessor && seen.backlog > before) length = seen.backlog - before;
  __u32 packets = seen.packets - packetsBefore;
  // What stood there before the burst began was not seen to come.
  if (news & burstBegins || byProcessor || packets > 64) {
    packets = 1;
    length = lengthOf(skb, known);
  }
  countFlow(queue, skb, length, packets, known);
  unlock(queue);
  return 0;
}

static __always_inline int handleDequeue(struct Qdisc* qdisc, struct sk_buff* skb, int packets, int known) {
  int const byProcessor = READ(known, qdisc, flags) & countsByProcessor;
  struct ProbedQueue* queue;
  struct QueueObservation seen;
  if (!byProcessor && !busyQueues) return 0;
  __u64 const number = numberOf(qdisc, known);
  queue = seenBefore(number);
  if (!queue) return 0;
  if (byProcessor) {
    if (!skb) {
      queue->backlog = queue->packets = 0;
    } else {
      __s64 bytes = lengthOf(skb, known);
      for (int i = 1; i < packets && i < maxBulk; ++i) {
        struct sk_buff* const next = READ(known, skb, next);
        if (!next) break;
        skb = next;
        bytes += lengthOf(skb, known);
      }
      count(queue, -bytes, -packets);
    }
  }
  if (!needsObserving(&queue->state)) return 0;
  if (!isLocked(queue)) return 0;
  observation(&seen, qdisc, queue, byProcessor, known);
  observe(qdisc, number, queue, &seen, known);
  unlock(queue);
  return 0;
}

// The queue dropped a packet: one that it did not take, or one from inside.
static __always_inline int handleDrop(struct sk_buff* skb, __u32 reason, int known) {
  if (reason < firstDropReason || reason > lastDropReason || !firstDropReason) return 0;
  struct net_device* const device = READ(known, skb, dev);
  if (!device) return 0;
  __u64 const slot = (__u64)READ(known, device, _tx) +
                     READ(known, skb, queue_mapping) * bpf_core_type_size(struct netdev_queue);
  struct Qdisc* const qdisc = BPF_CORE_READ((struct netdev_queue*)slot, qdisc);
  if (!qdisc) return 0;
  int const byProcessor = BPF_CORE_READ(qdisc, flags) & countsByProcessor;
  __u64 const number = (__u64)qdisc;
  struct ProbedQueue* queue = seenBefore(number);
  if (!queue) queue = newQueue(qdisc, number, byProcessor ? 0 : BPF_CORE_READ(qdisc, qstats.drops) - 1, 0);
  if (!queue || queue->state.start == ~0U) return 0;
  if (!isLocked(queue)) return 0;
  struct QueueObservation seen;
  if (byProcessor) ++queue->drops;
  observation(&seen, qdisc, queue, byProcessor, 0);
  observe(qdisc, number, queue, &seen, 0);
  struct FlowTable* const table = flowsOf(queue);
  if (table) {
    struct FlowId id = {};
    int taken;
    readFlow(&id, skb, known);
    struct FlowEntry* const entry = flowEntry(table, &id, &taken);
    if (taken) entry->cgroup = cgroupOf(skb, known);
    ++entry->drops;
    ++table->drops;
  }
  unlock(queue);
  return 0;
}

static __always_inline int handleReset(struct Qdisc* qdisc, int goes) {
  __u64 const number = (__u64)qdisc;
  struct ProbedQueue* const queue = seenBefore(number);
  if (!queue) return 0;
  if (!isLocked(queue)) return 0;
  int const busy = needsObserving(&queue->state);
  if (!goes) {
    struct QueueObservation seen;
    observation(&seen, qdisc, queue, BPF_CORE_READ(qdisc, flags) & countsByProcessor, 0);
    if (busy) observeQueue(&queue->state, &seen);
  }
  __u32 news = emptyQueue(&queue->state, bpf_ktime_get_ns());
  queue->backlog = queue->packets = 0;
  if (busy) __sync_fetch_and_add(&busyQueues, -1);
  if (goes && queue->state.burst.number) news |= queueIsGone;
  if (news) tell(number, queue, news);
  unlock(queue);
  if (goes) {
    __u32 const place = placeOf(number);
    if (place != nowhere) numbers[place & (queuePlaces - 1)] = 0;
  }
  return 0;
}

// Each twice: for kernels that check what is read when the program is loaded, and for those that cannot.

SEC("tp_btf/qdisc_enqueue")
int BPF_PROG(vorn_enqueue, struct Qdisc* qdisc, const struct netdev_queue* slot, struct sk_buff* skb) {
  return handleEnqueue(qdisc, skb, 1);
}
SEC("raw_tp/qdisc_enqueue")
int BPF_PROG(vorn_enqueue_raw, struct Qdisc* qdisc, const struct netdev_queue* slot, struct sk_buff* skb) {
  return handleEnqueue(qdisc, skb, 0);
}

SEC("tp_btf/qdisc_dequeue")
int BPF_PROG(vorn_dequeue, struct Qdisc* qdisc, const struct netdev_queue* slot, int packets,
             struct sk_buff* skb) {
  return handleDequeue(qdisc, skb, packets, 1);
}
SEC("raw_tp/qdisc_dequeue")
int BPF_PROG(vorn_dequeue_raw, struct Qdisc* qdisc, const struct netdev_queue* slot, int packets,
             struct sk_buff* skb) {
  return handleDequeue(qdisc, skb, packets, 0);
}

SEC("tp_btf/kfree_skb")
int BPF_PROG(vorn_drop, struct sk_buff* skb, void* location, __u32 reason) {
  return handleDrop(skb, reason, 1);
}
SEC("raw_tp/kfree_skb")
int BPF_PROG(vorn_drop_raw, struct sk_buff* skb, void* location, __u32 reason) {
  return handleDrop(skb, reason, 0);
}

SEC("raw_tp/qdisc_reset")
int BPF_PROG(vorn_reset, struct Qdisc* qdisc) { return handleReset(qdisc, 0); }

SEC("raw_tp/qdisc_destroy")
int BPF_PROG(vorn_destroy, struct Qdisc* qdisc) { return handleReset(qdisc, 1); }
