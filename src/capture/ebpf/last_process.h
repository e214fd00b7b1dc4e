// SPDX-License-Identifier: Apache-2.0
// Unmakes at the end what takes longer than a process should take to end. Used by hooks.h.
//
// To unmake one hook at tcx the kernel waits some 10 to 20 ms, holding its lock of links, and before that as
// long as others hold the lock: hundreds of hooks take seconds, and a thread that waits so can't be killed.
// It would be the same if the kernel closed the links of a process that has ended: it does so within that
// process. So a child does it, and the process ends without it.

#ifndef CAPTURE_EBPF_LAST_PROCESS_H
#define CAPTURE_EBPF_LAST_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace capture {

/// What is left at the end.
struct LeftHooks {
    std::size_t count = 0;
    std::vector<int> files;       // that `unmake` needs
    std::function<void()> letGo;  // closes the calling process's copies of what `unmake` closes
    std::function<void()> unmake;
};

/// Calls `unmake` in a child of this process that has none of its other files, and waits for its end.
/// Returns the child's process id if it has not ended after `patience`; it goes on and ends by itself. If
/// there can be no child, unmakes in this process, however long that takes.
std::optional<pid_t> UnmakeInLastProcess(const LeftHooks& left, std::chrono::milliseconds patience);

}  // namespace capture

#endif
