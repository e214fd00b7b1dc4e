// SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0
// What the program that sees drops reads of the kernel's structures: these members and no others, found by
// name in the running kernel (CO-RE), whatever their place there. C, for the BPF machine only.

#ifndef CAPTURE_BPF_KERNEL_TYPES_H
#define CAPTURE_BPF_KERNEL_TYPES_H

#include <linux/types.h>

#define OF_KERNEL __attribute__((preserve_access_index))

struct net;

typedef struct {
    struct net* net;
} OF_KERNEL possible_net_t;

struct net_device {
    int ifindex;
    unsigned short type;  // ARPHRD_...
    unsigned int flags;
    possible_net_t nd_net;
} OF_KERNEL;

struct sock_common {
    unsigned short skc_family;
    possible_net_t skc_net;
} OF_KERNEL;

/// Also what stands for one: a request, a socket in TIME_WAIT.
struct sock {
    struct sock_common __sk_common;
} OF_KERNEL;

struct dst_entry {
    struct net_device* dev;
    unsigned short flags;
    short error;  // why packets of this route are dropped: an errno, negative in IPv6; 0: they are not
} OF_KERNEL;

struct sk_buff {
    struct net_device* dev;  // null, or something else, while a socket has the packet
    struct sock* sk;
    unsigned long _skb_refdst;  // a dst_entry, with flags in the lowest bit
    unsigned int len;           // from `data` on
    unsigned int data_len;      // of these, behind the first piece
    unsigned int mark;
    int skb_iif;  // the interface by which it entered; 0: it was made here
    __be16 protocol;
    __u16 mac_header;  // from `head` on, as the next one; all ones: not known
    __u16 network_header;
    __be16 vlan_proto;
    __u16 vlan_tci;
    unsigned char* head;
    unsigned char* data;
} OF_KERNEL;

/// Linux 6.2 and later.
struct sk_buff___with_vlan_all {
    __u32 vlan_all;
} OF_KERNEL;

/// Before.
struct sk_buff___with_vlan_present {
    __u8 vlan_present : 1;
} OF_KERNEL;

struct nsproxy {
    struct net* net_ns;
} OF_KERNEL;

struct task_struct {
    struct nsproxy* nsproxy;
} OF_KERNEL;

#endif
