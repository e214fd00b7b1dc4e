// SPDX-License-Identifier: Apache-2.0
// Where the kernel sends a packet, as far as its tables tell: bridging from a mirror of the forwarding
// database, routing from remembered look-ups.

#ifndef NET_ROUTES_FORWARDING_H
#define NET_ROUTES_FORWARDING_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "net/routes/address.h"

namespace net {

/// Why a packet goes nowhere.
enum class Discard : std::uint8_t {
    kUnknown,
    kNoRoute,
    kUnreachable,  // an unreachable route, or this machine does not forward there
    kProhibited,
    kBlackHole,
    kTimeToLive,   // its time to live or hop limit ends here
    kReversePath,  // its source should have entered by another interface, or can't be a source
    kSourceMulticast,
    kSourceLoopback,
    kSourceUnspecified,
    kDestinationLoopback,
    kIngressVlan,  // the port where it entered is not in its VLAN, or no device takes that VLAN
    kEgressVlan,   // the bridge port of its destination is not in its VLAN
    kPortNotForwarding,
    kNoPorts,   // it would be flooded, and there is no other port
    kSamePort,  // its destination is behind the port where it entered
    kReservedMac,
    kUnicastInGroup,  // it would be routed, but its link address is that of a group
    kFragmentation,   // IPv4: larger than the route's MTU, and not to be fragmented
    kTooBig,          // IPv6: larger than the MTU of the interface
};

struct Destination {
    enum class Kind : std::uint8_t {
        kUnknown,
        kInterface,  // ifIndex
        kLocal,      // delivered on this machine
        kSeveral,    // flooded or multicast: to `interfaces` of them, 0 if their number is unknown
        kDiscarded,  // for `reason`
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
    Discard reason = Discard::kUnknown;
    std::uint16_t inputVlan = 0;   // 0: none
    std::uint16_t outputVlan = 0;  // 0: none
    std::optional<Route> route;    // only if it was routed
    friend bool operator==(const Destination&, const Destination&) = default;
};

/// One packet that entered.
struct Entering {
    std::uint32_t ifIndex = 0;
    std::uint16_t etherType = 0;          // host byte order, behind the outermost tag
    std::uint16_t vlan = 0;               // VLAN id of its outermost tag; 0: untagged or priority-tagged
    std::span<const std::byte> header;    // from the link header on, with or without the outermost tag
    std::uint16_t vlanProtocol = 0x8100;  // EtherType of that tag, 802.1Q or 802.1ad
    /// Bytes of the whole frame from the link header on, like `header` with or without that tag; if the
    /// kernel holds several frames as one packet, of the longest of them. 0: as the packet's header tells.
    std::uint32_t length = 0;
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
