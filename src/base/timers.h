// SPDX-License-Identifier: Apache-2.0
// Time as a dependency: code that reconnects, checks or gives up takes a Timers, and tests advance theirs.

#ifndef BASE_TIMERS_H
#define BASE_TIMERS_H

#include <chrono>
#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace base {

/// A timer that is set again and again, for hot paths: setting it allocates nothing and costs one system
/// call.
class Alarm {
public:
    Alarm() = default;
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;
    virtual ~Alarm() = default;

    /// Fires once from the loop, `delay` from now; replaces an earlier setting.
    virtual void Set(std::chrono::milliseconds delay) = 0;
    virtual void Cancel() = 0;
};

class Timers {
public:
    Timers() = default;
    Timers(const Timers&) = delete;
    Timers& operator=(const Timers&) = delete;
    virtual ~Timers() = default;

    [[nodiscard]] virtual std::chrono::steady_clock::time_point Now() const = 0;

    /// Calls `action` once from the loop, `delay` from now. Dropping the result cancels it.
    [[nodiscard]] virtual std::shared_ptr<void> After(std::chrono::milliseconds delay,
                                                      std::function<void()> action) = 0;
    /// The same at a time by Now; from the loop's next turn if it has passed.
    [[nodiscard]] std::shared_ptr<void> At(std::chrono::steady_clock::time_point time,
                                           std::function<void()> action);

    /// An alarm that is not set yet; dropping it cancels it. Throws std::system_error if no descriptor is
    /// left.
    [[nodiscard]] virtual std::unique_ptr<Alarm> MakeAlarm(std::function<void()> action);
};

/// The steady clock, on the loop given, which must outlive the result.
std::unique_ptr<Timers> MakeTimers(boost::asio::io_context& loop);

}  // namespace base

#endif
