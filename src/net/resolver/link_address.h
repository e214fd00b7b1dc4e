// SPDX-License-Identifier: Apache-2.0
// What an Ethernet address says by itself. Each function reads six bytes.

#ifndef NET_RESOLVER_LINK_ADDRESS_H
#define NET_RESOLVER_LINK_ADDRESS_H

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace net {

/// Multicast or broadcast.
inline bool IsGroup(const std::uint8_t* mac) { return (mac[0] & 1) != 0; }

inline bool IsBroadcast(const std::uint8_t* mac)
{
    return std::all_of(mac, mac + 6, [](std::uint8_t byte) { return byte == 0xFF; });
}

/// 01:80:C2:00:00:0X, which bridges keep to themselves (IEEE 802.1D, 7.12.6).
inline bool IsLinkLocal(const std::uint8_t* mac)
{
    constexpr std::uint8_t kPrefix[] = {0x01, 0x80, 0xC2, 0x00, 0x00};
    return std::memcmp(mac, kPrefix, sizeof kPrefix) == 0 && mac[5] < 0x10;
}

}  // namespace net

#endif
