// SPDX-License-Identifier: Apache-2.0
// The records of sFlow version 5 (sflow.org, "sFlow Version 5", July 2004) that this agent sends, as
// plain values. encode.h writes them.

#ifndef WIRE_SAMPLE_H
#define WIRE_SAMPLE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "wire/drop_reason.h"

namespace wire {

/// Compact: source and interfaces in 32 bits, for indexes below 2^24. Expanded: any index. One agent
/// sends one of the two.
enum class Encoding : std::uint8_t { kCompact, kExpanded };
inline constexpr std::uint32_t kFirstExpandedIndex = std::uint32_t{1} << 24;

/// An interface of a flow sample: a number with its format.
struct Port {
    enum class Format : std::uint8_t { kSingle = 0, kDiscarded = 1, kMultiple = 2 };
    Format format = Format::kSingle;
    std::uint32_t value = 0;  // single: ifIndex, 0 unknown; discarded: reason; multiple: how many, 0 unknown
    friend bool operator==(const Port&, const Port&) = default;
};
/// Input of packets that this machine sends, output of packets that are delivered to it.
inline constexpr Port kInternalPort{Port::Format::kSingle, 0x3FFFFFFF};

/// The output of a discarded packet.
constexpr Port Discarded(DropReason reason)
{
    return {Port::Format::kDiscarded, static_cast<std::uint32_t>(reason)};
}

enum class HeaderProtocol : std::uint32_t { kEthernet = 1, kPpp = 7, kIpv4 = 11, kIpv6 = 12, kMpls = 13 };

/// IPv4 or IPv6, network byte order.
struct Address {
    std::uint8_t size = 0;  // 0: unknown; 4; 16
    std::array<std::uint8_t, 16> bytes{};
    friend bool operator==(const Address&, const Address&) = default;
};

struct ExtendedRouter {
    /// All zeros if the destination is directly connected. If it is unknown, the record is left out: the
    /// format can say so, but many collectors then drop the rest of the datagram.
    Address nextHop;
    std::uint32_t sourceBits = 0;
    std::uint32_t destinationBits = 0;
};

struct FlowSample {
    std::uint32_t sequence = 0;  // of the data source
    std::uint32_t source = 0;    // ifIndex of the data source
    std::uint32_t rate = 0;
    std::uint32_t pool = 0;  // modulo 2^32
    std::uint32_t drops = 0;
    Port input;
    Port output;

    HeaderProtocol protocol = HeaderProtocol::kEthernet;
    std::uint32_t frameLength = 0;  // on the wire, with the FCS
    std::uint32_t stripped = 0;     // of these, bytes that were taken away before sampling: the FCS
    std::span<const std::byte> header;
    /// A VLAN tag to be put back into `header` behind the two link addresses, host byte order; protocol 0:
    /// none. It adds four bytes to what is sent of the header.
    std::uint16_t tagProtocol = 0;
    std::uint16_t tagControl = 0;
    std::size_t maxHeader = 0;  // bytes of the header that are sent at most, a tag put back included

    std::uint32_t inputVlan = 0, inputPriority = 0;
    std::uint32_t outputVlan = 0, outputPriority = 0;
    std::optional<ExtendedRouter> router;
};

inline constexpr std::uint32_t kNotCounted32 = 0xFFFFFFFF;
inline constexpr std::uint64_t kNotCounted64 = ~std::uint64_t{0};

/// if_counters (0:1).
struct GenericCounters {
    std::uint32_t ifIndex = 0;
    std::uint32_t ifType = 0;     // IANAifType
    std::uint64_t speed = 0;      // bits a second; 0: unknown
    std::uint32_t direction = 0;  // 0 unknown, 1 full duplex, 2 half duplex
    bool adminUp = false, operUp = false;
    std::uint64_t inOctets = kNotCounted64;
    std::uint32_t inUnicast = kNotCounted32, inMulticast = kNotCounted32, inBroadcast = kNotCounted32;
    std::uint32_t inDiscards = kNotCounted32, inErrors = kNotCounted32, inUnknownProtocols = kNotCounted32;
    std::uint64_t outOctets = kNotCounted64;
    std::uint32_t outUnicast = kNotCounted32, outMulticast = kNotCounted32, outBroadcast = kNotCounted32;
    std::uint32_t outDiscards = kNotCounted32, outErrors = kNotCounted32;
    std::uint32_t promiscuous = 0;  // 1 yes, 2 no, 0 unknown
};

/// ethernet_counters (0:2).
struct EthernetCounters {
    std::uint32_t alignmentErrors = kNotCounted32, fcsErrors = kNotCounted32,
                  singleCollisions = kNotCounted32, multipleCollisions = kNotCounted32,
                  sqeTestErrors = kNotCounted32, deferred = kNotCounted32, lateCollisions = kNotCounted32,
                  excessiveCollisions = kNotCounted32, macTransmitErrors = kNotCounted32,
                  carrierSenseErrors = kNotCounted32, frameTooLongs = kNotCounted32,
                  macReceiveErrors = kNotCounted32, symbolErrors = kNotCounted32;
};

/// lag_port_stats (0:7) of sflow.org's sflow_lag.txt: the member of an aggregate, an aggregation port of
/// IEEE8023-LAG-MIB.
struct LagCounters {
    using System = std::array<std::uint8_t, 6>;  // all zeros: unknown, or none
    System actorSystem{}, partnerSystem{};
    std::uint32_t aggregate = 0;  // ifIndex; 0: attached to none
    /// Bits of 802.1AX's Actor_State and Partner_State; 0: unknown.
    std::uint8_t actorAdminState = 0, actorState = 0, partnerAdminState = 0, partnerState = 0;
    std::uint32_t lacpdusIn = kNotCounted32, markersIn = kNotCounted32, markerResponsesIn = kNotCounted32,
                  unknownIn = kNotCounted32, illegalIn = kNotCounted32, lacpdusOut = kNotCounted32,
                  markersOut = kNotCounted32, markerResponsesOut = kNotCounted32;
};

struct CountersSample {
    std::uint32_t sequence = 0;
    std::uint32_t source = 0;  // ifIndex of the data source
    GenericCounters generic;
    std::optional<EthernetCounters> ethernet;
    std::optional<LagCounters> lag;
    std::string_view portName;  // empty: no such record
};

struct DatagramHeader {
    std::uint32_t agentAddress = 0;  // IPv4, network byte order in memory
    std::uint32_t subAgent = 0;
    std::uint32_t sequence = 0;  // of this stream of datagrams
    std::uint32_t uptime = 0;    // milliseconds
    std::uint32_t samples = 0;
};

}  // namespace wire

#endif
