// SPDX-License-Identifier: Apache-2.0
// Slots of interfaces, used again when an interface goes.

#include "capture/ebpf/ports.h"

namespace capture {

EbpfPorts::Port& EbpfPorts::Add(std::uint32_t ifIndex)
{
    std::uint32_t slot = 0;
    if (m_free.empty()) {
        slot = static_cast<std::uint32_t>(m_slots.size());
        m_slots.emplace_back();
    } else {
        slot = m_free.back();
        m_free.pop_back();
    }
    if (++m_incarnation == 0) ++m_incarnation;
    m_byIndex[ifIndex] = slot;
    Port& port = m_slots[slot];
    port = Port{};
    port.ifIndex = ifIndex;
    port.slot = slot;
    port.incarnation = m_incarnation;
    return port;
}

EbpfPorts::Port* EbpfPorts::Find(std::uint32_t ifIndex)
{
    const auto found = m_byIndex.find(ifIndex);
    return found == m_byIndex.end() ? nullptr : &m_slots[found->second];
}

const EbpfPorts::Port* EbpfPorts::Find(std::uint32_t ifIndex) const
{
    const auto found = m_byIndex.find(ifIndex);
    return found == m_byIndex.end() ? nullptr : &m_slots[found->second];
}

void EbpfPorts::Remove(std::uint32_t ifIndex)
{
    const auto found = m_byIndex.find(ifIndex);
    if (found == m_byIndex.end()) return;
    m_slots[found->second] = Port{};
    m_free.push_back(found->second);
    m_byIndex.erase(found);
}

}  // namespace capture
