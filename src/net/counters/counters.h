// SPDX-License-Identifier: Apache-2.0
// The counters of network interfaces: rtnetlink's 64-bit link statistics, ethtool netlink's IEEE 802.3
// statistics, if the driver keeps them, and what a member of a bond or team has of link aggregation.

#ifndef NET_COUNTERS_COUNTERS_H
#define NET_COUNTERS_COUNTERS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "net/links/links.h"

namespace net {

/// As rtnl_link_stats64 has them.
struct LinkCounters {
    std::uint32_t ifIndex = 0;
    std::uint64_t rxPackets = 0, txPackets = 0;
    std::uint64_t rxBytes = 0, txBytes = 0;
    std::uint64_t rxErrors = 0, txErrors = 0;
    std::uint64_t rxDropped = 0, txDropped = 0;
    std::uint64_t rxMissed = 0;
    std::uint64_t multicast = 0;  // received
};

/// IEEE 802.3 counters that a driver keeps; those it does not keep are absent. Any: at least one is present.
struct EthernetCounters {
    std::optional<std::uint64_t> alignmentErrors, fcsErrors, singleCollisions, multipleCollisions,
        sqeTestErrors, deferred, lateCollisions, excessiveCollisions, macTransmitErrors, carrierSenseErrors,
        frameTooLongs, macReceiveErrors, symbolErrors;
    [[nodiscard]] bool Any() const
    {
        return alignmentErrors || fcsErrors || singleCollisions || multipleCollisions || sqeTestErrors ||
               deferred || lateCollisions || excessiveCollisions || macTransmitErrors || carrierSenseErrors ||
               frameTooLongs || macReceiveErrors || symbolErrors;
    }
};

/// The member of a bond or team. Without LACP (a bond of another mode, a team) the partner and the states are
/// zero and nothing is counted.
struct AggregateMember {
    std::uint32_t aggregate = 0;  // ifIndex of the bond or team
    MacAddress actorSystem{};     // in LACP; else the aggregate's address
    MacAddress partnerSystem{};   // all zeros: none, or not known
    std::uint8_t actorState = 0,
                 partnerState = 0;  // Actor_Oper_Port_State of IEEE 802.1AX, and the partner's
    std::optional<std::uint64_t> lacpdusIn{}, markersIn{}, markerResponsesIn{}, unknownIn{}, illegalIn{},
        lacpdusOut{}, markersOut{}, markerResponsesOut{};
    friend bool operator==(const AggregateMember&, const AggregateMember&) = default;
};

/// Its requests wait for the kernel's lock while any process changes links, in any namespace. Writes nothing
/// to the log.
class CounterReader {
public:
    CounterReader() = default;
    CounterReader(const CounterReader&) = delete;
    CounterReader& operator=(const CounterReader&) = delete;
    virtual ~CounterReader() = default;

    /// The counters of these interfaces, in any order; interfaces that are gone are missing. The cost grows
    /// with their number; many are read with one dump. Valid until the next call. Throws std::system_error.
    virtual std::span<const LinkCounters> Read(std::span<const std::uint32_t> ifIndexes) = 0;

    /// The driver's counters; nullopt if it has none, which is remembered for the interface until Forget, or
    /// if the kernel reports another error.
    virtual std::optional<EthernetCounters> ReadEthernet(std::uint32_t ifIndex) = 0;
    /// The member of a bond or team; nullopt if it is none, or if the kernel reports an error. What the
    /// members of one aggregate have in common is read once between two calls of Read.
    virtual std::optional<AggregateMember> ReadMember(std::uint32_t ifIndex) = 0;

    virtual void Forget(std::uint32_t ifIndex) = 0;
};

/// Opens its sockets. Throws std::system_error.
std::unique_ptr<CounterReader> MakeCounterReader();

}  // namespace net

#endif
