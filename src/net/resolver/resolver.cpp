// SPDX-License-Identifier: Apache-2.0
#include "net/resolver/resolver.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <net/if_arp.h>

#include <linux/if_ether.h>

namespace net {
namespace {

using Kind = Destination::Kind;

constexpr int kDevicesOnTheWay = 8;  // VLAN devices on bridges on bonds: no sensible path is longer

/// The destination of the packet, or of an answer to it.
const std::uint8_t* DestinationMac(const Entering& packet, bool backwards)
{
    return reinterpret_cast<const std::uint8_t*>(packet.header.data()) + (backwards ? 6 : 0);
}

bool IsGroup(const std::uint8_t* mac) { return (mac[0] & 1) != 0; }

bool IsBroadcast(const std::uint8_t* mac)
{
    return std::all_of(mac, mac + 6, [](std::uint8_t byte) { return byte == 0xFF; });
}

// 01:80:C2:00:00:0X, which bridges keep to themselves (IEEE 802.1D, 7.12.6).
bool IsLinkLocal(const std::uint8_t* mac)
{
    constexpr std::uint8_t kPrefix[] = {0x01, 0x80, 0xC2, 0x00, 0x00};
    return std::memcmp(mac, kPrefix, sizeof kPrefix) == 0 && mac[5] < 0x10;
}

// Whether a bridge with snooping sends this multicast only to members and routers. Groups of the local link
// go everywhere: 224.0.0.0/24 and ff02::1 (RFC 4541, 2.1.2 and 3). A packet that can't be read counts as
// restricted.
bool IsJoined(const Entering& packet)
{
    constexpr std::array<std::uint8_t, 16> kAllNodes{0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    if (packet.etherType != ETH_P_IP && packet.etherType != ETH_P_IPV6) return false;
    const auto head = ReadFrame(packet);
    if (!head) return true;
    const auto addresses = ReadAddresses(packet.etherType, packet.header.subspan(head->network));
    if (!addresses) return true;
    const auto& to = addresses->destination.bytes;
    if (addresses->destination.size == 4) return to[0] != 224 || to[1] != 0 || to[2] != 0;
    return to != kAllNodes;
}

bool IsMulticast(const Address& address)
{
    return address.size == 4 ? (address.bytes[0] & 0xF0) == 0xE0 : address.bytes[0] == 0xFF;
}

bool IsBroadcast(const Address& address)
{
    const auto& bytes = address.bytes;
    return address.size == 4 &&
           std::all_of(bytes.begin(), bytes.begin() + 4, [](std::uint8_t byte) { return byte == 0xFF; });
}

/// The source of a host that has no address yet; routers do not forward it.
bool IsUnspecified(const Address& address) { return address == Address{address.size, {}}; }

bool IsEthernet(std::uint16_t type) { return type == ARPHRD_ETHER || type == ARPHRD_LOOPBACK; }

bool IsWithoutLinkHeader(std::uint16_t type)
{
    switch (type) {
    case ARPHRD_NONE:
    case ARPHRD_RAWIP:
    case ARPHRD_PPP:
    case ARPHRD_TUNNEL:
    case ARPHRD_TUNNEL6:
    case ARPHRD_SIT:
    case ARPHRD_IPGRE:
        return true;
    default:
        return false;
    }
}

std::uint64_t VlanKey(std::uint32_t lower, std::uint16_t vlan) { return std::uint64_t{lower} << 16 | vlan; }

}  // namespace

const Resolver::Device* Resolver::Find(std::uint32_t ifIndex) const
{
    const auto found = m_devices.find(ifIndex);
    return found == m_devices.end() ? nullptr : &found->second;
}

std::uint16_t Resolver::PortVlan(std::uint32_t ifIndex) const
{
    const BridgePort* port = m_bridges.FindPort(ifIndex);
    return port != nullptr && port->bridge->filtering ? port->pvid : 0;
}

void Resolver::PutDevice(const Link& link, const Placement& placement)
{
    RemoveDevice(link.index);
    m_devices[link.index] = {link.index, link.hardwareType, link.promiscuous, link.mac, placement};
    if (placement.vlanLower != 0) m_vlanDevices[VlanKey(placement.vlanLower, placement.vlanId)] = link.index;
    m_routes.Forget();
}

void Resolver::RemoveDevice(std::uint32_t ifIndex)
{
    const auto found = m_devices.find(ifIndex);
    if (found == m_devices.end()) return;
    const Placement& placement = found->second.placement;
    const auto vlan = m_vlanDevices.find(VlanKey(placement.vlanLower, placement.vlanId));
    if (vlan != m_vlanDevices.end() && vlan->second == ifIndex) m_vlanDevices.erase(vlan);
    m_devices.erase(found);
    m_routes.Forget();
}

Destination Resolver::Resolve(const Entering& packet)
{
    Way way{packet, Find(packet.ifIndex), packet.vlan};
    way.destination.inputVlan = packet.vlan;
    Follow(way);
    return way.destination;
}

Origin Resolver::Trace(const Entering& leaving, std::optional<std::uint32_t> enteredBy)
{
    Origin from;
    if (enteredBy) {
        from.kind = *enteredBy == 0 ? Kind::kLocal : Kind::kInterface;
        from.ifIndex = *enteredBy;
        const Device* in = Find(*enteredBy);
        if (in == nullptr) return from;
        const BridgePort* port = m_bridges.FindPort(in->ifIndex, in->port);
        if (port != nullptr && port->bridge->ifIndex != port->ifIndex) return from;  // it was bridged
    }
    Way way{leaving, Find(leaving.ifIndex), leaving.vlan};
    way.backwards = true;
    Follow(way);
    if (way.addresses) {
        TraceRoute(*way.addresses, way.device->ifIndex, from);
    } else if (!enteredBy &&
               (way.destination.kind == Kind::kInterface || way.destination.kind == Kind::kLocal)) {
        from.kind = way.destination.kind;
        from.ifIndex = way.destination.ifIndex;
    }
    return from;
}

// `leftBy` is the device by which IP has sent the packet, so the packet has its link addresses.
void Resolver::TraceRoute(const Addresses& of, std::uint32_t leftBy, Origin& from)
{
    const bool told = from.kind == Kind::kInterface;
    const bool toMany = IsMulticast(of.destination) || IsBroadcast(of.destination);
    if (IsUnspecified(of.source)) {
        if (!told) from.kind = Kind::kLocal;
        return;
    }
    const auto back = m_routes.Way(0, of.source, {});
    if (!back) return;
    if (!told) {
        const auto answer =
            back->kind == Kind::kLocal || toMany ? back : m_routes.Way(leftBy, of.source, of.destination);
        if (!answer || (answer->kind != Kind::kInterface && answer->kind != Kind::kLocal)) return;
        from.kind = answer->kind;
        if (answer->kind == Kind::kInterface) from.ifIndex = answer->ifIndex;
    }
    // An entered packet with a source address of this machine was translated: its route belonged to another
    // source.
    if (from.kind != Kind::kInterface || back->kind == Kind::kLocal || toMany) return;
    const auto there = m_routes.Way(from.ifIndex, of.destination, of.source);
    if (there && there->kind == Kind::kInterface && there->ifIndex == leftBy)
        from.route = Routes::Between(*there, *back);
}

void Resolver::Follow(Way& way)
{
    const Entering& packet = way.packet;
    if (way.device == nullptr) return;
    if (!IsEthernet(way.device->hardwareType)) {
        if (IsWithoutLinkHeader(way.device->hardwareType)) Route(way, packet.etherType, 0);
        return;
    }
    if (packet.header.size() < kEthernetSize) return;
    for (int i = 0; i < kDevicesOnTheWay && way.device != nullptr; ++i) {
        const Placement& placement = way.device->placement;
        if (way.vlan != 0 && EnterVlanDevice(way)) continue;
        if (placement.aggregate != 0) {
            way.device = Find(placement.aggregate);
            continue;
        }
        if (placement.foreignMaster) return;
        const BridgePort* port = m_bridges.FindPort(way.device->ifIndex, way.device->port);
        if (port != nullptr && port->bridge->ifIndex != port->ifIndex) {
            if (EnterBridge(way, *port)) continue;
            return;
        }
        Arrive(way);
        return;
    }
}

bool Resolver::EnterVlanDevice(Way& way) const
{
    const auto found = m_vlanDevices.find(VlanKey(way.device->ifIndex, way.vlan));
    if (found == m_vlanDevices.end()) return false;
    way.device = Find(found->second);
    const auto head = ReadFrame(way.packet);
    way.vlan = head && !way.innerTag ? head->innerVlan : std::uint16_t{0};
    way.innerTag = true;
    return true;
}

bool Resolver::EnterBridge(Way& way, const BridgePort& port) const
{
    const Bridge& bridge = *port.bridge;
    const std::uint8_t* mac = DestinationMac(way.packet, way.backwards);
    Destination& to = way.destination;
    std::uint16_t vlan = 0;
    to.outputVlan = way.vlan;
    to.kind = Kind::kDiscarded;
    if (IsLinkLocal(mac) && (mac[5] != 0 || bridge.spanningTree)) {
        if (mac[5] != 1) to.kind = Kind::kLocal;  // a pause frame ends at the first station
        to.outputVlan = 0;
        return false;
    }
    if (bridge.filtering) {
        vlan = way.vlan != 0 ? way.vlan : port.pvid;
        to.inputVlan = to.outputVlan = vlan;
        if (vlan >= kVlans || vlan == 0 || !port.In(vlan)) to.outputVlan = 0;
        if (to.outputVlan == 0) return false;
    }
    if (!port.state.forwarding) {
        to.outputVlan = 0;
        return false;
    }
    if (IsGroup(mac)) {
        if (bridge.multicastSnooping && !IsBroadcast(mac) && IsJoined(way.packet))
            to.kind = Kind::kSeveral;
        else
            Flooded(way, port, vlan, IsBroadcast(mac) ? Flood::kBroadcast : Flood::kMulticast);
        return false;
    }
    if (const Bridges::ForwardingEntry* address = Bridges::FindAddress(bridge, vlan, mac);
        address != nullptr) {
        if (address->local) return ToHost(way, port, vlan);
        Bridged(way, port, *address, vlan);
        return false;
    }
    const Device* itself = Find(bridge.ifIndex);
    if (itself != nullptr && std::memcmp(itself->mac.data(), mac, itself->mac.size()) == 0)
        return ToHost(way, port, vlan);
    if (m_bridges.Complete()) {
        Flooded(way, port, vlan, Flood::kUnicast);
    } else {  // the kernel may know an address that is not kept here
        to.kind = Kind::kUnknown;
        to.outputVlan = 0;
    }
    return false;
}

void Resolver::Bridged(Way& way, const BridgePort& port, const Bridges::ForwardingEntry& address,
                       std::uint16_t vlan) const
{
    const BridgePort* out = m_bridges.FindPort(address.port, address.memo);
    const bool passes = out != nullptr && out->bridge == port.bridge && out->state.forwarding &&
                        (out != &port || port.state.hairpin) &&
                        !(out->state.isolated && port.state.isolated && out != &port) &&
                        (!port.bridge->filtering || out->In(vlan));
    if (passes) {
        way.destination.kind = Kind::kInterface;
        way.destination.ifIndex = address.port;
    } else {
        way.destination.outputVlan = 0;
    }
}

void Resolver::Flooded(Way& way, const BridgePort& port, std::uint16_t vlan, Flood kind) const
{
    Destination& to = way.destination;
    to.interfaces = m_bridges.FloodCount(port, vlan, kind);
    if (to.interfaces != 0) {
        to.kind = Kind::kSeveral;
    } else {  // the bridge itself takes group addresses
        to.kind = kind == Flood::kUnicast ? Kind::kDiscarded : Kind::kLocal;
        to.outputVlan = 0;
    }
}

bool Resolver::ToHost(Way& way, const BridgePort& port, std::uint16_t vlan) const
{
    const std::uint32_t bridge = port.bridge->ifIndex;
    way.destination.outputVlan = 0;
    if (port.bridge->filtering) {
        const BridgePort* itself = m_bridges.FindPort(bridge);
        if (itself == nullptr || !itself->In(vlan)) return false;
        way.vlan = itself->Untagged(vlan) ? std::uint16_t{0} : vlan;
    }
    way.device = Find(bridge);
    way.forUs = true;
    way.destination.kind = Kind::kUnknown;
    return true;
}

// The packet has reached the device that hands it to this machine's protocols.
void Resolver::Arrive(Way& way)
{
    const std::uint8_t* mac = DestinationMac(way.packet, way.backwards);
    Destination& to = way.destination;
    if (way.vlan != 0) {  // no device takes that VLAN
        to.kind = way.device->promiscuous ? Kind::kUnknown : Kind::kDiscarded;
    } else if (IsBroadcast(mac)) {
        to.kind = Kind::kLocal;
    } else if (IsGroup(mac)) {
        to.kind = Kind::kSeveral;
    } else if (!way.forUs && std::memcmp(mac, way.device->mac.data(), way.device->mac.size()) != 0) {
        // A program that made it promiscuous may forward them.
        to.kind = way.device->promiscuous ? Kind::kUnknown : Kind::kDiscarded;
    } else if (const auto head = ReadFrame(way.packet)) {
        Route(way, head->etherType, head->network);
    }
}

void Resolver::Route(Way& way, std::uint16_t etherType, std::size_t network)
{
    Destination& to = way.destination;
    if (etherType != ETH_P_IP && etherType != ETH_P_IPV6) {
        const bool label = etherType == ETH_P_MPLS_UC || etherType == ETH_P_MPLS_MC;
        to.kind = label ? Kind::kUnknown : Kind::kLocal;
        return;
    }
    const auto addresses = ReadAddresses(etherType, way.packet.header.subspan(network));
    if (!addresses) return;
    if (way.backwards) {
        way.addresses = addresses;
        return;
    }
    if (IsMulticast(addresses->destination)) {
        to.kind = Kind::kSeveral;
        return;
    }
    if (IsBroadcast(addresses->destination)) {
        to.kind = Kind::kLocal;
        return;
    }
    const auto found = m_routes.Find(way.device->ifIndex, addresses->destination, addresses->source);
    if (!found) return;
    to.kind = found->kind;
    if (found->kind != Kind::kInterface) return;
    to.ifIndex = found->ifIndex;
    to.route = found->route;
    if (const Device* out = Find(found->ifIndex)) to.outputVlan = out->placement.vlanId;
}

}  // namespace net
