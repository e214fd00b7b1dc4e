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

std::uint64_t VlanKey(std::uint32_t lower, std::uint16_t protocol, std::uint16_t vlan)
{
    return std::uint64_t{lower} << 32 | std::uint32_t{protocol} << 16 | vlan;
}

void Drop(Destination& to, Discard reason)
{
    to.kind = Kind::kDiscarded;
    to.reason = reason;
}

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
    if (placement.vlanLower != 0)
        m_vlanDevices[VlanKey(placement.vlanLower, placement.vlanProtocol, placement.vlanId)] = link.index;
    if (placement.macvlanLower != 0) m_macvlans[placement.macvlanLower].push_back({link.index, link.mac});
    m_routes.Forget();
}

void Resolver::RemoveDevice(std::uint32_t ifIndex)
{
    const auto found = m_devices.find(ifIndex);
    if (found == m_devices.end()) return;
    const Placement& placement = found->second.placement;
    const auto vlan =
        m_vlanDevices.find(VlanKey(placement.vlanLower, placement.vlanProtocol, placement.vlanId));
    if (vlan != m_vlanDevices.end() && vlan->second == ifIndex) m_vlanDevices.erase(vlan);
    if (const auto on = m_macvlans.find(placement.macvlanLower); on != m_macvlans.end()) {
        std::erase_if(on->second, [ifIndex](const Macvlan& macvlan) { return macvlan.ifIndex == ifIndex; });
        if (on->second.empty()) m_macvlans.erase(on);
    }
    m_devices.erase(found);
    m_routes.Forget();
}

Destination Resolver::Resolve(const Entering& packet)
{
    Way way{packet, Find(packet.ifIndex), packet.vlan, packet.vlanProtocol};
    way.destination.inputVlan = packet.vlan;
    Follow(way);
    if (way.destination.kind != Kind::kDiscarded) way.destination.reason = Discard::kUnknown;
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
    Way way{leaving, Find(leaving.ifIndex), leaving.vlan, leaving.vlanProtocol};
    way.backwards = true;
    Follow(way);
    if (way.addresses) {
        TraceRoute(*way.addresses, *way.device, from);
    } else if (!enteredBy &&
               (way.destination.kind == Kind::kInterface || way.destination.kind == Kind::kLocal)) {
        from.kind = way.destination.kind;
        from.ifIndex = way.destination.ifIndex;
    }
    return from;
}

// `leftBy` is the device by which IP has sent the packet, so the packet has its link addresses.
void Resolver::TraceRoute(const Addresses& of, const Device& leftBy, Origin& from)
{
    const bool told = from.kind == Kind::kInterface;
    const bool toMany = IsMulticast(of.destination) || IsBroadcast(of.destination);
    if (IsUnspecified(of.source)) {
        if (!told) from.kind = Kind::kLocal;
        return;
    }
    const auto back = m_routes.Way({0, leftBy.placement.vrf}, of.source, {});
    if (!back) return;
    if (!told) {
        const auto answer =
            back->kind == Kind::kLocal || toMany
                ? back
                : m_routes.Way({leftBy.ifIndex, leftBy.placement.vrf}, of.source, of.destination);
        if (!answer || (answer->kind != Kind::kInterface && answer->kind != Kind::kLocal)) return;
        from.kind = answer->kind;
        if (answer->kind == Kind::kInterface) from.ifIndex = answer->ifIndex;
    }
    // An entered packet with a source address of this machine was translated: its route belonged to another
    // source.
    if (from.kind != Kind::kInterface || back->kind == Kind::kLocal || toMany) return;
    const auto there = m_routes.Way({from.ifIndex, leftBy.placement.vrf}, of.destination, of.source);
    if (there && there->kind == Kind::kInterface && there->ifIndex == leftBy.ifIndex)
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
    if (way.device->hardwareType == ARPHRD_LOOPBACK) {  // what this machine sends to itself
        way.destination.kind = Kind::kLocal;
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
        if (EnterMacvlan(way)) continue;
        Arrive(way);
        return;
    }
}

bool Resolver::EnterVlanDevice(Way& way) const
{
    const auto found = m_vlanDevices.find(VlanKey(way.device->ifIndex, way.vlanProtocol, way.vlan));
    if (found == m_vlanDevices.end()) return false;
    way.device = Find(found->second);
    const auto head = ReadFrame(way.packet);
    way.vlan = head && !way.innerTag ? head->innerVlan : std::uint16_t{0};
    way.vlanProtocol = head ? head->innerProtocol : std::uint16_t{0};
    way.innerTag = true;
    return true;
}

/// The device on top that has the packet's address takes it before this one does.
bool Resolver::EnterMacvlan(Way& way) const
{
    const auto on = m_macvlans.find(way.device->ifIndex);
    if (on == m_macvlans.end() || way.vlan != 0) return false;
    const std::uint8_t* mac = DestinationMac(way.packet, way.backwards);
    for (const Macvlan& macvlan : on->second) {
        if (std::memcmp(macvlan.mac.data(), mac, macvlan.mac.size()) != 0) continue;
        way.device = Find(macvlan.ifIndex);
        return true;
    }
    return false;
}

