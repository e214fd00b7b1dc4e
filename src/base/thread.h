// SPDX-License-Identifier: Apache-2.0
// A thread beside the loop of a process. Used by the worker of this folder, and by capture to close packet
// sockets.

#ifndef BASE_THREAD_H
#define BASE_THREAD_H

#include <functional>

namespace base {

/// Calls `run` in a detached thread that takes no signals, which are the loop's, and has a stack of 256 KiB
/// and the rights of the calling thread. `run` must own what it uses, and not throw. Returns false if no
/// thread can be made; then `run` was not called.
[[nodiscard]] bool BeginThread(std::function<void()> run);

}  // namespace base

#endif
