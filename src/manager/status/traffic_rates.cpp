// SPDX-License-Identifier: Apache-2.0
#include "manager/status/traffic_rates.h"

#include <cmath>
#include <utility>

namespace manager {
namespace {

std::uint64_t Rate(std::uint64_t before, std::uint64_t now, double seconds)
{
    return now <= before
               ? 0
               : static_cast<std::uint64_t>(std::llround(static_cast<double>(now - before) / seconds));
}

}  // namespace

TrafficRates::TrafficRates(base::Timers& timers, std::function<TrafficCounts()> count)
    : m_timers(timers), m_count(std::move(count)), m_lastTime(timers.Now())
{
    Wait();
}

void TrafficRates::Wait()
{
    m_timer = m_timers.After(kPeriod, [this] {
        const TrafficCounts now = m_count();
        const auto time = m_timers.Now();
        const double seconds = std::chrono::duration<double>(time - m_lastTime).count();
        m_perSecond = {Rate(m_last.samples, now.samples, seconds),
                       Rate(m_last.datagrams, now.datagrams, seconds)};
        m_last = now;
        m_lastTime = time;
        Wait();
    });
}

}  // namespace manager
