// SPDX-License-Identifier: Apache-2.0
// Time as a dependency: what reconnects, checks or gives up takes one of these, and tests advance it.

#ifndef BASE_TIMERS_H
#define BASE_TIMERS_H

#include <chrono>
#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace base {

/// A timer that is set over and over. What is on the hot path has one: to set it allocates nothing and costs
/// one system call.
class Alarm {
public:
    Alarm() = default;
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;
    virtual ~Alarm() = default;

    /// The action is called once, `delay` from now, and not at the time that was set before.
    virtual void Set(std::chrono::milliseconds delay) = 0;
    virtual void Cancel() = 0;
};

class Timers {
public:
    Timers() = default;
    Timers(const Timers&) = delete;
    Timers& operator=(const Timers&) = delete;
    virtual ~Timers() = default;

    /// Calls `action` once from the loop, `delay` from now. Dropping the result cancels it.
    [[nodiscard]] virtual std::shared_ptr<void> After(std::chrono::milliseconds delay,
                                                      std::function<void()> action) = 0;

    /// Not set yet. Dropping it cancels it. Throws std::system_error when there are no descriptors left.
    [[nodiscard]] virtual std::unique_ptr<Alarm> MakeAlarm(std::function<void()> action);
};

/// The real time, on the loop given, which must outlive it.
std::unique_ptr<Timers> MakeTimers(boost::asio::io_context& loop);

}  // namespace base

#endif
