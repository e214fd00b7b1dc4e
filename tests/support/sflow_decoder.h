// SPDX-License-Identifier: Apache-2.0
// A strict decoder of sFlow version 5 datagrams for tests. It shares no code and no constant with the
// encoder, so that a mistake in one is not made good by the other. It knows the samples and records that
// this system sends and takes nothing else: unknown formats, lengths that are not exact, padding that is
// not zero, records of one kind twice and bytes left over are errors. It is no collector.

#ifndef SUPPORT_SFLOW_DECODER_H
#define SUPPORT_SFLOW_DECODER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace support {

/// What is wrong, with the offset in the bytes given: "offset 36: ...".
class DecodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An interface of a flow sample. Format 0: an ifIndex (0 unknown, 0x3FFFFFFF this machine itself);
/// 1: discarded, for that reason; 2: so many interfaces (0 unknown).
struct DecodedPort {
    std::uint32_t format = 0;
    std::uint32_t value = 0;
    friend bool operator==(const DecodedPort&, const DecodedPort&) = default;
};

struct DecodedHeader {
    std::uint32_t protocol = 0;  // 1: Ethernet
    std::uint32_t frameLength = 0;
    std::uint32_t stripped = 0;
    std::vector<std::byte> bytes;
    friend bool operator==(const DecodedHeader&, const DecodedHeader&) = default;
};

struct DecodedSwitch {
    std::uint32_t inputVlan = 0;
    std::uint32_t inputPriority = 0;
    std::uint32_t outputVlan = 0;
    std::uint32_t outputPriority = 0;
    friend bool operator==(const DecodedSwitch&, const DecodedSwitch&) = default;
};

struct DecodedRouter {
    std::string nextHop;  // as text
    std::uint32_t sourceBits = 0;
    std::uint32_t destinationBits = 0;
    friend bool operator==(const DecodedRouter&, const DecodedRouter&) = default;
};

struct DecodedFlow {
    bool expanded = false;
    std::uint32_t sequence = 0;
    std::uint32_t sourceClass = 0;  // 0: an ifIndex
    std::uint32_t sourceIndex = 0;
    std::uint32_t rate = 0;
    std::uint32_t pool = 0;
    std::uint32_t drops = 0;
    DecodedPort input;
    DecodedPort output;
    std::vector<std::uint32_t> records;  // formats, in the order in which they came
    std::optional<DecodedHeader> header;
    std::optional<DecodedSwitch> extendedSwitch;
    std::optional<DecodedRouter> extendedRouter;
    friend bool operator==(const DecodedFlow&, const DecodedFlow&) = default;
};

/// All ones: not counted.
struct DecodedGeneric {
    std::uint32_t ifIndex = 0;
    std::uint32_t ifType = 0;
    std::uint64_t speed = 0;
    std::uint32_t direction = 0;
    bool adminUp = false;
    bool operUp = false;
    std::uint64_t inOctets = 0;
    std::uint32_t inUnicast = 0;
    std::uint32_t inMulticast = 0;
    std::uint32_t inBroadcast = 0;
    std::uint32_t inDiscards = 0;
    std::uint32_t inErrors = 0;
    std::uint32_t inUnknownProtocols = 0;
    std::uint64_t outOctets = 0;
    std::uint32_t outUnicast = 0;
    std::uint32_t outMulticast = 0;
    std::uint32_t outBroadcast = 0;
    std::uint32_t outDiscards = 0;
    std::uint32_t outErrors = 0;
    std::uint32_t promiscuous = 0;
    friend bool operator==(const DecodedGeneric&, const DecodedGeneric&) = default;
};

