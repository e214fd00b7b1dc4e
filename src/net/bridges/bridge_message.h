// SPDX-License-Identifier: Apache-2.0
// Reads bridge ports, their VLANs and learned addresses from rtnetlink's messages. Keeps no state. Used by
// the monitor.

#ifndef NET_BRIDGES_BRIDGE_MESSAGE_H
#define NET_BRIDGES_BRIDGE_MESSAGE_H

#include <cstdint>
#include <optional>
#include <vector>

#include "net/bridges/bridges.h"
#include "netlink/netlink.h"

namespace net {

/// Reads an RTM_NEWLINK of family AF_BRIDGE: a port, or a bridge itself as its own port towards this machine.
/// Nullopt if it is neither.
struct PortMessage {
    std::uint32_t ifIndex = 0;
    std::uint32_t bridge = 0;  // equals ifIndex for the bridge itself
    PortState state;
    std::vector<VlanRange> vlans;  // all of them
};
[[nodiscard]] std::optional<PortMessage> ReadPort(const nlmsghdr& message);

/// Reads an RTM_NEWVLAN or RTM_DELVLAN: VLANs that a port has got or lost. Nullopt for other messages.
struct VlanMessage {
    std::uint32_t ifIndex = 0;
    bool removed = false;
    std::vector<VlanRange> vlans;
};
[[nodiscard]] std::optional<VlanMessage> ReadVlans(const nlmsghdr& message);

/// Reads an RTM_NEWNEIGH or RTM_DELNEIGH: an entry of a bridge's forwarding database. Nullopt for a device's
/// own entries and for IP neighbours.
struct AddressMessage {
    std::uint32_t bridge = 0;
    bool removed = false;
    std::uint16_t vlan = 0;
    MacAddress mac{};
    BridgeAddress address;
};
[[nodiscard]] std::optional<AddressMessage> ReadAddress(const nlmsghdr& message);

/// Requests for all ports with their VLANs, and for all forwarding databases.
[[nodiscard]] NetlinkRequest PortDump();
[[nodiscard]] NetlinkRequest AddressDump();

}  // namespace net

#endif
