// SPDX-License-Identifier: Apache-2.0
// Finds the path of a packet: from the device where it entered, over bonds and VLAN devices, to a bridge's
// tables or to the routes, in the kernel's order. It does not see firewall and traffic control rules,
// multicast memberships (so the number of ports is unknown on a bridge that follows them), bridges with
// 802.1ad tags, and which program of this machine takes packets that are not IP. Fed by the monitor.

#ifndef NET_RESOLVER_RESOLVER_H
#define NET_RESOLVER_RESOLVER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "net/bridges/bridges.h"
#include "net/links/link_message.h"
#include "net/links/links.h"
#include "net/resolver/packet_header.h"
#include "net/routes/forwarding.h"
#include "net/routes/routes.h"

namespace net {

class Resolver final : public Forwarding {
public:
    /// Both must outlive it.
    Resolver(const Bridges& bridges, Routes& routes) : m_bridges(bridges), m_routes(routes) {}

    [[nodiscard]] Destination Resolve(const Entering& packet) override;
    [[nodiscard]] Origin Trace(const Entering& leaving, std::optional<std::uint32_t> enteredBy) override;
    [[nodiscard]] std::uint16_t PortVlan(std::uint32_t ifIndex) const override;

    void PutDevice(const Link& link, const Placement& placement);
    void RemoveDevice(std::uint32_t ifIndex);

private:
    struct Device {
        std::uint32_t ifIndex = 0;
        std::uint16_t hardwareType = 0;
        bool promiscuous = false;
        std::uint32_t aggregate = 0;  // bond or team that takes the packets that enter here; 0: none
        MacAddress mac{};
        Placement placement;
        mutable PortMemo port{};
    };
    struct Macvlan {
        std::uint32_t ifIndex = 0;
        MacAddress mac{};
    };
    /// A packet on its way through the devices; backwards, an answer to one that has left.
    struct Way {
        const Entering& packet;
        const Device* device;
        std::uint16_t vlan;  // of the outermost tag that it still has; 0: none
        std::uint16_t vlanProtocol;
        bool innerTag = false;  // that tag is the packet's second
        bool forUs = false;     // a bridge has found its address to be this machine's
        bool backwards = false;
        Destination destination{};
        std::optional<Addresses> addresses{};  // backwards: set once it reaches IP at `device`

        /// Where the packet goes, or an answer to it: six bytes of an Ethernet header.
        [[nodiscard]] const std::uint8_t* DestinationMac() const
        {
            return reinterpret_cast<const std::uint8_t*>(packet.header.data()) + (backwards ? 6 : 0);
        }
    };

    static void Drop(Destination& to, Discard reason)
    {
        to.kind = Destination::Kind::kDiscarded;
        to.reason = reason;
    }

    [[nodiscard]] const Device* Find(std::uint32_t ifIndex) const;
    void Follow(Way& way);
    // These return true if the packet continues at another device.
    [[nodiscard]] bool EnterVlanDevice(Way& way) const;
    [[nodiscard]] bool EnterMacvlan(Way& way) const;
    [[nodiscard]] bool EnterBridge(Way& way, const BridgePort& port) const;
    [[nodiscard]] bool ToHost(Way& way, const BridgePort& port, std::uint16_t vlan) const;
    void Bridged(Way& way, const BridgePort& port, const Bridges::ForwardingEntry& address,
                 std::uint16_t vlan) const;
    void Flooded(Way& way, const BridgePort& port, std::uint16_t vlan, Flood kind) const;
    void Arrive(Way& way);
    void ArriveInGroup(Way& way, const std::uint8_t* mac);
    void TraceRoute(const Addresses& of, const Device& leftBy, Origin& from);
    void Route(Way& way, std::uint16_t etherType, std::size_t network, bool toGroup = false);

    const Bridges& m_bridges;
    Routes& m_routes;
    std::unordered_map<std::uint32_t, Device> m_devices;
    std::unordered_map<std::uint64_t, std::uint32_t> m_vlanDevices;      // by lower device and tag
    std::unordered_map<std::uint32_t, std::vector<Macvlan>> m_macvlans;  // by lower device
};

}  // namespace net

#endif
