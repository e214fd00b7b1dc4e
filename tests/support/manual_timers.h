// SPDX-License-Identifier: Apache-2.0
// Time that tests advance.

#ifndef SUPPORT_MANUAL_TIMERS_H
#define SUPPORT_MANUAL_TIMERS_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "base/timers.h"

namespace support {

class ManualTimers final : public base::Timers {
public:
    using Milliseconds = std::chrono::milliseconds;

    [[nodiscard]] std::chrono::steady_clock::time_point Now() const override
    {
        return std::chrono::steady_clock::time_point(m_elapsed);
    }

    std::shared_ptr<void> After(Milliseconds delay, std::function<void()> action) override
    {
        if (m_pending.size() >= m_roomBeforeTidying) Tidy();
        auto held = std::make_shared<std::function<void()>>(std::move(action));
        m_pending.emplace(m_elapsed + delay, held);
        if (delay.count() > 0) delays.push_back(delay);
        return held;
    }

    /// Runs what falls due within the time given, in order. Returns whether anything did.
    bool Advance(Milliseconds by)
    {
        const auto end = m_elapsed + by;
        bool hasRun = false;
        while (!m_pending.empty() && m_pending.begin()->first <= end) {
            const auto node = m_pending.extract(m_pending.begin());
            m_elapsed = node.key();
            const auto action = node.mapped().lock();
            if (!action) continue;
            hasRun = true;
            (*action)();
        }
        m_elapsed = end;
        return hasRun;
    }

    /// Time that has passed; within an action, that at which it fell due.
    [[nodiscard]] Milliseconds Elapsed() const { return m_elapsed; }

    /// How many actions wait, without those that were cancelled.
    [[nodiscard]] std::size_t Waiting() const
    {
        std::size_t waiting = 0;
        for (const auto& [when, action] : m_pending) waiting += action.expired() ? 0 : 1;
        return waiting;
    }

    /// Every delay asked for, except zero, in order.
    std::vector<Milliseconds> delays;

private:
    /// Drops those that were cancelled: a long test may set and cancel millions.
    void Tidy()
    {
        std::erase_if(m_pending, [](const auto& each) { return each.second.expired(); });
        m_roomBeforeTidying = 2 * m_pending.size() + 64;
    }

    std::size_t m_roomBeforeTidying = 64;
    Milliseconds m_elapsed{0};
    std::multimap<Milliseconds, std::weak_ptr<std::function<void()>>> m_pending;
};

}  // namespace support

#endif
