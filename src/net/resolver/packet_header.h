// SPDX-License-Identifier: Apache-2.0
// Reads the fields of a packet's first bytes that forwarding needs. Safe on any bytes of any length. Keeps no
// state and knows no tables.

#ifndef NET_RESOLVER_PACKET_HEADER_H
#define NET_RESOLVER_PACKET_HEADER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "net/routes/forwarding.h"

namespace net {

inline constexpr std::size_t kEthernetSize = 14;

/// VLAN tags of 802.1Q, 802.1ad and 0x9100, which preceded the latter.
[[nodiscard]] constexpr bool IsVlanType(std::uint16_t etherType)
{
    return etherType == 0x8100 || etherType == 0x88A8 || etherType == 0x9100;
}

/// MPLS, unicast or multicast (RFC 5332).
[[nodiscard]] constexpr bool IsMplsType(std::uint16_t etherType)
{
    return etherType == 0x8847 || etherType == 0x8848;
}

/// What follows the Ethernet addresses.
struct FrameHead {
    std::uint16_t innerVlan = 0;      // VLAN id of the tag behind the outermost one; 0: none
    std::uint16_t etherType = 0;      // host byte order, behind these two tags
    std::size_t network = 0;          // offset of the network header; at most the size of the bytes
    std::uint16_t innerProtocol = 0;  // EtherType of the inner tag; 0: none
    friend bool operator==(const FrameHead&, const FrameHead&) = default;
};

/// The outermost tag, which `packet` names, may be in the bytes or not; if both readings fit, it is in them.
/// Nullopt if the bytes end before the EtherType.
[[nodiscard]] std::optional<FrameHead> ReadFrame(const Entering& packet);

struct Addresses {
    Address source, destination;
    std::uint8_t timeToLive = 0;  // or hop limit
    std::uint32_t size = 0;       // of the packet, as its header tells; 0: it does not (RFC 2675)
    bool fragmentable = false;    // a router may fragment it: IPv4 without DF
    friend bool operator==(const Addresses&, const Addresses&) = default;
};

/// What routing needs of an IPv4 (RFC 791) or IPv6 (RFC 8200) header; nullopt for another type or version, or
/// if the bytes end before the addresses do.
[[nodiscard]] std::optional<Addresses> ReadAddresses(std::uint16_t etherType,
                                                     std::span<const std::byte> network);

}  // namespace net

#endif
