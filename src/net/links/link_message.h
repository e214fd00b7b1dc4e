// SPDX-License-Identifier: Apache-2.0
// Reads a link, and its place among other devices, from one rtnetlink message. Keeps no state. Used by the
// monitor.

#ifndef NET_LINKS_LINK_MESSAGE_H
#define NET_LINKS_LINK_MESSAGE_H

#include <cstdint>
#include <optional>

#include "net/links/links.h"
#include "netlink/netlink.h"

namespace net {

/// A device's place on the path of a packet, beyond what Link has.
struct Placement {
    std::uint32_t mtu = 0;           // bytes of a packet without link header; 0: unknown
    bool foreignMaster = false;      // another kind of master takes them; its decisions can't be seen
    std::uint32_t vlanLower = 0;     // of a VLAN device: the device below it; 0: none
    std::uint16_t vlanId = 0;        // and its VLAN id
    std::uint16_t vlanProtocol = 0;  // and the EtherType of its tag: 802.1Q or 802.1ad
    std::uint32_t macvlanLower = 0;  // of a macvlan device: the device below it; 0: none
    std::uint32_t vrf = 0;           // device of the VRF that routes what enters here; 0: none
    bool spanningTree = false;       // a bridge that runs the spanning tree protocol
    bool multicastSnooping = false;  // a bridge that follows multicast memberships
    friend bool operator==(const Placement&, const Placement&) = default;
};

struct LinkMessage {
    Link link;  // speed and duplex are unknown: rtnetlink does not have them
    Placement placement;
};

/// Reads an RTM_NEWLINK of family AF_UNSPEC; nullopt if it is another message or has only part of the link.
[[nodiscard]] std::optional<LinkMessage> ReadLink(const nlmsghdr& message);

/// The index in an RTM_NEWLINK or RTM_DELLINK of this family (AF_UNSPEC, AF_BRIDGE); 0 if it is another
/// message.
[[nodiscard]] std::uint32_t LinkIndex(const nlmsghdr& message, std::uint8_t family);

/// A request for all links, without their statistics.
[[nodiscard]] NetlinkRequest LinkDump();

}  // namespace net

#endif
