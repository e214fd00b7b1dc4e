// SPDX-License-Identifier: Apache-2.0
// Where the kernel sends a packet, as far as can be told from what it has learned and been told: bridge
// forwarding from a mirror of the forwarding database, routing from look-ups that are remembered.

#ifndef NET_ROUTES_FORWARDING_H
#define NET_ROUTES_FORWARDING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace net {

/// An IPv4 or IPv6 address in network byte order.
struct Address {
    std::uint8_t size = 0;  // 4 or 16 bytes; 0: none
    std::array<std::uint8_t, 16> bytes{};
    friend bool operator==(const Address&, const Address&) = default;
};

struct Destination {
    enum class Kind : std::uint8_t {
        kUnknown,
        kInterface,  // ifIndex
        kLocal,      // delivered on this machine
        kSeveral,    // flooded or multicast: to `interfaces` of them, 0 where their number is unknown
        kDiscarded,  // a black hole or an unreachable route
    };
    struct Route {
        Address nextHop;              // directly connected: all zeros, of the packet's family
        std::uint8_t sourceBits = 0;  // prefix lengths of the routes to both
        std::uint8_t destinationBits = 0;
        friend bool operator==(const Route&, const Route&) = default;
    };

    Kind kind = Kind::kUnknown;
    std::uint32_t ifIndex = 0;
    std::uint32_t interfaces = 0;
    std::uint16_t inputVlan = 0;   // 0: none
    std::uint16_t outputVlan = 0;  // 0: none
    std::optional<Route> route;    // only where it was routed
    friend bool operator==(const Destination&, const Destination&) = default;
};

/// One packet that entered.
struct Entering {
    std::uint32_t ifIndex = 0;
    std::uint16_t etherType = 0;        // host byte order, behind the outermost tag
    std::uint16_t vlan = 0;             // VLAN id of its outermost 802.1Q tag; 0: untagged or priority-tagged
    std::span<const std::byte> header;  // from the link header on; the outermost tag may be in it or not
};

/// Where a packet that leaves has come from.
struct Origin {
    Destination::Kind kind = Destination::Kind::kUnknown;  // or kInterface, or kLocal: made here
    std::uint32_t ifIndex = 0;                             // of kInterface
    std::optional<Destination::Route> route;               // only where it was routed, and by what is known
    friend bool operator==(const Origin&, const Origin&) = default;
};

class Forwarding {
public:
    Forwarding() = default;
    Forwarding(const Forwarding&) = delete;
    Forwarding& operator=(const Forwarding&) = delete;
    virtual ~Forwarding() = default;

    /// Fast and bounded: tables and, for a flow that was not seen lately, one question to the kernel.
    /// Any bytes will do.
    [[nodiscard]] virtual Destination Resolve(const Entering& packet) = 0;

    /// Likewise of a packet that leaves by `leaving.ifIndex`. `enteredBy` is the interface by which the
    /// kernel says that it had entered, 0 for one made here; where nobody says, it has come from where an
    /// answer to it would go.
    [[nodiscard]] virtual Origin Trace(const Entering& leaving, std::optional<std::uint32_t> enteredBy) = 0;

    /// VLAN of packets without a tag that enter or leave by this bridge port (its PVID); 0: none.
    [[nodiscard]] virtual std::uint16_t PortVlan(std::uint32_t ifIndex) const = 0;
};

}  // namespace net

#endif