struct DecodedEthernet {
    std::uint32_t alignmentErrors = 0;
    std::uint32_t fcsErrors = 0;
    std::uint32_t singleCollisions = 0;
    std::uint32_t multipleCollisions = 0;
    std::uint32_t sqeTestErrors = 0;
    std::uint32_t deferred = 0;
    std::uint32_t lateCollisions = 0;
    std::uint32_t excessiveCollisions = 0;
    std::uint32_t macTransmitErrors = 0;
    std::uint32_t carrierSenseErrors = 0;
    std::uint32_t frameTooLongs = 0;
    std::uint32_t macReceiveErrors = 0;
    std::uint32_t symbolErrors = 0;
    friend bool operator==(const DecodedEthernet&, const DecodedEthernet&) = default;
};

/// A member of an aggregate. Systems as text, "02:00:00:00:00:01"; states as the octets of 802.1AX.
struct DecodedLag {
    std::string actorSystem;
    std::string partnerSystem;
    std::uint32_t aggregate = 0;
    std::uint8_t actorAdminState = 0;
    std::uint8_t actorState = 0;
    std::uint8_t partnerAdminState = 0;
    std::uint8_t partnerState = 0;
    std::uint32_t lacpdusIn = 0;
    std::uint32_t markersIn = 0;
    std::uint32_t markerResponsesIn = 0;
    std::uint32_t unknownIn = 0;
    std::uint32_t illegalIn = 0;
    std::uint32_t lacpdusOut = 0;
    std::uint32_t markersOut = 0;
    std::uint32_t markerResponsesOut = 0;
    friend bool operator==(const DecodedLag&, const DecodedLag&) = default;
};

struct DecodedCounters {
    bool expanded = false;
    std::uint32_t sequence = 0;
    std::uint32_t sourceClass = 0;
    std::uint32_t sourceIndex = 0;
    std::vector<std::uint32_t> records;  // formats, in the order in which they came
    std::optional<DecodedGeneric> generic;
    std::optional<DecodedEthernet> ethernet;
    std::optional<DecodedLag> lag;
    std::optional<std::string> portName;
    friend bool operator==(const DecodedCounters&, const DecodedCounters&) = default;
};

struct DecodedTrap {
    std::string group;
    std::string trap;
    friend bool operator==(const DecodedTrap&, const DecodedTrap&) = default;
};

/// A discarded packet; there is one encoding only.
struct DecodedDiscard {
    std::uint32_t sequence = 0;
    std::uint32_t sourceClass = 0;
    std::uint32_t sourceIndex = 0;
    std::uint32_t drops = 0;
    std::uint32_t input = 0;  // ifIndex; 0 unknown
    std::uint32_t output = 0;
    std::uint32_t reason = 0;            // below 16: a code of ICMP's; from 256 on sFlow's own
    std::vector<std::uint32_t> records;  // formats, in the order in which they came
    std::optional<DecodedHeader> header;
    std::optional<std::string> function;
    std::optional<DecodedTrap> trap;
    std::optional<std::string> linuxReason;
    friend bool operator==(const DecodedDiscard&, const DecodedDiscard&) = default;
};

using DecodedSample = std::variant<DecodedFlow, DecodedCounters, DecodedDiscard>;

struct Datagram {
    std::string agent;  // IPv4 or IPv6, as text
    std::uint32_t subAgent = 0;
    std::uint32_t sequence = 0;
    std::uint32_t uptime = 0;            // milliseconds
    std::vector<DecodedSample> samples;  // as they came
    /// Those of one kind, in the order in which they came.
    [[nodiscard]] std::vector<DecodedFlow> Flows() const;
    [[nodiscard]] std::vector<DecodedCounters> Counters() const;
    [[nodiscard]] std::vector<DecodedDiscard> Discards() const;
    friend bool operator==(const Datagram&, const Datagram&) = default;
};

/// The whole payload of one UDP datagram. Samples of both encodings in one datagram are an error. Throws
/// DecodeError.
Datagram DecodeDatagram(std::span<const std::byte> bytes);

/// One sample with its format and length, and nothing behind it. Throws DecodeError.
DecodedSample DecodeSample(std::span<const std::byte> bytes);

}  // namespace support

#endif
