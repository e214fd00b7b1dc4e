// SPDX-License-Identifier: Apache-2.0
// Timers that fire when a test says so.

#ifndef TESTS_FAKES_MANUAL_TIMERS_H
#define TESTS_FAKES_MANUAL_TIMERS_H

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "base/timers.h"

class ManualTimers final : public base::Timers {
public:
    using Milliseconds = std::chrono::milliseconds;

    std::shared_ptr<void> After(Milliseconds delay, std::function<void()> action) override
    {
        auto pending = std::make_shared<Pending>(Pending{m_now + delay, std::move(action)});
        m_pending.push_back(pending);
        if (delay.count() > 0) delays.push_back(delay);
        return pending;
    }

    /// Lets the time pass, and calls what is due by then. True when something was.
    bool Advance(Milliseconds time)
    {
        m_now += time;
        std::vector<std::shared_ptr<Pending>> due;
        std::erase_if(m_pending, [&](const std::weak_ptr<Pending>& weak) {
            const auto pending = weak.lock();
            if (pending == nullptr) return true;
            if (pending->when <= m_now) due.push_back(pending);
            return pending->when <= m_now;
        });
        for (const auto& pending : due) {
            const auto action = std::move(pending->action);
            action();
        }
        return !due.empty();
    }

    /// Every delay asked for, but the zero ones, in order.
    std::vector<Milliseconds> delays;

private:
    struct Pending {
        Milliseconds when;
        std::function<void()> action;
    };

    Milliseconds m_now{0};
    std::vector<std::weak_ptr<Pending>> m_pending;
};

#endif
