// SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0
// Samples packets at an interface's ingress and egress hook and hands their beginnings to the process through
// one ring. Touches no packet: the verdict is always "next". Nearly all packets take the short path through
// Look: one look-up in an array, one addition, one subtraction.

#include <linux/bpf.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#include "gap.h"
#include "records.h"

#define TC_NEXT (-1)
// Most gaps that are drawn for one packet; the frames behind them are sampled in one step.
#define MOST_GAPS 512
#define STALE_NS 2000000000ULL

// Set by user space before the program is loaded.
const volatile __u32 ownMark = 0;
const volatile __u32 copyWords = 0;   // the machine reads words at any address
const volatile __u64 wakeBytes = 0;   // the ring is filling when so much is in it
const volatile __u64 checkBytes = 0;  // a CPU looks at the fill each time it has written so much
const volatile __u32 logTable[kLogTableSize] = {0};

struct SharedWords shared = {0};

// By CPU modulo 64; CPUs that share a place check the ring's fill earlier, that is all.
struct CpuState cpus[64] = {0};

// All CPUs' places one after the other (DirectPlace): the kernel compiles this look-up in, which saves half
// of what an unsampled packet would cost with a hash, and user space reads the counts without a system call.
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, kDirectPorts);  // times the CPUs
    __type(key, __u32);
    __type(value, struct PortState);
} direct SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_HASH);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __uint(max_entries, kMaxPorts);
    __type(key, __u32);
    __type(value, struct PortState);
} ports SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __uint(max_entries, kMaxPorts);
    __type(key, __u32);
    __type(value, struct PortSettings);
} settings SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_RINGBUF);
    __uint(max_entries, 4194304);
} ring SEC(".maps");

#define Volatile(word) (*(volatile __typeof__(word)*)&(word))
// Keeps the compiler from undoing what the verifier needs to see.
#define Opaque(variable) asm volatile("" : "+r"(variable))

static __always_inline __u32 NextGap(struct GapScale scale)
{
    const __u64 bits = (__u64)bpf_get_prandom_u32() << 32 | bpf_get_prandom_u32();
    return GapOf(bits, scale, logTable);
}

// The kernel verifies a function that is not static by itself, for any arguments: once, not once for each
// path that leads to it, which takes seconds. So each checks for null.

__noinline int TakeSettings(struct PortState* port, __u32 key)
{
    const struct PortSettings* own;

    if (!port) return 0;
    // Before the settings are read, and a barrier for the CPU: a change meanwhile makes the port stale again.
    __sync_fetch_and_and(&port->stale, 0);
    own = bpf_map_lookup_elem(&settings, &key);
    port->mark = ownMark;
    if (!own) {  // sampling has ended here: the program stays attached a while
        port->settings.rate = 0;
        port->skip = 0;
        return 0;
    }
    if (own->incarnation != port->settings.incarnation) {
        port->pool = 0;
        // An exchange, for its barrier: user space must not find the old counts with the new incarnation.
        __sync_lock_test_and_set(&port->drops, 0);
    }
    port->settings = *own;
    port->skip = NextGap(port->settings.scale);
    return 0;
}

struct Run {
    struct GapScale scale;
    __u32 frames;  // that are left
    __u32 hits;
    __u32 skip;
};

static long OneGap(__u32 index, void* context)
{
    struct Run* run = context;

    (void)index;
    if (run->skip > run->frames) return 1;
    run->frames -= run->skip;
    ++run->hits;
    run->skip = NextGap(run->scale);
    return 0;
}

// Returns how many of the frames are sampled. Leaves in port->skip the gap as counted from behind them.
__noinline __u32 Hits(struct PortState* port, __u32 frames)
{
    struct Run run;
    __u32 rate;

    if (!port) return 0;
    rate = port->settings.rate;
    if (rate == 0) return 0;  // which the verifier can't know
    run.scale = port->settings.scale;
    if (frames == 1) {
        port->skip = NextGap(run.scale);
        return 1;
    }
    run.frames = frames;
    run.hits = 0;
    run.skip = port->skip;
    bpf_loop(MOST_GAPS, OneGap, &run, 0);
    if (run.skip <= run.frames) {  // very many segments, a very low rate: the right mean, less variance
        run.hits += (run.frames + bpf_get_prandom_u32() % rate) / rate;
        run.skip = NextGap(run.scale);
    } else {
        run.skip -= run.frames;
    }
    port->skip = run.skip;
    return run.hits;
}

