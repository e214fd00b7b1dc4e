// SPDX-License-Identifier: Apache-2.0
#include "manager/status/statistics.h"

#include <array>
#include <cstdint>

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

}  // namespace

void Statistics::Clear(const StatusSources& sources, WallTime now)
{
    m_since = now;
    m_collectors.clear();
    m_interfaces.clear();
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

}  // namespace manager
