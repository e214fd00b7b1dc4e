// SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0
// What the program in the kernel and the process exchange: map values, shared words and the records of the
// ring. C and C++; host byte order throughout.

#ifndef CAPTURE_BPF_RECORDS_H
#define CAPTURE_BPF_RECORDS_H

#include <linux/types.h>

#include "gap.h"
#include "wake.h"

enum {
    kMaxPorts = 65536,       // interfaces times directions
    kDirectPorts = 8192,     // places of `direct`, per CPU; a power of two
    kEgressBit = 1U << 31,   // of a port's key; the other bits are the interface's index
    kMaxRecordHeader = 512,  // bytes of a packet in the largest class of records
};

/// One port's settings, which user space writes: value of `settings`.
struct PortSettings {
    __u32 rate;
    struct GapScale scale;
    __u32 wanted;       // bytes of a packet's beginning
    __u32 slot;         // how user space finds the interface again; kEgressBit is set for that direction
    __u32 incarnation;  // tells it from the slot's former interfaces
};

/// One port's state on one CPU: value of `direct` and of `ports`. One cache line, with all that a packet that
/// is not sampled needs: another line or page would cost it nanoseconds.
struct PortState {
    __u64 pool;   // frames seen
    __u64 drops;  // frames sampled that found no room
    __u32 skip;   // the next sampled frame is the skip-th from here; 0: none is counted or sampled
    __u32 stale;  // not 0: user space has changed the settings; the program takes them and draws a new skip
    __u32 key;    // of the port that has this place; 0: free
    __u32 mark;   // of packets that are neither counted nor sampled; 0: none
    struct PortSettings settings;  // the counts are those of this incarnation
    __u32 generation;              // in `ports` only: of the settings; 0: never taken
} __attribute__((aligned(64)));

/// A port's place in `direct`. The first port that came to the place has it, all others are in `ports`. The
/// kernel gives out indexes one by one, so there is hardly ever a second one.
static inline __attribute__((always_inline)) __u32 DirectPlace(__u32 cpu, __u32 ifIndex, __u32 egress)
{
    return cpu * kDirectPorts + ((ifIndex * 2 + egress) & (kDirectPorts - 1));
}

/// State of one CPU, all ports together. One cache line.
struct CpuState {
    __u64 bytes;  // written since the CPU last checked the fill of the ring
    __u64 unused[7];
};

/// A sampled packet; `captured` bytes of it follow. With the eight bytes that the ring puts before it, it
/// fills a cache line, and the rooms for the packet are whole lines: a line that the consumer's CPU has read
/// must be fetched back.
struct Record {
    __u64 pool;  // of this port and CPU, this packet included
    __u64 drops;
    __u32 slot;
    __u32 incarnation;
    __u32 rate;
    __u32 origin;
    __u32 length;
    __u16 hits;
    __u16 segments;
    __u16 segmentSize;
    __u16 etherType;
    __u16 tagProtocol;
    __u16 tagControl;
    __u16 captured;
    __u16 cpu;
    __u32 unused;
};

/// Words that both sides write.
struct SharedWords {
    /// Changes when user space changes the settings of a port in `ports`, whose states it can't write to.
    /// Never 0.
    __u32 generation;
    struct WakeWords wake;
    __u32 unused;
    /// Nanoseconds of the monotonic clock when user space last said that it lives.
    __u64 heartbeat;
};

#endif