static __always_inline __u64 WakeUp(__u32 cpu, __u32 bytes)
{
    __u64* sum = &cpus[cpu & 63].bytes;

    if (Volatile(shared.wake.waiting)) {
        Volatile(shared.wake.waiting) = 0;
        return BPF_RB_FORCE_WAKEUP;
    }
    *sum += bytes;
    if (*sum < checkBytes) return BPF_RB_NO_WAKEUP;
    *sum = 0;
    if (Volatile(shared.wake.pressing) || bpf_ringbuf_query(&ring, BPF_RB_AVAIL_DATA) < wakeBytes)
        return BPF_RB_NO_WAKEUP;
    Volatile(shared.wake.pressing) = 1;
    return BPF_RB_FORCE_WAKEUP;
}

static __always_inline void Fill(struct Record* record, const struct __sk_buff* packet,
                                 const struct PortState* port, __u32 egress)
{
    record->drops = port->drops;
    record->slot = port->settings.slot;
    record->incarnation = port->settings.incarnation;
    record->rate = port->settings.rate;
    record->origin = egress ? packet->ingress_ifindex : 0;
    record->length = packet->len;
    record->segmentSize = (__u16)packet->gso_size;
    record->etherType = bpf_ntohs((__u16)packet->protocol);
    if (packet->vlan_present) {
        record->tagProtocol = bpf_ntohs((__u16)packet->vlan_proto);
        record->tagControl = (__u16)packet->vlan_tci;
    } else {
        record->tagProtocol = 0;
        record->tagControl = 0;
    }
}

// Copies the beginning of the packet: `room` bytes, a constant, if they lie in one piece, else `captured`
// ones. Returns how many of the copied bytes are wanted.
static __always_inline __u32 Copy(struct __sk_buff* packet, __u64* to, __u32 captured, __u32 room)
{
    const __u64* from = (const __u64*)(unsigned long)packet->data;

    Opaque(captured);
    if (captured > room) captured = room;
    if (copyWords != 0 && (const char*)from + room <= (const char*)(unsigned long)packet->data_end) {
#pragma unroll
        for (__u32 i = 0; i < room / sizeof(*to); ++i) to[i] = from[i];
        return captured;
    }
    return captured > 0 && bpf_skb_load_bytes(packet, 0, to, captured) < 0 ? 0 : captured;
}

// Counts the packet and hands over a record with `room` bytes for it; the ring takes constant sizes only. A
// packet that gets a record is counted after the record has its place in the ring, in this order for all CPUs:
// so all records of what user space reads as counted lie before the end of the ring that it reads next.
#define HAND_OVER(name, room)                                                                       \
    static __always_inline int name(struct __sk_buff* packet, struct PortState* port, __u32 counts, \
                                    __u32 captured, __u32 egress)                                   \
    {                                                                                               \
        struct Record* record = bpf_ringbuf_reserve(&ring, sizeof(struct Record) + (room), 0);      \
        const __u32 frames = counts >> 16;                                                          \
        __u32 cpu;                                                                                  \
        if (!record) {                                                                              \
            port->pool += frames;                                                                   \
            port->drops += counts & 0xffff;                                                         \
            return 0;                                                                               \
        }                                                                                           \
        record->pool = __sync_fetch_and_add(&port->pool, frames) + frames;                          \
        Fill(record, packet, port, egress);                                                         \
        record->hits = (__u16)counts;                                                               \
        record->segments = (__u16)frames;                                                           \
        record->captured = (__u16)Copy(packet, (__u64*)(record + 1), captured, room);               \
        cpu = bpf_get_smp_processor_id();                                                           \
        record->cpu = (__u16)cpu;                                                                   \
        bpf_ringbuf_submit(record, WakeUp(cpu, sizeof(struct Record) + 8 + (room)));                \
        return 0;                                                                                   \
    }
HAND_OVER(HandOver64, 64)
HAND_OVER(HandOver128, 128)
HAND_OVER(HandOver256, 256)
HAND_OVER(HandOver512, kMaxRecordHeader)

