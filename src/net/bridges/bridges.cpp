// SPDX-License-Identifier: Apache-2.0
#include "net/bridges/bridges.h"

#include <algorithm>

namespace net {
namespace {

std::uint64_t Key(std::uint16_t vlan, const std::uint8_t* mac)
{
    std::uint64_t key = vlan;
    for (int i = 0; i < 6; ++i) key = key << 8 | mac[i];
    return key;
}

bool Floods(const BridgePort& port, Flood kind)
{
    switch (kind) {
    case Flood::kUnicast:
        return port.state.floodsUnicast;
    case Flood::kMulticast:
        return port.state.floodsMulticast;
    case Flood::kBroadcast:
        return port.state.floodsBroadcast;
    }
    return false;
}

bool Gets(const BridgePort& port, const Bridge& bridge, std::uint16_t vlan, Flood kind)
{
    return port.state.forwarding && Floods(port, kind) && (!bridge.filtering || port.In(vlan));
}

void Add(Bridge::Members& members, const BridgePort& port)
{
    if (members.count < members.first.size()) members.first[members.count] = &port;
    ++members.count;
}

Bridge::Floods Count(const Bridge& bridge, std::uint16_t vlan)
{
    Bridge::Floods floods;
    floods.counted = true;
    for (const Flood kind : {Flood::kUnicast, Flood::kMulticast, Flood::kBroadcast}) {
        const auto at = static_cast<std::size_t>(kind);
        for (const BridgePort* port : bridge.ports) {
            if (!Gets(*port, bridge, vlan, kind)) continue;
            Add(floods.all[at], *port);
            if (!port->state.isolated) Add(floods.open[at], *port);
        }
    }
    return floods;
}

void Enter(BridgePort& port, const std::vector<VlanRange>& vlans)
{
    for (const VlanRange& range : vlans) {
        if (port.vlans == nullptr) port.vlans = std::make_unique<BridgePort::Membership>();
        for (std::uint32_t vlan = range.first; vlan <= range.last && vlan < kVlans; ++vlan) {
            port.vlans->member[vlan] = true;
            port.vlans->untagged[vlan] = range.untagged;
        }
        if (range.pvid)
            port.pvid = range.last;
        else if (port.pvid >= range.first && port.pvid <= range.last)
            port.pvid = 0;
    }
}

}  // namespace

Bridges::~Bridges() = default;

const Bridges::ForwardingEntry* Bridges::FindAddress(const Bridge& bridge, std::uint16_t vlan,
                                                     const std::uint8_t* mac)
{
    const Bridge::Entry* found = bridge.addresses.Find(Key(vlan, mac));
    return found == nullptr ? nullptr : &found->address;
}

Bridges::Flooding Bridges::FloodedTo(const BridgePort& from, std::uint16_t vlan, Flood kind) const
{
    const Bridge& bridge = *from.bridge;
    auto& floods = bridge.floods[bridge.filtering ? vlan : std::uint16_t{0}];
    if (!floods.counted) floods = Count(bridge, vlan);
    const auto at = static_cast<std::size_t>(kind);
    const Bridge::Members& members = from.state.isolated ? floods.open[at] : floods.all[at];
    const bool itself = from.ifIndex != bridge.ifIndex && Gets(from, bridge, vlan, kind);
    // Isolated ports are not among the members then.
    const bool counted = itself && !from.state.isolated;
    const bool returns = itself && from.state.hairpin;
    Flooding flooding{members.count - (counted ? 1 : 0) + (returns ? 1 : 0), 0};
    if (flooding.ports != 1) return flooding;
    if (returns)
        flooding.only = from.ifIndex;
    else
        flooding.only = members.first[counted && members.first[0] == &from ? 1 : 0]->ifIndex;
    return flooding;
}

Bridge& Bridges::Have(std::uint32_t ifIndex)
{
    auto& bridge = m_bridges[ifIndex];
    if (bridge == nullptr) {
        bridge = std::make_unique<Bridge>();
        bridge->ifIndex = ifIndex;
    }
    return *bridge;
}

void Bridges::SetBridge(std::uint32_t ifIndex, const BridgeSettings& settings)
{
    Bridge& bridge = Have(ifIndex);
    static_cast<BridgeSettings&>(bridge) = settings;
    bridge.floods.clear();
}

void Bridges::PutPort(std::uint32_t ifIndex, std::uint32_t bridge, const PortState& state,
                      const std::vector<VlanRange>& vlans, std::uint32_t mark)
{
    const auto found = m_ports.find(ifIndex);
    if (found != m_ports.end() && found->second.bridge->ifIndex != bridge) RemovePort(ifIndex);
    const auto [place, isNew] = m_ports.try_emplace(ifIndex);
    BridgePort& port = place->second;
    if (isNew) {
        ++m_generation;
        port.ifIndex = ifIndex;
        port.bridge = &Have(bridge);
        if (bridge != ifIndex) port.bridge->ports.push_back(&port);
    }
    port.state = state;
    port.pvid = 0;
    port.vlans.reset();
    Enter(port, vlans);
    port.mark = mark;
    port.bridge->floods.clear();
}

void Bridges::AddVlans(std::uint32_t ifIndex, const std::vector<VlanRange>& vlans)
{
    const auto found = m_ports.find(ifIndex);
    if (found == m_ports.end()) return;
    Enter(found->second, vlans);
    found->second.bridge->floods.clear();
}

void Bridges::RemoveVlans(std::uint32_t ifIndex, const std::vector<VlanRange>& vlans)
{
    const auto found = m_ports.find(ifIndex);
    if (found == m_ports.end() || found->second.vlans == nullptr) return;
    BridgePort& port = found->second;
    for (const VlanRange& range : vlans) {
        for (std::uint32_t vlan = range.first; vlan <= range.last && vlan < kVlans; ++vlan) {
            port.vlans->member[vlan] = false;
            if (port.pvid == vlan) port.pvid = 0;
        }
    }
    port.bridge->floods.clear();
}

void Bridges::RemovePort(std::uint32_t ifIndex)
{
    const auto found = m_ports.find(ifIndex);
    if (found == m_ports.end()) return;
    std::erase(found->second.bridge->ports, &found->second);
    found->second.bridge->floods.clear();
    m_ports.erase(found);
    ++m_generation;
}

void Bridges::RemoveDevice(std::uint32_t ifIndex)
{
    RemovePort(ifIndex);
    const auto found = m_bridges.find(ifIndex);
    if (found == m_bridges.end()) return;
    while (!found->second->ports.empty()) RemovePort(found->second->ports.back()->ifIndex);
    m_addresses -= found->second->addresses.Size();
    m_bridges.erase(found);
}

void Bridges::PutAddress(std::uint32_t bridge, std::uint16_t vlan, const MacAddress& mac,
                         BridgeAddress address, std::uint32_t mark)
{
    auto& addresses = Have(bridge).addresses;
    const std::uint64_t key = Key(vlan, mac.data());
    if (Bridge::Entry* found = addresses.Find(key); found != nullptr) {
        *found = {{address, {}}, mark};
    } else if (m_addresses < m_limit) {
        addresses.Put(key, {{address, {}}, mark});
        ++m_addresses;
    } else {
        m_overflowed = true;
    }
}

void Bridges::RemoveAddress(std::uint32_t bridge, std::uint16_t vlan, const MacAddress& mac)
{
    const auto found = m_bridges.find(bridge);
    if (found != m_bridges.end()) m_addresses -= found->second->addresses.Erase(Key(vlan, mac.data()));
}

void Bridges::SweepPorts(std::uint32_t mark)
{
    std::vector<std::uint32_t> gone;
    for (const auto& [ifIndex, port] : m_ports)
        if (port.mark != mark) gone.push_back(ifIndex);
    for (const std::uint32_t ifIndex : gone) RemovePort(ifIndex);
}

void Bridges::SweepAddresses(std::uint32_t mark)
{
    for (auto& [ifIndex, bridge] : m_bridges)
        m_addresses -= bridge->addresses.EraseIf([mark](const auto& entry) { return entry.mark != mark; });
}

}  // namespace net
