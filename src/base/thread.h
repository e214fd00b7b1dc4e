// SPDX-License-Identifier: Apache-2.0
// How a process of one loop begins a thread beside it. Used by the worker of this folder, and by what closes
// packet sockets.

#ifndef BASE_THREAD_H
#define BASE_THREAD_H

#include <functional>

namespace base {

/// Calls `run` in a thread of its own. It takes no signals, which are the loop's, has a small stack and the
/// rights of the thread that begins it. Nobody waits for it: `run` must own what it uses, and not throw.
/// False where no thread can be made; then `run` was not called.
[[nodiscard]] bool BeginThread(std::function<void()> run);

}  // namespace base

#endif
