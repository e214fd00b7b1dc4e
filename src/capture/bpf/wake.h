// SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0
// How a program in the kernel wakes the process that reads its ring: two words that both sides write. C and
// C++.

#ifndef CAPTURE_BPF_WAKE_H
#define CAPTURE_BPF_WAKE_H

#include <linux/types.h>

struct WakeWords {
    /// 1: user space sleeps; the program wakes it for the next record and sets this to 0.
    __u32 waiting;
    /// 1: user space has been woken because the ring fills; it sets this to 0 before it looks.
    __u32 pressing;
};

#endif
