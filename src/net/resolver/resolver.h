// SPDX-License-Identifier: Apache-2.0
// Finds the way of a packet: from the device where it entered over bonds and VLAN devices to a bridge's
// tables or to the routes, in the order in which the kernel takes it. Not seen are firewall and traffic
// control rules, multicast memberships (to how many ports a bridge that goes by them sends is not told), a
// bridge whose tags are 802.1ad, and who in this machine takes what is not IP. Fed by the monitor.

#ifndef NET_RESOLVER_RESOLVER_H
#define NET_RESOLVER_RESOLVER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

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
        MacAddress mac{};
        Placement placement;
        mutable PortMemo port{};
    };
    /// A packet on its way through the devices; or, backwards, an answer to one that has left.
    struct Way {
        const Entering& packet;
        const Device* device;
        std::uint16_t vlan;     // of the outermost tag that it still has; 0: none
        bool innerTag = false;  // that one is the packet's second
        bool forUs = false;     // a bridge has taken its address for one of this machine
        bool backwards = false;
        Destination destination{};
        std::optional<Addresses> addresses{};  // backwards: of IP, once it is at the device of `device`
    };

    [[nodiscard]] const Device* Find(std::uint32_t ifIndex) const;
    void Follow(Way& way);
    // These are true when the packet goes on at another device.
    [[nodiscard]] bool EnterVlanDevice(Way& way) const;
    [[nodiscard]] bool EnterBridge(Way& way, const BridgePort& port) const;
    [[nodiscard]] bool ToHost(Way& way, const BridgePort& port, std::uint16_t vlan) const;
    void Bridged(Way& way, const BridgePort& port, const Bridges::ForwardingEntry& address,
                 std::uint16_t vlan) const;
    void Flooded(Way& way, const BridgePort& port, std::uint16_t vlan, Flood kind) const;
    void Arrive(Way& way);
    void TraceRoute(const Addresses& of, std::uint32_t leftBy, Origin& from);
    void Route(Way& way, std::uint16_t etherType, std::size_t network);

    const Bridges& m_bridges;
    Routes& m_routes;
    std::unordered_map<std::uint32_t, Device> m_devices;
    std::unordered_map<std::uint64_t, std::uint32_t> m_vlanDevices;  // by lower device and VLAN id
};

}  // namespace net

#endif
