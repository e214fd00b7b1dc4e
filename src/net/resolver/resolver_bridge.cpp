// SPDX-License-Identifier: Apache-2.0
// The part of the resolver that is a bridge: a packet that has entered by one of its ports.

#include <array>
#include <optional>

#include <linux/if_ether.h>

#include "net/resolver/link_address.h"
#include "net/resolver/resolver.h"

namespace net {
namespace {

using Kind = Destination::Kind;

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

}  // namespace

bool Resolver::EnterBridge(Way& way, const BridgePort& port) const
{
    const Bridge& bridge = *port.bridge;
    const std::uint8_t* mac = way.DestinationMac();
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

}  // namespace net
