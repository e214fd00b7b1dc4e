// SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0
// How many frames it is to the next sampled one: one function, the same for the program in the kernel and
// for the tests of its distribution. C and C++.
//
// The gaps are geometric, P(gap > k) = (1 - 1/rate)^k, so each frame is sampled with the probability 1/rate
// whatever was sampled before it. Such gaps have no memory: a gap may be sampled anew at any moment, and
// every CPU may count its own, without any bias. Made by inverse transform: gap = 1 + floor(E / lambda) with
// E = -ln(U) and lambda = -ln(1 - 1/rate), in fixed point and with logarithms of base 2, so
// gap = 1 + floor(-log2(U) * scale), scale = ln 2 / lambda. Nothing here is floating: user space makes
// table and scale (capture/ebpf/gap.h).

#ifndef CAPTURE_BPF_GAP_H
#define CAPTURE_BPF_GAP_H

#include <linux/types.h>

enum {
    kLogTableBits = 10,
    kLogTableSize = (1 << kLogTableBits) + 1,
};

/// scale = multiplier / 2^(shift - 32), multiplier below 2^26. Rate 1 has the multiplier 0.
struct GapScale {
    __u32 multiplier;
    __u32 shift;
};

/// `table[i]` is log2(1 + i/1024) * 2^32, the last one 2^32 cut to 0; `bits` are random.
static inline __attribute__((always_inline)) __u32 GapOf(__u64 bits, struct GapScale scale,
                                                         const volatile __u32* table)
{
    __u64 mantissa, below, minusLog;
    __u32 zeros = 0, index, low, step;

    // Moves the highest set bit to the top, without branches: BPF has no instruction that counts zeros.
    bits |= 1;
    for (int half = 32; half > 0; half >>= 1) {
        const __u32 shift = (__u32)((((bits >> (64 - half)) - 1) >> 63) * (__u32)half);
        bits <<= shift;
        zeros += shift;
    }
    mantissa = bits << 1;  // without its leading one
    index = (__u32)(mantissa >> (64 - kLogTableBits));
    below = (mantissa >> 32) & ((1U << (32 - kLogTableBits)) - 1);
    low = table[index];
    step = table[index + 1] - low;
    // 64 - log2(bits), with 32 bits behind the point: at most 2^38, so the product fits.
    minusLog = ((__u64)(zeros + 1) << 32) - (low + ((step * below) >> (32 - kLogTableBits)));
    return 1 + (__u32)((minusLog * scale.multiplier) >> scale.shift);
}

#endif
