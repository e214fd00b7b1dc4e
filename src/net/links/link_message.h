// SPDX-License-Identifier: Apache-2.0
// What one rtnetlink message says of a link, its place among other devices included. It keeps nothing.
// Used by the monitor.

#ifndef NET_LINKS_LINK_MESSAGE_H
#define NET_LINKS_LINK_MESSAGE_H

#include <cstdint>
#include <optional>

#include "net/links/links.h"
#include "netlink/netlink.h"

namespace net {

/// Where a device stands in the way of a packet, beyond what Link tells.
struct Placement {
    std::uint32_t aggregate = 0;     // bond or team that takes what enters here; 0: none
    bool foreignMaster = false;      // something else takes what enters, and decides unseen
    std::uint32_t vlanLower = 0;     // a VLAN device: of which
    std::uint16_t vlanId = 0;        // and with what id
    bool spanningTree = false;       // a bridge that runs it
    bool multicastSnooping = false;  // a bridge that looks at memberships
    friend bool operator==(const Placement&, const Placement&) = default;
};

struct LinkMessage {
    Link link;  // speed and duplex unknown: rtnetlink does not have them
    Placement placement;
};

/// Reads an RTM_NEWLINK of family AF_UNSPEC; nothing where it is not one or tells only part of the link.
[[nodiscard]] std::optional<LinkMessage> ReadLink(const nlmsghdr& message);

/// The index in an RTM_NEWLINK or RTM_DELLINK of this family (AF_UNSPEC, AF_BRIDGE); 0 when it is none.
[[nodiscard]] std::uint32_t LinkIndex(const nlmsghdr& message, std::uint8_t family);

/// Asks for all links, without their statistics.
[[nodiscard]] NetlinkRequest LinkDump();

}  // namespace net

#endif
