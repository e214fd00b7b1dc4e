// Time as a dependency: what reconnects, checks or gives up takes one of these, and tests advance it.

#ifndef IPC_TIMERS_H
#define IPC_TIMERS_H

#include <chrono>
#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace ipc {

class Timers {
public:
    Timers() = default;
    Timers(const Timers&) = delete;
    Timers& operator=(const Timers&) = delete;
    virtual ~Timers() = default;

    /// Calls `action` once from the loop, `delay` from now. Dropping the result cancels it.
    [[nodiscard]] virtual std::shared_ptr<void> After(std::chrono::milliseconds delay,
                                                      std::function<void()> action) = 0;
};

/// The real time, on the loop given, which must outlive it.
std::unique_ptr<Timers> MakeTimers(boost::asio::io_context& loop);

}  // namespace ipc

#endif
