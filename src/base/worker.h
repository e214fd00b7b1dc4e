// SPDX-License-Identifier: Apache-2.0
// Runs tasks that may have to wait for the kernel in one thread beside the loop, one after the other, so that
// the loop need not wait. A dependency like time: tests have one that runs them at once. Used by sflow-mgr
// for requests that wait while another process changes links, and by cdbd's bench and backup. Under it, a
// single thread: used by capture to close packet sockets.

#ifndef BASE_WORKER_H
#define BASE_WORKER_H

#include <chrono>
#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace base {

class Worker {
public:
    Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    virtual ~Worker() = default;

    /// Calls `work` in the thread and then `done` from the loop; neither from within this call. Dropping the
    /// result cancels: `done` is not called then, nor `work` unless it has begun. A `work` that has begun may
    /// outlast the worker: it must own all that it touches. It must neither throw nor write to the log. The
    /// queue has no bound: a caller has one task under way at a time.
    [[nodiscard]] virtual std::shared_ptr<void> Do(std::function<void()> work,
                                                   std::function<void()> done) = 0;
};

/// How long a worker's destructor waits for the task under way before it leaves the task to itself.
constexpr std::chrono::milliseconds kWorkerPatience{100};

/// For tasks that use objects destroyed after the worker: the destructor waits until the task under way is
/// done.
constexpr std::chrono::milliseconds kWorkerWaits{std::chrono::hours(24)};

/// On the loop given, which must outlive it. The loop makes the thread at the first task, so the thread has
/// the rights that the process has kept by then. If no thread can be made the loop does the work. Throws
/// std::system_error if no descriptor is left.
std::unique_ptr<Worker> MakeWorker(boost::asio::io_context& loop,
                                   std::chrono::milliseconds patience = kWorkerPatience);

/// Calls `run` in a detached thread that takes no signals, which are the loop's, and has a stack of 256 KiB
/// and the rights of the calling thread. `run` must own what it uses, and not throw. Returns false if no
/// thread can be made; then `run` was not called.
[[nodiscard]] bool BeginThread(std::function<void()> run);

}  // namespace base

#endif
