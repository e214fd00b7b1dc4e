// SPDX-License-Identifier: Apache-2.0
#include "net/resolver/packet_header.h"

#include <cstring>

#include <linux/if_ether.h>

namespace net {
namespace {

constexpr std::size_t kTag = 4;
constexpr std::uint16_t kVlanId = 0x0FFF;
constexpr std::uint16_t kDontFragment = 0x4000;

// In host byte order; 0 beyond the end.
std::uint16_t Read16(std::span<const std::byte> bytes, std::size_t at)
{
    if (bytes.size() < at + 2) return 0;
    return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes[at]) << 8 |
                                      std::to_integer<unsigned>(bytes[at + 1]));
}

// Of a jumbogram an option tells it.
std::uint32_t Ipv6Size(std::span<const std::byte> header)
{
    constexpr std::uint32_t kHeader = 40;
    const std::uint32_t payload = Read16(header, 4);
    return payload == 0 ? 0 : kHeader + payload;
}

Address ReadAddress(std::span<const std::byte> bytes, std::size_t at, std::uint8_t size)
{
    Address address;
    address.size = size;
    std::memcpy(address.bytes.data(), bytes.data() + at, size);
    return address;
}

}  // namespace

std::optional<FrameHead> ReadFrame(const Entering& packet)
{
    const auto& bytes = packet.header;
    if (bytes.size() < kEthernetSize) return std::nullopt;
    std::size_t at = kEthernetSize - 2;
    FrameHead head;
    head.etherType = Read16(bytes, at);
    // The tag that `packet` names, or one that only carries a priority, for which packet.vlan is 0.
    if (IsVlanType(head.etherType) && bytes.size() >= at + kTag + 2 &&
        (Read16(bytes, at + 2) & kVlanId) == packet.vlan && Read16(bytes, at + kTag) == packet.etherType) {
        at += kTag;
        head.etherType = packet.etherType;
    }
    if (IsVlanType(head.etherType) && bytes.size() >= at + kTag + 2) {
        head.innerProtocol = head.etherType;
        head.innerVlan = Read16(bytes, at + 2) & kVlanId;
        at += kTag;
        head.etherType = Read16(bytes, at);
    }
    head.network = at + 2;
    return head;
}

std::optional<Addresses> ReadAddresses(std::uint16_t etherType, std::span<const std::byte> network)
{
    if (network.empty()) return std::nullopt;
    const auto version = std::to_integer<unsigned>(network[0]) >> 4;
    if (etherType == ETH_P_IP && version == 4 && network.size() >= 20)
        return Addresses{ReadAddress(network, 12, 4), ReadAddress(network, 16, 4),
                         std::to_integer<std::uint8_t>(network[8]), Read16(network, 2),
                         (Read16(network, 6) & kDontFragment) == 0};
    if (etherType == ETH_P_IPV6 && version == 6 && network.size() >= 40)
        return Addresses{ReadAddress(network, 8, 16), ReadAddress(network, 24, 16),
                         std::to_integer<std::uint8_t>(network[7]), Ipv6Size(network), false};
    return std::nullopt;
}

}  // namespace net
