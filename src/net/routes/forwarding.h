// SPDX-License-Identifier: Apache-2.0
// Where the kernel sends a packet, as far as its tables tell: bridging from a mirror of the forwarding
// database, routing from remembered look-ups.

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
        kSeveral,    // flooded or multicast: to `interfaces` of them, 0 if their number is unknown
        kDiscarded,  // a black hole or an unreachable route
    };
    struct Route {
        Address nextHop;              // all zeros, of the packet's family, if directly connected
        std::uint8_t sourceBits = 0;  // prefix lengths of the routes to source and destination
        std::uint8_t destinationBits = 0;
        friend bool operator==(const Route&, const Route&) = default;
    };

    Kind kind = Kind::kUnknown;
    std::uint32_t ifIndex = 0;
    std::uint32_t interfaces = 0;
    std::uint16_t inputVlan = 0;   // 0: none
    std::uint16_t outputVlan = 0;  // 0: none
    std::optional<Route> route;    // only if it was routed
    friend bool operator==(const Destination&, const Destination&) = default;
};

/// One packet that entered.
struct Entering {
    std::uint32_t ifIndex = 0;
    std::uint16_t etherType = 0;        // host byte order, behind the outermost tag
    std::uint16_t vlan = 0;             // VLAN id of its outermost 802.1Q tag; 0: untagged or priority-tagged
    std::span<const std::byte> header;  // from the link header on, with or without the outermost tag
};

/// Where a leaving packet has come from.
struct Origin {
    Destination::Kind kind = Destination::Kind::kUnknown;  // or kInterface, or kLocal: sent by this machine
    std::uint32_t ifIndex = 0;                             // of kInterface
    std::optional<Destination::Route> route;               // only if it was routed, and by known routes
    friend bool operator==(const Origin&, const Origin&) = default;
};

class Forwarding {
public:
    Forwarding() = default;
    Forwarding(const Forwarding&) = delete;
    Forwarding& operator=(const Forwarding&) = delete;
    virtual ~Forwarding() = default;

    /// Fast and bounded: uses tables and, for a flow not seen lately, one request to the kernel. Safe on any
    /// header bytes. kUnknown if the tables and the kernel do not say.
    [[nodiscard]] virtual Destination Resolve(const Entering& packet) = 0;

    /// The same for a packet that leaves by `leaving.ifIndex`. `enteredBy` is the interface by which it
    /// entered according to the kernel, 0 if this machine sent it. If it is nullopt, the packet is taken to
    /// come from where an answer to it would go.
    [[nodiscard]] virtual Origin Trace(const Entering& leaving, std::optional<std::uint32_t> enteredBy) = 0;

    /// The VLAN of packets without a tag that enter or leave by this bridge port (its PVID); 0: none.
    [[nodiscard]] virtual std::uint16_t PortVlan(std::uint32_t ifIndex) const = 0;
};

}  // namespace net

#endif
