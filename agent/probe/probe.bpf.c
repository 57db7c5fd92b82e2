// SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause
// Sees every packet enter and leave the queues of this machine, and keeps each queue's bursts. The agent is
// told when a burst begins, and when a queue is emptied by force; everything else it reads when it wants to.
//
// A packet of a queue that is not congested costs a comparison of the backlog that the discipline itself
// counts. Disciplines without a lock of their own (pfifo_fast) count by processor, so their backlog is kept
// here, by adding what each processor has counted since it was last looked at.
#include <linux/bpf.h>

#include "agent/probe/KernelTypes.h"

#include <bpf/bpf_core_read.h>
#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>
#include <bpf/bpf_tracing.h>

#include "agent/probe/FlowTable.h"
#include "agent/probe/ProbeNotice.h"

const volatile __u32 ipv4Mask = 0xFFFFFFFF;  // in network order
const volatile __u64 ipv6Mask[2] = {~0ULL, ~0ULL};

#include "agent/probe/PacketFlow.h"

char LICENSE[] SEC("license") = "Dual BSD/GPL";

enum {
  maxTables = 64,
  maxIgnored = 4096,
  ringBytes = 1 << 18,
  maxTries = 256,            // at a lock, which is held for less than a microsecond
  maxSegments = 64,          // of a packet that is cut up
  ethernet = 1,              // ARPHRD_ETHER
  loopback = 772,            // ARPHRD_LOOPBACK
  countsByProcessor = 0x20,  // TCQ_F_CPUSTATS
};

const volatile __u32 ownNamespace = 0;
const volatile __u32 firstDropReason = 0;  // 0: the kernel tells none
const volatile __u32 lastDropReason = 0;

struct ProbeSettings settings = {};
struct ProbeCounts counts = {};
// Queues whose every packet matters.
__u32 busyQueues = 0;

__u32 lastSerial = 0;

// Which queue has which place, by its address in the kernel; 0: none.
__u64 numbers[queuePlaces] = {};

struct {
  __uint(type, BPF_MAP_TYPE_ARRAY);
  __uint(map_flags, BPF_F_MMAPABLE);
  __uint(max_entries, queuePlaces);
  __type(key, __u32);
  __type(value, struct ProbedQueue);
} vorn_queues SEC(".maps");

// What each processor had counted of a discipline when it was last looked at.
struct ProcessorShare {
  __u32 serial;
  __u32 backlog;
  __u32 packets;
  __u32 drops;
};
struct {
  __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
  __uint(max_entries, queuePlaces);
  __type(key, __u32);
  __type(value, struct ProcessorShare);
} vorn_shares SEC(".maps");

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

enum { placeTaken = 1 };  // by one that is being made

enum { nowhere = queuePlaces, processors = 1024 };

// The verifier lets nobody calculate with a pointer that it knows, but with what is read from here.
struct {
  __u64 address;
  __u64 variables;
  __u64 unused[6];
} scratch[processors] = {};

static __always_inline __u64 addressOf(void const* pointer, int known) {
  if (!known) return (__u64)pointer;
  __u32 const processor = bpf_get_smp_processor_id();
  __u64 address = 0;
  if (processor < processors) {
    *(void const* volatile*)&scratch[processor].address = pointer;
    return *(__u64 volatile*)&scratch[processor].address;
  }
  bpf_probe_read_kernel(&address, sizeof address, &pointer);
  return address;
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
  queue->place = place;
  queue->serial = __sync_fetch_and_add(&lastSerial, 1) + 1;
  limitsAre(queue, device, known);
  __sync_lock_test_and_set(&numbers[place & (queuePlaces - 1)], number);
  // Where two processors have made one at once, the first place counts.
  __u32 const other = placeOf(number);
  if (other == place) return queue;
  numbers[place & (queuePlaces - 1)] = 0;
  return bpf_map_lookup_elem(&vorn_queues, &other);
}

