// SPDX-License-Identifier: Apache-2.0
// Tells the service manager that has started the process (sd_notify(3)) that it is ready, that its loop still
// runs, and that it ends. Without such a manager it does nothing. Used by cdbd, sflow-mgr and the daemon.

#ifndef IPC_NOTIFY_H
#define IPC_NOTIFY_H

#include <chrono>
#include <memory>
#include <string_view>

#include "base/environment.h"
#include "base/timers.h"
#include "base/unique_fd.h"

namespace ipc {

class ServiceNotifier {
public:
    /// Takes NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID from the variables given, by default the
    /// process's own, and opens the socket, since later there may be no descriptor left. An unusable
    /// NOTIFY_SOCKET is logged. `timers` must outlive this and call from the loop that is watched.
    explicit ServiceNotifier(base::Timers& timers, const base::Variables& variables = &base::Variable);
    /// Reports that the service ends.
    ~ServiceNotifier() { Tell("STOPPING=1"); }
    ServiceNotifier(const ServiceNotifier&) = delete;
    ServiceNotifier& operator=(const ServiceNotifier&) = delete;

    /// Reports that the service is ready, and from now on twice in each watchdog time that the loop runs.
    void Ready();

private:
    void Tell(std::string_view state) const;
    void Beat();

    base::Timers& m_timers;
    base::UniqueFd m_socket;
    std::chrono::milliseconds m_interval{0};  // 0: no watchdog
    std::shared_ptr<void> m_timer;
};

}  // namespace ipc

#endif