bool Resolver::EnterBridge(Way& way, const BridgePort& port) const
{
    const Bridge& bridge = *port.bridge;
    const std::uint8_t* mac = DestinationMac(way.packet, way.backwards);
    Destination& to = way.destination;
    std::uint16_t vlan = 0;
    if (IsLinkLocal(mac) && (mac[5] != 0 || bridge.spanningTree)) {
        Drop(to, Discard::kReservedMac);  // a pause frame ends at the first station
        if (mac[5] != 1) to.kind = Kind::kLocal;
        return false;
    }
    if (bridge.filtering) {
        to.inputVlan = vlan = way.vlan != 0 ? way.vlan : port.pvid;
        Drop(to, Discard::kIngressVlan);
        if (vlan >= kVlans || vlan == 0 || !port.In(vlan)) return false;
    }
    Drop(to, Discard::kPortNotForwarding);
    if (!port.state.forwarding) return false;
    to.outputVlan = bridge.filtering ? vlan : way.vlan;
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
    Destination& to = way.destination;
    std::optional<Discard> reason;
    if (out == nullptr || out->bridge != port.bridge || !out->state.forwarding)
        reason = Discard::kPortNotForwarding;
    else if (out == &port && !port.state.hairpin)
        reason = Discard::kSamePort;
    else if (port.bridge->filtering && !out->In(vlan))
        reason = Discard::kEgressVlan;
    else if (out->state.isolated && port.state.isolated && out != &port)
        reason = Discard::kUnknown;
    if (reason) {
        to.outputVlan = 0;
        return Drop(to, *reason);
    }
    to.kind = Kind::kInterface;
    to.ifIndex = address.port;
}

void Resolver::Flooded(Way& way, const BridgePort& port, std::uint16_t vlan, Flood kind) const
{
    Destination& to = way.destination;
    const auto [ports, only] = m_bridges.FloodedTo(port, vlan, kind);
    if (ports > 1) {
        to.kind = Kind::kSeveral;
        to.interfaces = ports;
    } else if (ports == 1) {
        to.kind = Kind::kInterface;
        to.ifIndex = only;
    } else {  // the bridge itself takes group addresses
        Drop(to, Discard::kNoPorts);
        if (kind != Flood::kUnicast) to.kind = Kind::kLocal;
        to.outputVlan = 0;
    }
}

bool Resolver::ToHost(Way& way, const BridgePort& port, std::uint16_t vlan) const
{
    const std::uint32_t bridge = port.bridge->ifIndex;
    way.destination.outputVlan = 0;
    if (port.bridge->filtering) {
        const BridgePort* itself = m_bridges.FindPort(bridge);
        if (itself == nullptr || !itself->In(vlan)) {
            Drop(way.destination, Discard::kEgressVlan);
            return false;
        }
        way.vlanProtocol = way.packet.vlan != 0 ? way.packet.vlanProtocol : std::uint16_t{ETH_P_8021Q};
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
    if (way.vlan != 0) {  // no device takes that VLAN, but maybe the program that made this one promiscuous
        Drop(to, Discard::kIngressVlan);
        if (way.device->promiscuous) to.kind = Kind::kUnknown;
    } else if (IsGroup(mac)) {
        ArriveInGroup(way, mac);
    } else if (!way.forUs && std::memcmp(mac, way.device->mac.data(), way.device->mac.size()) != 0) {
        // A program may forward it, or it is for a macvlan device in another namespace: neither can be seen.
        to.kind = Kind::kUnknown;
    } else if (const auto head = ReadFrame(way.packet)) {
        Route(way, head->etherType, head->network);
    }
}

/// Groups that are not IP are for programs of this machine: those of the link for sure, such as LLDP's.
void Resolver::ArriveInGroup(Way& way, const std::uint8_t* mac)
{
    const auto head = ReadFrame(way.packet);
    if (!head) return;
    if (head->etherType == ETH_P_IP || head->etherType == ETH_P_IPV6)
        return Route(way, head->etherType, head->network, true);
    if (IsBroadcast(mac) || IsLinkLocal(mac)) way.destination.kind = Kind::kLocal;
}

void Resolver::Route(Way& way, std::uint16_t etherType, std::size_t network, bool toGroup)
{
    Destination& to = way.destination;
    to.kind = Kind::kUnknown;
    if (etherType != ETH_P_IP && etherType != ETH_P_IPV6) {
        if (!IsMplsType(etherType)) to.kind = Kind::kLocal;
        return;
    }
    const auto addresses = ReadAddresses(etherType, way.packet.header.subspan(network));
    if (!addresses) return;
    if (way.backwards) {
        way.addresses = addresses;
        return;
    }
    if (IsBroadcast(addresses->destination) ||
        (IsMulticast(addresses->destination) && IsLinkScope(addresses->destination))) {
        to.kind = Kind::kLocal;
        return;
    }
    const auto found = m_routes.Find({way.device->ifIndex, way.device->placement.vrf}, addresses->destination,
                                     addresses->source);
    if (!found) return;
    to.kind = found->kind;
    to.reason = found->reason;
    if (found->kind != Kind::kInterface) return;
    // What would be forwarded, but may not be (RFC 1812, 5.3.1 and 5.3.4; RFC 8200, 3).
    if (toGroup) return Drop(to, Discard::kUnicastInGroup);
    if (addresses->timeToLive <= 1) return Drop(to, Discard::kTimeToLive);
    to.ifIndex = found->ifIndex;
    to.route = found->route;
    if (const Device* out = Find(found->ifIndex)) to.outputVlan = out->placement.vlanId;
}

}  // namespace net
