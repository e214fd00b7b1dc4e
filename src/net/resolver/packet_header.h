// SPDX-License-Identifier: Apache-2.0
// Reads what forwarding needs of a packet's first bytes, whatever they are and wherever they end. It keeps
// nothing and knows no tables.

#ifndef NET_RESOLVER_PACKET_HEADER_H
#define NET_RESOLVER_PACKET_HEADER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "net/routes/forwarding.h"

namespace net {

inline constexpr std::size_t kEthernetSize = 14;

/// VLAN tags of 802.1Q, 802.1ad and the type that came before the latter.
[[nodiscard]] constexpr bool IsVlanType(std::uint16_t etherType)
{
    return etherType == 0x8100 || etherType == 0x88A8 || etherType == 0x9100;
}

/// What stands behind the Ethernet addresses.
struct FrameHead {
    std::uint16_t innerVlan = 0;  // VLAN id of the tag behind the outermost one; 0: none
    std::uint16_t etherType = 0;  // host byte order, behind these two tags
    std::size_t network = 0;      // where the network header begins; not beyond the bytes given
    friend bool operator==(const FrameHead&, const FrameHead&) = default;
};

/// The outermost tag, which `packet` tells of, may be in the bytes or not. Nothing when they end before
/// the EtherType. Where the two readings are possible, the tag is in the bytes.
[[nodiscard]] std::optional<FrameHead> ReadFrame(const Entering& packet);

struct Addresses {
    Address source, destination;
    friend bool operator==(const Addresses&, const Addresses&) = default;
};

/// Of an IPv4 (RFC 791) or IPv6 (RFC 8200) header; nothing for another type or version, or when the bytes
/// end before the addresses do.
[[nodiscard]] std::optional<Addresses> ReadAddresses(std::uint16_t etherType,
                                                     std::span<const std::byte> network);

}  // namespace net

#endif
