// SPDX-License-Identifier: Apache-2.0
// Which flow a sampled packet belongs to, told from the beginning of it: who speaks to whom, and of what
// kind. Knows Ethernet, VLAN tags, IPv4 (RFC 791), IPv6 (RFC 8200) and the ports of TCP, UDP, UDP-Lite, DCCP
// and SCTP.

#ifndef MANAGER_SAMPLING_FLOW_KEY_H
#define MANAGER_SAMPLING_FLOW_KEY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "wire/sample.h"

namespace manager {

struct FlowKey {
    enum class Kind : std::uint8_t { kLink, kIpv4, kIpv6 };

    /// Network byte order, zeros behind: 6 bytes of a link address, 4 of an IPv4 address, 16.
    using Address = std::array<std::byte, 16>;

    Address source{}, destination{};
    std::uint16_t protocol = 0;  // kLink: the EtherType, or a length below 1536; else IANA's protocol number
    std::uint16_t sourcePort = 0, destinationPort = 0;  // host byte order; zeros if the packet has none
    Kind kind = Kind::kLink;
    bool hasPorts = false;

    friend bool operator==(const FlowKey&, const FlowKey&) = default;
};

struct FlowKeyHash {
    // Not noexcept: so a container keeps the hash beside the flow, instead of taking it again.
    [[nodiscard]] std::size_t operator()(const FlowKey& key) const;
};

/// Of the beginning of a packet, whatever is in it: a header that is cut, or contradicts itself, makes a flow
/// of what stands before. Nullopt if not even the addresses are there. Ports are of first fragments only.
std::optional<FlowKey> FlowKeyOf(wire::HeaderProtocol protocol, std::span<const std::byte> header);

std::string SourceText(const FlowKey& key);
std::string DestinationText(const FlowKey& key);
/// "tcp", "arp"; of others the number: "proto-200", "0x88b5", "llc" for frames with a length.
std::string ProtocolText(const FlowKey& key);

}  // namespace manager

#endif
