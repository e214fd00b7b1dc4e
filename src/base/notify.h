// SPDX-License-Identifier: Apache-2.0
// What a service tells the manager that has started it (sd_notify(3)): that it serves, that its loop still
// turns, that it ends. Without such a manager nothing is told. Used by all three processes.

#ifndef BASE_NOTIFY_H
#define BASE_NOTIFY_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/timers.h"

namespace base {

class ServiceNotifier {
public:
    using Environment = std::function<std::optional<std::string>(const char* name)>;

    /// Takes NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID from the environment given, by default the
    /// process's own, and opens the socket: later there may be no descriptor left. `timers` must outlive it
    /// and call from the loop that is watched.
    explicit ServiceNotifier(Timers& timers, const Environment& environment = {});
    /// Says that the service ends.
    ~ServiceNotifier();
    ServiceNotifier(const ServiceNotifier&) = delete;
    ServiceNotifier& operator=(const ServiceNotifier&) = delete;

    /// The service serves. From here on the loop reports at half of the watchdog's time.
    void Ready();

private:
    void Tell(std::string_view state) const;
    void Beat();

    Timers& m_timers;
    int m_socket = -1;
    std::chrono::milliseconds m_interval{0};  // 0: no watchdog
    std::shared_ptr<void> m_timer;
};

}  // namespace base

#endif
