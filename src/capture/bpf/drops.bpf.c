// SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0
// Sees each packet that the kernel drops, counts it by interface and reason, and hands the beginnings of some
// to the process through a ring of its own: never more than the limit in any second, whatever is dropped.
// Runs where the kernel frees a packet that it could not deliver (the tracepoint kfree_skb), on the whole
// machine, and looks only at the process's own network namespace. Touches nothing of the kernel's.

#include <linux/bpf.h>

#include <bpf/bpf_core_read.h>
#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#include "drop_records.h"
#include "kernel_types.h"

#define ETHERNET_HEADER 14
#define ARPHRD_ETHER 1
#define ARPHRD_LOOPBACK 772
#define ETH_P_IP 0x0800
#define ETH_P_IPV6 0x86dd
#define IFF_LOOPBACK 8
#define NO_HEADER 0xffff

#define DST_FAKE_RTABLE 0x10
#define AF_INET 2
#define AF_INET6 10

// Set by user space before the program is loaded.
const volatile __u32 ownMark = 0;
const volatile __u32 hasSocket = 0;  // the tracepoint tells the receiving socket: Linux 6.11 and later
const volatile __u64 wakeBytes = 0;  // the ring is filling when so much is in it
const volatile __u8 meanings[kKnownReasons] = {0};

struct DropWords words = {0};
struct DropSymbol symbol = {0};

// When the last kLimitSlots records were made, each at its number modulo kLimitSlots: the number's lowest 16
// bits, and 48 bits of time. User space fills it as if the numbers below the first one had come when the
// machine started.
__u64 times[kLimitSlots] = {0};
__u64 nextNumber = 0;

struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_HASH);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct DropInterface);
} interfaces SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_HASH);
    __uint(max_entries, 1);
    __type(key, struct DropReasonKey);
    __type(value, struct DropReasonCount);
} reasons SEC(".maps");

// Written by user space.
struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __uint(max_entries, 65536);
    __type(key, __u32);
    __type(value, __u32);
} configured SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_RINGBUF);
    __uint(max_entries, 262144);
} ring SEC(".maps");

#define Volatile(word) (*(volatile __typeof__(word)*)&(word))
// Keeps the compiler from undoing what the verifier needs to see.
#define Opaque(variable) asm volatile("" : "+r"(variable))

// ---- the limit ----

#define TIME_SHIFT 10  // units of 1024 ns
#define TIME_BITS 48
#define TIME_MASK ((1ULL << TIME_BITS) - 1)
#define UNITS_OF_A_SECOND (1000000000LL >> TIME_SHIFT)

// From one time to a later one; negative if it is earlier: clocks of CPUs differ a little.
static __always_inline __s64 Since(__u64 then, __u64 now)
{
    return (__s64)((now - then) << (64 - TIME_BITS)) >> (64 - TIME_BITS);
}

static __always_inline __u64 PlaceOf(__u64 number) { return Volatile(times[number & (kLimitSlots - 1)]); }

static __always_inline int IsOf(__u64 place, __u64 number) { return place >> TIME_BITS == (number & 0xffff); }

// Whether a record may be made now: if more than a second has passed since the one that came `limit` records
// before it. Returns its time, in nanoseconds; 0 if none may be made. A CPU takes the next number first and
// writes its time then, which is never before that of the number before. Who finds a number without its time
// knows that it was taken this moment, so a second can't have passed since.
static __always_inline __u64 TakeNumber(__u64 time)
{
    const __u32 limit = Volatile(words.limit);
    __u64 now = time >> TIME_SHIFT;

    if (limit == 0) return 0;
    for (int attempt = 0; attempt < 16; ++attempt) {
        const __u64 number = Volatile(nextNumber), first = PlaceOf(number - limit),
                    last = PlaceOf(number - 1);

        if (!IsOf(first, number - limit) || Since(first, now) <= UNITS_OF_A_SECOND + 1) return 0;
        if (!IsOf(last, number - 1)) continue;
        if (__sync_val_compare_and_swap(&nextNumber, number, number + 1) != number) continue;
        if (Since(last, now) < 0) now = last;
        Volatile(times[number & (kLimitSlots - 1)]) = (number & 0xffff) << TIME_BITS | (now & TIME_MASK);
        return (now & TIME_MASK) << TIME_SHIFT;
    }
    return 0;
}

// ---- the record ----

