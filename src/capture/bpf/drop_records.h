// SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0
// What the program that sees drops and the process exchange: map keys and values, shared words and the
// records of the ring. C and C++; host byte order throughout, unless said.

#ifndef CAPTURE_BPF_DROP_RECORDS_H
#define CAPTURE_BPF_DROP_RECORDS_H

#include <linux/types.h>

#include "wake.h"

enum {
    kLimitSlots = 16384,   // more than the largest limit; a power of two
    kMaxDropHeader = 512,  // bytes of a packet in a record
    kMaxDropSymbol = 128,  // bytes of a function's name, with the zero at its end
    kKnownReasons = 256,   // of the kernel's core, from 0 on
};

/// What one CPU has counted at one interface: value of `interfaces`.
struct DropInterface {
    __u64 drops;     // all
    __u64 untold;    // of these, those without a record: over the limit, or no room
    __u64 own;       // of these, the process's own packets, which get no record either
    __u64 nameless;  // of these, those that found no room in `reasons`
    __u32 generation;
    __u32 unused;
};

/// Key of `reasons`.
struct DropReasonKey {
    __u32 ifIndex;
    __u32 reason;
};

/// What one CPU has counted of one reason at one interface: value of `reasons`.
struct DropReasonCount {
    __u64 drops;
    __u64 last;  // when the newest was, nanoseconds of the monotonic clock
};

/// A drop; `captured` bytes of the packet follow.
struct DropRecord {
    __u64 location;  // in the kernel: where the call returns to that dropped it
    __u64 time;      // nanoseconds of the monotonic clock, to about a microsecond
    __u32 reason;
    __u32 ifIndex;  // where it was dropped; 0: not known
    __u32 input;    // by which interface it had entered; 0: it was made here, or is not known
    __u32 output;   // by which interface it was to leave; 0: not known
    __u32 length;   // from `start` on
    __u16 etherType;
    __u16 tagProtocol;  // of a tag that the kernel took out; 0: none
    __u16 tagControl;
    __u16 captured;
    __s16 routeError;  // of the packet's route: an errno, negative in IPv6; 0: none
    __u8 start;        // what the bytes begin with: DropStart
    __u8 unused;
};

/// What a reason says, by its number: value of `meanings`.
enum DropMeaning {
    kAlwaysDrop,
    kNeverDrop,     // the packet has come where it was to come
    kDropAtDevice,  // one if a device has the packet; sockets give theirs back with the same reason
};

enum DropStart {
    kStartUnknown,  // no bytes
    kStartEthernet,
    kStartIpv4,
    kStartIpv6,
};

/// Words that both sides write, and what user space sets.
struct DropWords {
    struct WakeWords wake;
    __u32 limit;       // records a second of all CPUs together, below kLimitSlots; 0: none
    __u32 wanted;      // bytes of a packet's beginning
    __u32 all;         // 1: every interface, 0: those in `configured`
    __u32 generation;  // changes with `all` and `configured`; never 0
    __u64 net;         // the kernel's address of the process's network namespace
    // Drops at interfaces for which there was no room in `interfaces`.
    __u64 beyond;
    __u64 beyondUntold;
};

/// Question and answer of sflow_symbol.
struct DropSymbol {
    __u64 location;
    char text[kMaxDropSymbol];
};

#endif