static __always_inline void tell(__u64 number, struct ProbedQueue* queue, __u32 news) {
  __u32 const fresh = news;
  news |= queue->untold;
  struct ProbeNotice* const notice = bpf_ringbuf_reserve(&vorn_notices, sizeof *notice, 0);
  if (!notice) {
    if (fresh) __sync_fetch_and_add(&counts.lostNotices, 1);
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
  // Where the kernel does not tell of drops, nobody knows when those were that came before a burst.
  if (!lastDropReason && queue->state.phase != queueAbove) queue->state.drops = seen->drops;
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

// Where this processor's variables are, as seen from the addresses that all processors have in common: there
// is one of ours of which both are known.
static __always_inline __u64 ownVariables(void) {
  __u32 const processor = bpf_get_smp_processor_id();
  __u32 const first = 0;
  __u64 common = 0;
  if (processor < processors && scratch[processor].variables) return scratch[processor].variables;
  struct bpf_array* const shares = (struct bpf_array*)addressOf(&vorn_shares, 1);
  void* const own = bpf_map_lookup_elem(&vorn_shares, &first);
  if (!own || bpf_core_read(&common, sizeof common, &shares->pptrs[0])) return 0;
  __u64 const variables = addressOf(own, 1) - common;
  if (processor < processors) scratch[processor].variables = variables;
  return variables;
}

// Takes over what a discipline that counts by processor has counted on this one since the last time. The
// packet itself is only asked for the first time: it may have left already, and be another's. Returns how
// many bytes more there are.
static __always_inline __s64 takeShare(struct ProbedQueue* queue, struct Qdisc* qdisc, __s64 bytes,
                                       __s64 packets, int known) {
  struct gnet_stats_queue counted = {};
  __u64 const parts = addressOf(READ(known, qdisc, cpu_qstats), known);
  __u32 const place = queue->place;
  struct ProcessorShare* const share = bpf_map_lookup_elem(&vorn_shares, &place);
  if (!share || bpf_probe_read_kernel(&counted, 3 * sizeof(__u32), (void*)(parts + ownVariables())))
    return bytes;
  if (share->serial == queue->serial) {
    bytes = (__s32)(counted.backlog - share->backlog);
    packets = (__s32)(counted.qlen - share->packets);
    __sync_fetch_and_add(&queue->drops, counted.drops - share->drops);
  }
  share->serial = queue->serial;
  share->backlog = counted.backlog;
  share->packets = counted.qlen;
  share->drops = counted.drops;
  __sync_fetch_and_add(&queue->backlog, bytes);
  __sync_fetch_and_add(&queue->packets, packets);
  return bytes;
}

// It is empty. What seems to be left may be on its way, told of before or after this; what seems to be left
// twice is not there.
static __always_inline void handleEmpty(struct ProbedQueue* queue) {
  __s64 const left = queue->backlog;
  if (left && left == queue->leftover) {
    __sync_fetch_and_add(&queue->backlog, -left);
    __sync_fetch_and_add(&queue->packets, -queue->packets);
  }
  queue->leftover = left;
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
    number = addressOf(qdisc, known);
    queue = seenBefore(number);
    if (!queue) queue = newQueue(qdisc, number, 0, known);
    if (!queue) return 0;
    length = takeShare(queue, qdisc, lengthOf(skb, known), 1, known);
    if (queue->backlog <= queue->state.start && isUnmoved(queue)) return 0;
  } else {
    __u32 const backlog = READ(known, qdisc, qstats.backlog);
    if (backlog <= settings.lowest && !busyQueues) return 0;
    number = addressOf(qdisc, known);
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
  __u32 const phase = queue->state.phase;
  __u32 const backlog = queue->state.backlog;
  __u32 packets = queue->state.packets;
  observe(qdisc, number, queue, &seen, known);
  // A discipline may have cut up the packet, and does not hold it itself any more then. What else stands
  // there was not seen to come.
  packets = seen.packets - packets;
  int const cutUp = phase == queueAbove && packets > 1 && packets <= maxSegments && seen.backlog > backlog;
  if (byProcessor || !cutUp) packets = 1;
  if (!byProcessor) length = cutUp ? seen.backlog - backlog : lengthOf(skb, known);
  countFlow(queue, skb, length, packets, known);
  unlock(queue);
  return 0;
}

static __always_inline int handleDequeue(struct Qdisc* qdisc, struct sk_buff* skb, int packets, int known) {
  int const byProcessor = READ(known, qdisc, flags) & countsByProcessor;
  struct ProbedQueue* queue;
  struct QueueObservation seen;
  if (!byProcessor && !busyQueues) return 0;
  __u64 const number = addressOf(qdisc, known);
  queue = seenBefore(number);
  if (!queue) return 0;
  if (byProcessor) {
    takeShare(queue, qdisc, skb ? -(__s64)lengthOf(skb, known) : 0, skb ? -packets : 0, known);
    if (!skb && !READ(known, qdisc, gso_skb.qlen)) handleEmpty(queue);
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
  if (byProcessor) takeShare(queue, qdisc, 0, 0, 0);
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
  // One that goes cannot wait; no packet comes that another would count.
  if (!isLocked(queue) && !goes) return 0;
  int const busy = needsObserving(&queue->state);
  if (!goes) {
    struct QueueObservation seen;
    observation(&seen, qdisc, queue, BPF_CORE_READ(qdisc, flags) & countsByProcessor, 0);
    if (busy) observeQueue(&queue->state, &seen);
  }
  __u32 news = emptyQueue(&queue->state, bpf_ktime_get_ns());
  queue->backlog = queue->packets = queue->leftover = 0;
  queue->serial = __sync_fetch_and_add(&lastSerial, 1) + 1;
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
