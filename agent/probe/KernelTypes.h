/* SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause */
/*
 * What the probe reads of the kernel's own structures: the members that it names and nothing else. Where they
 * stand in the kernel that runs is found when the probe is loaded, from that kernel's own type information.
 */
#pragma once

#include <linux/types.h>

#pragma clang attribute push(__attribute__((preserve_access_index)), apply_to = record)

struct ns_common {
  unsigned int inum;
};
struct net {
  struct ns_common ns;
};
typedef struct {
  struct net* net;
} possible_net_t;

struct netdev_queue;
struct net_device {
  unsigned int mtu;
  unsigned short type;
  int ifindex;
  struct netdev_queue* _tx;
  possible_net_t nd_net;
};

struct Qdisc;
struct netdev_queue {
  struct net_device* dev;
  struct Qdisc* qdisc;
};

struct sk_buff_head {
  __u32 qlen;
};
struct qdisc_skb_head {
  __u32 qlen;
};
struct gnet_stats_queue {
  __u32 qlen;
  __u32 backlog;
  __u32 drops;
};
struct bpf_array {
  void* pptrs[0];
};
struct Qdisc_ops {
  char id[16];
};
struct Qdisc {
  unsigned int flags;
  const struct Qdisc_ops* ops;
  __u32 handle;
  __u32 parent;
  struct netdev_queue* dev_queue;
  struct gnet_stats_queue* cpu_qstats;
  struct sk_buff_head gso_skb;
  struct qdisc_skb_head q;
  struct gnet_stats_queue qstats;
};

struct kernfs_node {
  __u64 id;
};
struct cgroup {
  struct kernfs_node* kn;
};
struct sock_cgroup_data {
  struct cgroup* cgroup;
};
struct sock_common {
  unsigned char skc_state;
};
struct sock {
  struct sock_common __sk_common;
  struct sock_cgroup_data sk_cgrp_data;
};

struct sk_buff {
  struct sk_buff* next;
  struct net_device* dev;
  struct sock* sk;
  char cb[48];
  __u16 queue_mapping;
  __be16 protocol;
  __u16 vlan_tci;
  __u16 network_header;
  __u16 mac_header;
  unsigned char* head;
};

enum skb_drop_reason { SKB_DROP_REASON_QDISC_DROP = 64 };

#pragma clang attribute pop
