// SPDX-License-Identifier: Apache-2.0
#include "manager/export/exporter.h"

#include <unordered_map>
#include <utility>

#include "manager/export/collector_stream.h"
#include "manager/export/stream_shared.h"
#include "manager/export/stream_socket.h"

namespace manager {

class Exporter::Impl {
public:
    Impl(Clock clock, Uptime uptime, std::uint32_t mark)
    {
        m_shared.clock = std::move(clock);
        m_shared.uptime = std::move(uptime);
        m_shared.mark = mark;
        if (const std::error_code error = StreamSocket::CheckMark(mark))
            m_shared.limitation = WithoutMark(error);
    }

    StreamShared& Shared() { return m_shared; }

    Stream& Set(const std::string& name, const CollectorSettings& settings)
    {
        const auto found = m_streams.find(name);
        if (found == m_streams.end())
            return m_streams.try_emplace(name, name, settings, m_shared).first->second;
        found->second.Change(settings);
        return found->second;
    }

    void Remove(const std::string& name)
    {
        const auto found = m_streams.find(name);
        if (found == m_streams.end()) return;
        found->second.Send();
        m_streams.erase(found);
    }

    Stream* Find(const std::string& name)
    {
        const auto found = m_streams.find(name);
        return found == m_streams.end() ? nullptr : &found->second;
    }

    void TakeErrors()
    {
        for (auto& [name, stream] : m_streams) stream.TakeErrors();
    }

    void Restart()
    {
        m_shared.SendAll();
        for (auto& [name, stream] : m_streams) stream.Restart();
    }

private:
    StreamShared m_shared;  // the streams give their memory back to it
    std::unordered_map<std::string, CollectorStream> m_streams;
};

Exporter::Exporter(Clock clock, Uptime uptime, std::uint32_t mark)
    : m_impl(std::make_unique<Impl>(std::move(clock), std::move(uptime), mark))
{
}

Exporter::~Exporter() { Flush(); }

void Exporter::SetAgentAddress(std::uint32_t address)
{
    if (address == m_impl->Shared().agentAddress) return;
    Flush();
    m_impl->Shared().agentAddress = address;
}

Stream& Exporter::Set(const std::string& name, const CollectorSettings& settings)
{
    return m_impl->Set(name, settings);
}

void Exporter::Remove(const std::string& name) { m_impl->Remove(name); }

Stream* Exporter::Find(const std::string& name) { return m_impl->Find(name); }

void Exporter::Flush() { m_impl->Shared().SendAll(); }

void Exporter::TakeErrors() { m_impl->TakeErrors(); }

void Exporter::Restart() { m_impl->Restart(); }

const std::string& Exporter::Limitation() const { return m_impl->Shared().limitation; }

}  // namespace manager
