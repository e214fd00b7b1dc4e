// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/traffic_watch.h"

#include <utility>

#include "base/timers.h"

namespace manager {

TrafficWatch::TrafficWatch(base::Timers& timers, DataSources& sources, std::function<WallTime()> clock)
    : m_timers(timers), m_sources(sources), m_clock(std::move(clock))
{
}

void TrafficWatch::SetSource(capture::PacketSource* source)
{
    m_source = source;
    if (source == nullptr) m_next.reset();
}

void TrafficWatch::Begin(DataSource& source)
{
    source.grownAt = m_clock();
    if (m_next == nullptr) WaitForNext();
}

void TrafficWatch::WaitForNext()
{
    m_next = m_timers.After(kEvery, [this] {
        m_next.reset();
        if (m_source == nullptr) return;
        const auto all = m_source->ReadAll();
        for (const auto& [ifIndex, counts] : all) Note(ifIndex, counts);
        if (!all.empty()) WaitForNext();
    });
}

TrafficWatch::Counts TrafficWatch::Look()
{
    Counts counts;
    if (m_source == nullptr) return counts;
    for (const auto& [ifIndex, one] : m_source->ReadAll()) {
        counts[ifIndex] = one;
        Note(ifIndex, one);
    }
    return counts;
}

capture::Counts TrafficWatch::Look(const DataSource& source)
{
    if (m_source == nullptr || !source.sampledWith) return {};
    const capture::Counts counts = m_source->Read(source.ifIndex);
    Note(source.ifIndex, counts);
    return counts;
}

void TrafficWatch::Note(std::uint32_t ifIndex, const capture::Counts& counts)
{
    const auto at = m_sources.find(ifIndex);
    if (at == m_sources.end()) return;
    DataSource& source = at->second;
    const std::uint64_t pool = source.before.pool + counts.pool;
    if (std::exchange(source.grownTo, pool) != pool) source.grownAt = m_clock();
}

std::chrono::seconds TrafficWatch::QuietFor(const DataSource& source) const
{
    if (!source.sampledWith) return {};
    return std::chrono::floor<std::chrono::seconds>(m_clock() - source.grownAt);
}

}  // namespace manager
