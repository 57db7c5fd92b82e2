/* SPDX-License-Identifier: Apache-2.0 OR GPL-2.0 OR BSD-3-Clause */
/* Which flow a packet is of, and whose. A part of the probe, for the kernel alone. */
#pragma once

enum {
  ethernetHeader = 14,
  stateTimeWait = 6,   /* TCP_TIME_WAIT */
  stateNewSynRecv = 12 /* TCP_NEW_SYN_RECV */
};

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
  // Before 5.15 it may have been a number.
  if (!bpf_core_field_exists(socket->sk_cgrp_data.cgroup)) return 0;
  struct cgroup* const cgroup = READ(known, socket, sk_cgrp_data.cgroup);
  if (!cgroup) return 0;
  struct kernfs_node* const node = READ(known, cgroup, kn);
  return node ? READ(known, node, id) : 0;
}
