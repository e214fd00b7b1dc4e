// SPDX-License-Identifier: Apache-2.0
// Where packets go to, as tests expect it; and devices of tables that a test fills.

#ifndef TESTS_UNIT_NET_DESTINATIONS_H
#define TESTS_UNIT_NET_DESTINATIONS_H

#include <cstddef>
#include <cstdint>
#include <ostream>

#include "net/resolver/resolver.h"

namespace net {

inline constexpr std::uint32_t kBridge = 10;
inline constexpr std::uint32_t kRouter = 20;  // a port that is none of a bridge

inline Destination Made(Destination::Kind kind, std::uint32_t ifIndex = 0, std::uint32_t interfaces = 0,
                        std::uint16_t in = 0, std::uint16_t out = 0)
{
    return {kind, ifIndex, interfaces, Discard::kUnknown, in, out, {}};
}

inline Destination Dropped(Discard reason, std::uint16_t in = 0)
{
    return {Destination::Kind::kDiscarded, 0, 0, reason, in, 0, {}};
}

// NOLINTNEXTLINE(readability-identifier-naming): GoogleTest's name
inline void PrintTo(const Destination& to, std::ostream* out)
{
    *out << "kind " << static_cast<int>(to.kind) << " reason " << static_cast<int>(to.reason) << " ifIndex "
         << to.ifIndex << " interfaces " << to.interfaces << " vlans " << to.inputVlan << " "
         << to.outputVlan;
    if (!to.route) return;
    *out << " route " << int{to.route->sourceBits} << " " << int{to.route->destinationBits} << " by";
    for (int i = 0; i < to.route->nextHop.size; ++i)
        *out << " " << int{to.route->nextHop.bytes[static_cast<std::size_t>(i)]};
}

}  // namespace net

#endif
