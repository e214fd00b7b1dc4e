// SPDX-License-Identifier: Apache-2.0
// Time that tests advance.

#ifndef TESTS_UNIT_MANAGER_FAKE_TIMERS_H
#define TESTS_UNIT_MANAGER_FAKE_TIMERS_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>

#include "base/timers.h"

class FakeTimers : public base::Timers {
public:
    std::shared_ptr<void> After(std::chrono::milliseconds delay, std::function<void()> action) override
    {
        auto held = std::make_shared<std::function<void()>>(std::move(action));
        m_pending.emplace(m_now + delay, held);
        return held;
    }

    /// Runs what falls due within the time given, in order.
    void Advance(std::chrono::milliseconds by)
    {
        const auto end = m_now + by;
        while (!m_pending.empty() && m_pending.begin()->first <= end) {
            const auto node = m_pending.extract(m_pending.begin());
            m_now = node.key();
            if (const auto action = node.mapped().lock()) (*action)();
        }
        m_now = end;
    }

    /// Time that has passed; within an action, that at which it fell due.
    [[nodiscard]] std::chrono::milliseconds Now() const { return m_now; }

    /// How many actions wait, those that were cancelled aside.
    [[nodiscard]] std::size_t Waiting() const
    {
        std::size_t waiting = 0;
        for (const auto& [when, action] : m_pending) waiting += action.expired() ? 0 : 1;
        return waiting;
    }

private:
    std::chrono::milliseconds m_now{0};
    std::multimap<std::chrono::milliseconds, std::weak_ptr<std::function<void()>>> m_pending;
};

#endif
