// SPDX-License-Identifier: Apache-2.0
#include "manager/export/exporter.h"

#include <utility>

namespace manager {

Exporter::Exporter(Clock clock, Uptime uptime, std::uint32_t mark)
{
    m_shared.clock = std::move(clock);
    m_shared.uptime = std::move(uptime);
    m_shared.mark = mark;
    if (const std::error_code error = StreamSocket::CheckMark(mark)) m_shared.limitation = WithoutMark(error);
}

void Exporter::SetAgentAddress(std::uint32_t address)
{
    if (address == m_shared.agentAddress) return;
    Flush();
    m_shared.agentAddress = address;
}

Stream& Exporter::Set(const std::string& name, const CollectorSettings& settings, const SendSettings& send)
{
    const auto [at, isNew] = m_streams.try_emplace(name, name, settings, send, m_shared);
    if (!isNew) at->second.Change(settings, send);
    return at->second;
}

void Exporter::Remove(const std::string& name)
{
    const auto found = m_streams.find(name);
    if (found == m_streams.end()) return;
    found->second.Send();
    m_streams.erase(found);
}

Stream* Exporter::Find(const std::string& name)
{
    const auto found = m_streams.find(name);
    return found == m_streams.end() ? nullptr : &found->second;
}

void Exporter::TakeErrors()
{
    for (auto& [name, stream] : m_streams) stream.TakeErrors();
}

void Exporter::Restart(std::uint32_t subAgent)
{
    Flush();
    m_shared.subAgent = subAgent;
    for (auto& [name, stream] : m_streams) stream.Restart();
}

wire::DatagramHeader Exporter::Head() const
{
    wire::DatagramHeader head;
    head.agentAddress = m_shared.agentAddress;
    head.subAgent = m_shared.subAgent;
    head.uptime = static_cast<std::uint32_t>(m_shared.uptime().count());
    return head;
}

}  // namespace manager
