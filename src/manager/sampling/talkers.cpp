// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/talkers.h"

#include <algorithm>

namespace manager {

base::expected<TopTalkers, std::string> Talkers::Look(const std::string& name, const InterfaceStatus& status)
{
    const auto at = m_sources.find(status.ifIndex);
    if (!status.sampled || at == m_sources.end())
        return base::Unexpected("no packets are sampled at interface " + name + "; show sflow interface " +
                                name + " detail says why");
    const auto now = m_timers.Now();
    if (at->second.talkers) return at->second.talkers->Look(now);
    EndUnwatched();
    if (m_watched.size() >= kMaxInterfaces)
        return base::Unexpected(
            "the talkers of " + std::to_string(kMaxInterfaces) +
            " other interfaces are looked at; try again when one of these looks has ended");
    at->second.talkers = std::make_unique<TalkerTable>(now);
    m_watched.push_back(status.ifIndex);
    if (!m_timer) m_timer = m_timers.After(std::chrono::seconds(1), [this] { EndUnwatched(); });
    return at->second.talkers->Look(now);
}

void Talkers::EndUnwatched()
{
    const auto now = m_timers.Now();
    std::erase_if(m_watched, [&](std::uint32_t ifIndex) {
        const auto at = m_sources.find(ifIndex);
        if (at == m_sources.end() || !at->second.talkers) return true;
        if (now - at->second.talkers->LastLook() < kKept) return false;
        at->second.talkers.reset();
        return true;
    });
    m_timer.reset();
    if (!m_watched.empty()) m_timer = m_timers.After(std::chrono::seconds(1), [this] { EndUnwatched(); });
}

}  // namespace manager