// Where the packet begins, from `head` on, and what with. Its link header is kept while IP has it, and is of
// use only where it still stands before the network header.
static __always_inline __u32 StartOf(const struct sk_buff* packet, const struct net_device* device,
                                     __u32 data, __u8* start)
{
    const __u32 mac = packet->mac_header, network = packet->network_header;
    const int ethernet = !device || device->type == ARPHRD_ETHER || device->type == ARPHRD_LOOPBACK;
    const __u16 protocol = bpf_ntohs(packet->protocol);

    if (mac != NO_HEADER && (network >= mac + ETHERNET_HEADER || (ethernet && data == mac))) {
        *start = kStartEthernet;
        return mac;
    }
    *start = protocol == ETH_P_IP ? kStartIpv4 : protocol == ETH_P_IPV6 ? kStartIpv6 : kStartUnknown;
    return network;
}

static __always_inline void FillBytes(struct DropRecord* record, const struct sk_buff* packet,
                                      const struct net_device* device)
{
    const unsigned long head = (unsigned long)packet->head;
    const __u32 data = (__u32)((unsigned long)packet->data - head);
    const __u32 length = packet->len, end = data + length - packet->data_len;
    const __u32 from = StartOf(packet, device, data, &record->start);
    __u32 size = Volatile(words.wanted);

    record->length = length + data - from;
    record->captured = 0;
    if (record->start == kStartUnknown || from >= end) {
        record->start = kStartUnknown;
        record->length = length;
        return;
    }
    if (size > end - from) size = end - from;
    if (size > kMaxDropHeader) size = kMaxDropHeader;
    if (bpf_probe_read_kernel(record + 1, size, (const void*)(head + from)) == 0)
        record->captured = (__u16)size;
}

static __always_inline int HasTag(const struct sk_buff* packet)
{
    const struct sk_buff___with_vlan_present* older = (const void*)packet;
    const struct sk_buff___with_vlan_all* newer = (const void*)packet;

    if (bpf_core_field_exists(newer->vlan_all)) return newer->vlan_all != 0;
    if (bpf_core_field_exists(older->vlan_present)) return BPF_CORE_READ_BITFIELD(older, vlan_present) != 0;
    return 0;
}

struct Route {
    __u32 output;  // the interface to which it leads; 0: to none
    short error;
};

// Between sockets, other things stand where the route does. A bridge gives packets a route that leads
// nowhere.
static __always_inline struct Route RouteOf(const struct sk_buff* packet)
{
    const struct dst_entry* route = (const void*)(packet->_skb_refdst & ~1UL);
    struct Route found = {0};
    const struct net_device* next;

    if (!route || (BPF_CORE_READ(route, flags) & DST_FAKE_RTABLE)) return found;
    next = BPF_CORE_READ(route, dev);
    if (!next || (__u64)BPF_CORE_READ(next, nd_net.net) != words.net) return found;
    found.error = BPF_CORE_READ(route, error);
    if (!found.error && !(BPF_CORE_READ(next, flags) & IFF_LOOPBACK))
        found.output = (__u32)BPF_CORE_READ(next, ifindex);
    return found;
}

static __always_inline __u64 WakeUp(void)
{
    if (Volatile(words.wake.waiting)) {
        Volatile(words.wake.waiting) = 0;
        return BPF_RB_FORCE_WAKEUP;
    }
    if (Volatile(words.wake.pressing) || bpf_ringbuf_query(&ring, BPF_RB_AVAIL_DATA) < wakeBytes)
        return BPF_RB_NO_WAKEUP;
    Volatile(words.wake.pressing) = 1;
    return BPF_RB_FORCE_WAKEUP;
}

static __always_inline void FillWay(struct DropRecord* record, const struct sk_buff* packet,
                                    const struct net_device* device)
{
    const struct Route route = RouteOf(packet);
    const __u32 input = (__u32)packet->skb_iif;

    record->input = input;
    record->output = route.output == input ? 0 : route.output;
    // Dropped at another device than it had entered by: on its way out there.
    if (device && (__u32)device->ifindex != input) record->output = (__u32)device->ifindex;
    record->routeError = route.error;
}

static __always_inline int Tell(const struct sk_buff* packet, const struct net_device* device, __u64 location,
                                __u32 reason, __u32 ifIndex, __u64 now)
{
    const __u64 time = TakeNumber(now);
    struct DropRecord* record;

    if (!time) return 0;
    record = bpf_ringbuf_reserve(&ring, sizeof(struct DropRecord) + kMaxDropHeader, 0);
    if (!record) return 0;
    record->location = location;
    record->time = time;
    record->reason = reason;
    record->ifIndex = ifIndex;
    record->etherType = bpf_ntohs(packet->protocol);
    record->tagProtocol = 0;
    record->tagControl = 0;
    if (HasTag(packet)) {
        record->tagProtocol = bpf_ntohs(packet->vlan_proto);
        record->tagControl = packet->vlan_tci;
    }
    FillWay(record, packet, device);
    FillBytes(record, packet, device);
    bpf_ringbuf_submit(record, WakeUp());
    return 1;
}

