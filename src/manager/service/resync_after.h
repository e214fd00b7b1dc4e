// SPDX-License-Identifier: Apache-2.0
// Has everything sent again once the operations of a session have come to rest. The client sends what
// changes, one commit at a time, and some commits leave the manager short of the configuration; a new
// session's load does not. For the loop.

#ifndef MANAGER_SERVICE_RESYNC_AFTER_H
#define MANAGER_SERVICE_RESYNC_AFTER_H

#include <chrono>
#include <functional>
#include <memory>

#include "base/timers.h"

namespace manager {

class ResyncAfter {
public:
    /// `rest`: from a session's last operation to the new session; 0: never. `isNeeded`: whether the session
    /// that there is has had operations since its load, whose own do not count: else it would go on for ever.
    /// `resync` asks for the new session.
    ResyncAfter(base::Timers& timers, std::chrono::milliseconds rest, std::function<bool()> isNeeded,
                std::function<void()> resync);

    /// An operation has come.
    void Note();

private:
    void Wait(std::chrono::milliseconds time);
    void Look();

    base::Timers& m_timers;
    const std::chrono::milliseconds m_rest;
    const std::function<bool()> m_isNeeded;
    const std::function<void()> m_resync;
    std::chrono::steady_clock::time_point m_last;  // operation
    std::shared_ptr<void> m_timer;                 // null while there is none
};

}  // namespace manager

#endif
