// SPDX-License-Identifier: Apache-2.0
#include "net/resolver/resolver.h"

#include <algorithm>
#include <cstring>

#include <net/if_arp.h>

#include <linux/if_ether.h>

#include "net/resolver/link_address.h"

namespace net {
namespace {

using Kind = Destination::Kind;

constexpr int kDevicesOnTheWay = 8;  // VLAN devices on bridges on bonds: no sensible path is longer

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

// Bytes of the IP packet; of the longest, if the kernel holds several as one. Behind a packet there may be
// padding; the header of several tells their sum, or nothing.
std::uint32_t SizeOf(const Entering& packet, std::size_t network, const Addresses& header)
{
    if (packet.length <= network) return header.size;
    const std::uint32_t held = packet.length - static_cast<std::uint32_t>(network);
    return header.size == 0 ? held : std::min(held, header.size);
}

std::uint64_t VlanKey(std::uint32_t lower, std::uint16_t protocol, std::uint16_t vlan)
{
    return std::uint64_t{lower} << 32 | std::uint32_t{protocol} << 16 | vlan;
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
    m_devices[link.index] = {link.index,     link.hardwareType, link.promiscuous,
                             link.aggregate, link.mac,          placement};
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
        if (way.device->aggregate != 0) {
            way.device = Find(way.device->aggregate);
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
    const std::uint8_t* mac = way.DestinationMac();
    for (const Macvlan& macvlan : on->second) {
        if (std::memcmp(macvlan.mac.data(), mac, macvlan.mac.size()) != 0) continue;
        way.device = Find(macvlan.ifIndex);
        return true;
    }
    return false;
}

// The packet has reached the device that hands it to this machine's protocols.
void Resolver::Arrive(Way& way)
{
    const std::uint8_t* mac = way.DestinationMac();
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
    // What would be forwarded, but may not be (RFC 1812, 5.3.1, 5.3.4 and 4.2.2.7; RFC 8200, 3 and 5).
    if (toGroup) return Drop(to, Discard::kUnicastInGroup);
    if (addresses->timeToLive <= 1) return Drop(to, Discard::kTimeToLive);
    const Device* out = Find(found->ifIndex);
    const std::uint32_t mtu = found->mtu != 0 || out == nullptr ? found->mtu : out->placement.mtu;
    if (mtu != 0 && !addresses->fragmentable && SizeOf(way.packet, network, *addresses) > mtu)
        return Drop(to, etherType == ETH_P_IP ? Discard::kFragmentation : Discard::kTooBig);
    to.ifIndex = found->ifIndex;
    to.route = found->route;
    if (out != nullptr) to.outputVlan = out->placement.vlanId;
}

}  // namespace net
