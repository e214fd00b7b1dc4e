// SPDX-License-Identifier: Apache-2.0
// How many samples and datagrams leave in a second, over the last few seconds. For the loop.

#ifndef MANAGER_STATUS_TRAFFIC_RATES_H
#define MANAGER_STATUS_TRAFFIC_RATES_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "base/timers.h"

namespace manager {

/// Of all collectors together.
struct TrafficCounts {
    std::uint64_t samples = 0;    // of packets and of counters
    std::uint64_t datagrams = 0;  // that have taken them
};

class TrafficRates {
public:
    /// From one look at the counts to the next.
    static constexpr std::chrono::milliseconds kPeriod{5'000};

    /// `count` gives the counts since the start; less than before where a collector has gone.
    TrafficRates(base::Timers& timers, std::function<TrafficCounts()> count);

    /// In a second, over the last kPeriod; zero before the first one is over.
    [[nodiscard]] TrafficCounts PerSecond() const { return m_perSecond; }

private:
    void Wait();

    base::Timers& m_timers;
    const std::function<TrafficCounts()> m_count;
    TrafficCounts m_last;
    TrafficCounts m_perSecond;
    std::chrono::steady_clock::time_point m_lastTime;
    std::shared_ptr<void> m_timer;
};

}  // namespace manager

#endif
