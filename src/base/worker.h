// SPDX-License-Identifier: Apache-2.0
// Does what may have to wait for the kernel beside the loop, in one thread, one task after the other, so that
// the loop need not wait. A dependency like time: tests have one that does it at once. Used by the manager
// for requests that wait while somebody else changes links.

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

    /// Calls `work` aside and then `done` from the loop; neither from within this call. Dropping the result
    /// cancels: `done` is not called then, nor `work` unless it has begun. What has begun may go on when the
    /// worker itself has gone: `work` must own all that it touches. It must neither throw nor write to the
    /// log. Nothing bounds how much waits: who asks has one task under way at a time.
    [[nodiscard]] virtual std::shared_ptr<void> Do(std::function<void()> work,
                                                   std::function<void()> done) = 0;
};

/// At its end a worker waits so long for the task that is under way, then leaves it to itself.
constexpr std::chrono::milliseconds kWorkerPatience{100};

/// For works that use what goes after the worker: it waits until the task under way is done.
constexpr std::chrono::milliseconds kWorkerWaits{std::chrono::hours(24)};

/// On the loop given, which must outlive it. The loop makes the thread when it runs and there is a task: the
/// thread has the rights that the process has left itself by then. Where none can be made the loop does the
/// work. Throws std::system_error when there are no descriptors left.
std::unique_ptr<Worker> MakeWorker(boost::asio::io_context& loop,
                                   std::chrono::milliseconds patience = kWorkerPatience);

}  // namespace base

#endif