// ---- the counts ----

static __always_inline struct DropInterface* FindInterface(__u32 ifIndex, int* wanted)
{
    struct DropInterface* found = bpf_map_lookup_elem(&interfaces, &ifIndex);
    const __u32 generation = Volatile(words.generation);
    const struct DropInterface none = {0};

    *wanted = 1;
    if (found && found->generation == generation) return found;
    if (!Volatile(words.all) && !bpf_map_lookup_elem(&configured, &ifIndex)) {
        *wanted = 0;
        return 0;
    }
    if (!found) {
        bpf_map_update_elem(&interfaces, &ifIndex, &none, BPF_NOEXIST);
        found = bpf_map_lookup_elem(&interfaces, &ifIndex);
    }
    if (found) found->generation = generation;
    return found;
}

static __always_inline void Count(struct DropInterface* counts, __u32 ifIndex, __u32 reason, __u64 now)
{
    const struct DropReasonKey key = {.ifIndex = ifIndex, .reason = reason};
    const struct DropReasonCount none = {0};
    struct DropReasonCount* count = bpf_map_lookup_elem(&reasons, &key);

    ++counts->drops;
    if (!count) {
        bpf_map_update_elem(&reasons, &key, &none, BPF_NOEXIST);
        count = bpf_map_lookup_elem(&reasons, &key);
    }
    if (count) {
        ++count->drops;
        count->last = now;
    } else {
        ++counts->nameless;
    }
}

// `device` is null if none has the packet.
static __always_inline int Look(const struct sk_buff* packet, const struct net_device* device, __u64 location,
                                __u32 reason)
{
    const int own = ownMark != 0 && packet->mark == ownMark;
    __u32 ifIndex = device ? (__u32)device->ifindex : (__u32)packet->skb_iif;
    struct DropInterface* counts;
    __u64 now;
    int wanted;

    if (!ifIndex) ifIndex = RouteOf(packet).output;
    counts = FindInterface(ifIndex, &wanted);
    if (!wanted) return 0;
    now = bpf_ktime_get_ns();
    if (counts)
        Count(counts, ifIndex, reason, now);
    else
        __sync_fetch_and_add(&words.beyond, 1);
    if (own) {
        if (counts) ++counts->own;
    } else if (!Tell(packet, device, location, reason, ifIndex, now)) {
        if (counts)
            ++counts->untold;
        else
            __sync_fetch_and_add(&words.beyondUntold, 1);
    }
    return 0;
}

// The tracepoint's arguments: packet, location, reason, and the receiving socket.
SEC("tp_btf/kfree_skb")
int sflow_drop(__u64* arguments)
{
    const struct sk_buff* packet = (const struct sk_buff*)arguments[0];
    const struct net_device* device = packet->dev;
    const struct sock* socket = 0;
    __u64 reason = (__u32)arguments[2];
    __u32 meaning = kAlwaysDrop;

    Opaque(reason);
    if (reason < kKnownReasons) meaning = meanings[reason];
    if (meaning == kNeverDrop) return 0;
    if (device && (__u64)device->nd_net.net == words.net)
        return Look(packet, device, arguments[1], (__u32)reason);
    if (meaning == kDropAtDevice) return 0;
    // A socket that takes a packet has the device's place for itself; what stands there then is no device. Of
    // a packet that has not come to a device yet, the socket that made it says whose it is; those of other
    // families than IP's are no packets of a network.
    if (hasSocket) socket = (const struct sock*)arguments[3];
    if (!socket && !device) socket = packet->sk;
    if (!socket || (__u64)socket->__sk_common.skc_net.net != words.net) return 0;
    if (socket->__sk_common.skc_family != AF_INET && socket->__sk_common.skc_family != AF_INET6) return 0;
    return Look(packet, 0, arguments[1], (__u32)reason);
}

// ---- run by user space ----

// Finds the namespace of who runs it.
SEC("syscall")
int sflow_namespace(void* context)
{
    const struct task_struct* task = (const void*)bpf_get_current_task_btf();

    (void)context;
    words.net = (__u64)task->nsproxy->net_ns;
    return 0;
}

// Finds the function in which symbol.location is.
SEC("syscall")
int sflow_symbol(void* context)
{
    static const char kFormat[] = "%ps";
    const __u64 location = symbol.location;

    (void)context;
    return (int)bpf_snprintf(symbol.text, sizeof(symbol.text), kFormat, (__u64*)&location, sizeof(location));
}

// The kernel takes "GPL" for a program under the GPL's version 2, and has no word for the choice between that
// and Apache-2.0.
char licence[] SEC("license") = "GPL";