__noinline int SamplePacket(struct __sk_buff* packet, struct PortState* port, __u32 frames, __u32 egress)
{
    __u32 captured, counts, hits;

    if (!port || port->settings.rate == 0) return 0;
    hits = port->settings.rate == 1 ? frames : Hits(port, frames);
    if (hits == 0) {
        port->pool += frames;
        return 0;
    }
    counts = (frames & 0xffff) << 16 | (hits & 0xffff);
    captured = port->settings.wanted;
    if (captured > packet->len) captured = packet->len;
    if (captured <= 64) return HandOver64(packet, port, counts, captured, egress);
    if (captured <= 128) return HandOver128(packet, port, counts, captured, egress);
    if (captured <= 256) return HandOver256(packet, port, counts, captured, egress);
    return HandOver512(packet, port, counts, captured, egress);
}

// The frames of a packet whose segments are not counted yet, such as a virtual machine's. Counts as the stack
// will when it cuts the packet: by what follows the transport header.
__noinline __u32 CountSegments(struct __sk_buff* packet)
{
    const __u32 size = packet->gso_size;
    __u32 at = 14, protocol = 0, segments;
    __u8 byte = 0;

    if (bpf_skb_load_bytes(packet, at, &byte, 1) < 0 || size == 0) return 1;
    if (byte >> 4 == 4) {
        const __u32 words = byte & 15;
        if (bpf_skb_load_bytes(packet, at + 9, &byte, 1) < 0) return 1;
        protocol = byte;
        at += words * 4;
    } else if (byte >> 4 == 6) {
        if (bpf_skb_load_bytes(packet, at + 6, &byte, 1) < 0) return 1;
        protocol = byte;
        at += 40;
    }
    if (protocol == 6) {
        if (bpf_skb_load_bytes(packet, at + 12, &byte, 1) < 0) return 1;
        at += (__u32)(byte >> 4) * 4;
    } else {
        at += 8;
    }
    if (packet->len <= at) return 1;
    segments = (packet->len - at + size - 1) / size;
    return segments > 0xffff ? 0xffff : segments;
}

static __noinline struct PortState* FindOther(__u32 key)
{
    struct PortState* port = bpf_map_lookup_elem(&ports, &key);
    const __u32 generation = Volatile(shared.generation);

    if (port && port->generation != generation) {
        port->generation = generation;
        port->stale = 1;
    }
    return port;
}

static __always_inline int Look(struct __sk_buff* packet, __u32 egress)
{
    const __u32 index = packet->ifindex;
    const __u32 key = index | (egress ? kEgressBit : 0);
    __u32 place = DirectPlace(bpf_get_smp_processor_id(), index, egress), frames = 1;
    struct PortState* port = bpf_map_lookup_elem(&direct, &place);

    if (!port || port->key != key) port = FindOther(key);
    if (!port) return TC_NEXT;
    if (port->stale) TakeSettings(port, key);
    if (port->mark != 0 && port->mark == packet->mark) return TC_NEXT;

    if (packet->gso_size != 0) {
        frames = packet->gso_segs;
        if (frames == 0) frames = CountSegments(packet);
    }
    if (port->skip > frames) {
        port->skip -= frames;
        port->pool += frames;
    } else {
        SamplePacket(packet, port, frames, egress);
    }
    return TC_NEXT;
}

SEC("tc")
int sflow_ingress(struct __sk_buff* packet) { return Look(packet, 0); }

SEC("tc")
int sflow_egress(struct __sk_buff* packet) { return Look(packet, 1); }

// The same for hooks that outlive the process: they pass everything on once its heartbeat is older than
// STALE_NS.
static __always_inline int Lives(void)
{
    return bpf_ktime_get_coarse_ns() <= Volatile(shared.heartbeat) + STALE_NS;
}

SEC("tc")
int sflow_ingress_while_alive(struct __sk_buff* packet) { return Lives() ? Look(packet, 0) : TC_NEXT; }

SEC("tc")
int sflow_egress_while_alive(struct __sk_buff* packet) { return Lives() ? Look(packet, 1) : TC_NEXT; }

// The kernel takes "GPL" for a program under the GPL's version 2, and has no word for the choice between that
// and Apache-2.0.
char licence[] SEC("license") = "GPL";
