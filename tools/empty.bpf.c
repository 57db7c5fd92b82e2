// SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause
// Programs that do nothing where the probe's programs are: what it costs to be asked at all. scripts/measure-exact
// compiles and loads it.
#include <linux/bpf.h>

#include <bpf/bpf_helpers.h>

char LICENSE[] SEC("license") = "Dual BSD/GPL";

SEC("tp_btf/qdisc_enqueue") int empty_enqueue(void* context) { return 0; }
SEC("tp_btf/qdisc_dequeue") int empty_dequeue(void* context) { return 0; }
SEC("tp_btf/kfree_skb") int empty_drop(void* context) { return 0; }
