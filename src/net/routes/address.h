// SPDX-License-Identifier: Apache-2.0
// IP addresses, and what kind of address one is.

#ifndef NET_ROUTES_ADDRESS_H
#define NET_ROUTES_ADDRESS_H

#include <algorithm>
#include <array>
#include <cstdint>

namespace net {

/// An IPv4 or IPv6 address in network byte order.
struct Address {
    std::uint8_t size = 0;  // 4 or 16 bytes; 0: none
    std::array<std::uint8_t, 16> bytes{};
    friend bool operator==(const Address&, const Address&) = default;
};

[[nodiscard]] inline bool IsMulticast(const Address& address)
{
    return address.size == 4 ? (address.bytes[0] & 0xF0) == 0xE0 : address.bytes[0] == 0xFF;
}

/// A group that no router forwards: 224.0.0.0/24 (RFC 5771, 4), and the scopes interface and link of IPv6
/// (RFC 4291, 2.7).
[[nodiscard]] inline bool IsLinkScope(const Address& group)
{
    const auto& bytes = group.bytes;
    if (group.size == 4) return bytes[0] == 224 && bytes[1] == 0 && bytes[2] == 0;
    return bytes[0] == 0xFF && (bytes[1] & 0x0F) <= 2;
}

[[nodiscard]] inline bool IsBroadcast(const Address& address)
{
    const auto& bytes = address.bytes;
    return address.size == 4 &&
           std::all_of(bytes.begin(), bytes.begin() + 4, [](std::uint8_t byte) { return byte == 0xFF; });
}

[[nodiscard]] inline bool IsLoopback(const Address& address)
{
    constexpr Address kLoopback6{16, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
    return address.size == 4 ? address.bytes[0] == 127 : address == kLoopback6;
}

/// The source of a host that has no address yet; routers do not forward it.
[[nodiscard]] inline bool IsUnspecified(const Address& address)
{
    return address == Address{address.size, {}};
}

}  // namespace net

#endif
