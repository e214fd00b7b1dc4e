// SPDX-License-Identifier: Apache-2.0
#include "manager/status/statistics.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace manager {
namespace {

constexpr std::array kOfStreams = {&StreamStatus::datagrams,   &StreamStatus::bytes,
                                   &StreamStatus::flowSamples, &StreamStatus::counterSamples,
                                   &StreamStatus::discards,    &StreamStatus::lostDatagrams,
                                   &StreamStatus::lostSamples, &StreamStatus::errors};
constexpr std::array kOfInterfaces = {&InterfaceStatus::packetsSeen,      &InterfaceStatus::samples,
                                      &InterfaceStatus::sampledBytes,     &InterfaceStatus::dropsBuffer,
                                      &InterfaceStatus::dropsNoCollector, &InterfaceStatus::countersSent};

template <typename Status, typename Counts>
void Subtract(const std::map<std::string, Status>& cleared, const std::string& name, const Counts& counts,
              Status& status)
{
    const auto at = cleared.find(name);
    if (at == cleared.end()) return;
    for (const auto count : counts)
        if (status.*count < at->second.*count) return;
    for (const auto count : counts) status.*count -= at->second.*count;
}

void Subtract(const DropsAtInterface& cleared, DropsAtInterface& drops)
{
    if (drops.packets < cleared.packets || drops.untold < cleared.untold) return;
    drops.packets -= cleared.packets;
    drops.untold -= cleared.untold;
    for (DropsByReason& reason : drops.reasons) {
        const auto at = std::ranges::lower_bound(cleared.reasons, reason.name, {}, &DropsByReason::name);
        if (at != cleared.reasons.end() && at->name == reason.name && at->packets <= reason.packets)
            reason.packets -= at->packets;
    }
    std::erase_if(drops.reasons, [](const DropsByReason& reason) { return reason.packets == 0; });
}

}  // namespace

void Statistics::Clear(const StatusSources& sources, WallTime now)
{
    m_since = now;
    m_collectors.clear();
    m_interfaces.clear();
    m_drops.clear();
    if (sources.drops)
        for (DropsAtInterface& at : sources.drops()) m_drops.emplace(at.ifIndex, std::move(at));
    for (const auto& [name, collector] : sources.table.AllCollectors()) {
        const StreamStatus* stream = sources.collector ? sources.collector(name) : nullptr;
        if (stream != nullptr) m_collectors.emplace(name, *stream);
    }
    if (!sources.interface) return;
    for (const auto& [name, interface] : sources.table.AllInterfaces())
        m_interfaces.emplace(name, sources.interface(name));
}

void Statistics::Forget(const Touched& touched, const ServiceTable& table)
{
    for (const std::string& name : touched.collectors)
        if (!table.AllCollectors().contains(name)) m_collectors.erase(name);
    for (const std::string& name : touched.interfaces)
        if (!table.AllInterfaces().contains(name)) m_interfaces.erase(name);
}

void Statistics::Reduce(const std::string& collector, StreamStatus& status) const
{
    Subtract(m_collectors, collector, kOfStreams, status);
}

void Statistics::Reduce(const std::string& interface, InterfaceStatus& status) const
{
    Subtract(m_interfaces, interface, kOfInterfaces, status);
}

void Statistics::Reduce(std::vector<DropsAtInterface>& drops) const
{
    std::erase_if(drops, [this](DropsAtInterface& each) {
        const auto at = m_drops.find(each.ifIndex);
        if (at == m_drops.end()) return false;
        Subtract(at->second, each);
        return each.packets == 0;
    });
}

}  // namespace manager
