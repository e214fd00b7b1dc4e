// SPDX-License-Identifier: Apache-2.0
// Writes sFlow version 5 in XDR (RFC 4506: big-endian, everything in units of four bytes) into the caller's
// buffers: flow samples (records sampled header, extended switch, and extended router if there is one),
// counters samples (generic, Ethernet, aggregation port, port name) and the head of a datagram. Allocates
// nothing, sends nothing, numbers nothing. The manager's export uses it; a test decoder that shares no code
// with it checks it.

#ifndef WIRE_ENCODE_H
#define WIRE_ENCODE_H

#include <endian.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "wire/frame.h"
#include "wire/sample.h"
#include "wire/xdr.h"

namespace wire {

// The numbers by which samples and records are told apart. All are of enterprise 0, so the format word is the
// number itself.
enum class SampleFormat : std::uint32_t {
    kFlow = 1,
    kCounters = 2,
    kExpandedFlow = 3,
    kExpandedCounters = 4,
};

enum class FlowRecord : std::uint32_t {
    kSampledHeader = 1,
    kExtendedSwitch = 1001,
    kExtendedRouter = 1002,
};

enum class CounterRecord : std::uint32_t {
    kGeneric = 1,
    kEthernet = 2,
    kLag = 7,
    kPortName = 1005,
};

enum class AddressType : std::uint32_t { kIpv4 = 1, kIpv6 = 2 };

/// Bytes of a sample's or record's format and length.
inline constexpr std::size_t kPrefixSize = 8;

// Bytes behind the prefix, the records of a sample not counted.
inline constexpr std::size_t kFlowSize = 32;
inline constexpr std::size_t kExpandedFlowSize = 44;
inline constexpr std::size_t kCountersSize = 12;
inline constexpr std::size_t kExpandedCountersSize = 16;

// Bytes behind the prefix.
inline constexpr std::size_t kSampledHeaderSize = 16;  // the header's bytes not counted
inline constexpr std::size_t kExtendedSwitchSize = 16;
inline constexpr std::size_t kExtendedRouterSize = 12;  // the address's bytes not counted
inline constexpr std::size_t kGenericSize = 88;
inline constexpr std::size_t kEthernetSize = 52;
inline constexpr std::size_t kLagSize = 56;
inline constexpr std::size_t kPortNameSize = 4;  // the name's bytes not counted
/// Bytes of a port name at most.
inline constexpr std::size_t kMaxPortName = 255;

inline constexpr std::uint32_t kVersion = 5;
inline constexpr std::size_t kDatagramHeaderSize = 28;  // with an IPv4 agent address
/// Room that any sample needs at most.
inline constexpr std::size_t kMaxFlowSample = 1024;
inline constexpr std::size_t kMaxCountersSample = 512;
/// Room in which a flow sample always fits once its header is cut: what the smallest datagram, 200 bytes,
/// leaves.
inline constexpr std::size_t kMinSampleRoom = 200 - kDatagramHeaderSize;

namespace detail {

/// The format of a sample or record, and its bytes behind these two words.
template <typename Format>
void WritePrefix(XdrWriter& to, Format format, std::size_t size)
{
    to.Word(static_cast<std::uint32_t>(format));
    to.Word(static_cast<std::uint32_t>(size));
}

/// The sequence number and the data source. Compact, the source is one word: class 0, which is that of an
/// ifIndex, in the upper 8 bits, the index in the lower 24. Expanded, it is two.
inline void WriteSource(XdrWriter& to, Encoding encoding, std::uint32_t sequence, std::uint32_t source)
{
    to.Word(sequence);
    if (encoding == Encoding::kCompact) {
        to.Word(source & (kFirstExpandedIndex - 1));
    } else {
        to.Word(0);
        to.Word(source);
    }
}

/// The port in one word: the format in the upper 2 bits, the value in the lower 30.
constexpr std::uint32_t CompactPort(const Port& port)
{
    constexpr std::uint32_t kValueBits = 30;
    return static_cast<std::uint32_t>(port.format) << kValueBits |
           (port.value & ((std::uint32_t{1} << kValueBits) - 1));
}

/// A router without an address is not sent.
constexpr bool HasRouter(const FlowSample& sample)
{
    return sample.router && (sample.router->nextHop.size == 4 || sample.router->nextHop.size == 16);
}

/// The bytes of the sample with prefix and records, but none of the sampled header.
constexpr std::size_t BareSize(const FlowSample& sample, Encoding encoding)
{
    std::size_t size = kPrefixSize + (encoding == Encoding::kCompact ? kFlowSize : kExpandedFlowSize) +
                       kPrefixSize + kSampledHeaderSize + kPrefixSize + kExtendedSwitchSize;
    if (HasRouter(sample)) {
        size += kPrefixSize + kExtendedRouterSize + sample.router->nextHop.size;
    }
    return size;
}

// The sampled header is the same of a sampled packet and of a discarded one.

template <typename Sample>
constexpr bool PutsTagBack(const Sample& sample)
{
    return sample.tagProtocol != 0 && sample.header.size() >= kLinkAddresses;
}

/// How many bytes of the header are sent where there is so much room for it.
template <typename Sample>
constexpr std::size_t HeaderSize(const Sample& sample, std::size_t room)
{
    const std::size_t whole = sample.header.size() + (PutsTagBack(sample) ? kTag : 0);
    return std::min({whole, sample.maxHeader, room & ~(kWord - 1)});
}

/// The first `size` bytes of the header with its tag put back.
template <typename Sample>
void WriteTagged(const Sample& sample, std::size_t size, std::byte* out)
{
    std::array<std::byte, kLinkAddresses + kTag> front;
    std::memcpy(front.data(), sample.header.data(), kLinkAddresses);
    const std::uint32_t tag = htobe32(std::uint32_t{sample.tagProtocol} << 16 | sample.tagControl);
    std::memcpy(front.data() + kLinkAddresses, &tag, kTag);
    if (size <= front.size()) {
        std::memcpy(out, front.data(), size);
        return;
    }
    std::memcpy(out, front.data(), front.size());
    std::memcpy(out + front.size(), sample.header.data() + kLinkAddresses, size - front.size());
}

inline void WriteFields(XdrWriter& to, const FlowSample& sample, bool compact)
{
    to.Word(sample.rate);
    to.Word(sample.pool);
    to.Word(sample.drops);
    if (compact) {
        to.Word(CompactPort(sample.input));
        to.Word(CompactPort(sample.output));
        return;
    }
    to.Word(static_cast<std::uint32_t>(sample.input.format));
    to.Word(sample.input.value);
    to.Word(static_cast<std::uint32_t>(sample.output.format));
    to.Word(sample.output.value);
}

template <typename Sample>
void WriteHeader(XdrWriter& to, const Sample& sample, std::size_t size)
{
    WritePrefix(to, FlowRecord::kSampledHeader, kSampledHeaderSize + Padded(size));
    to.Word(static_cast<std::uint32_t>(sample.protocol));
    to.Word(sample.frameLength);
    to.Word(sample.stripped);
    std::byte* const bytes = to.Opaque(size);
    if (PutsTagBack(sample)) {
        WriteTagged(sample, size, bytes);
    } else if (size != 0) {
        std::memcpy(bytes, sample.header.data(), size);
    }
}

inline void WriteSwitch(XdrWriter& to, const FlowSample& sample)
{
    WritePrefix(to, FlowRecord::kExtendedSwitch, kExtendedSwitchSize);
    to.Word(sample.inputVlan);
    to.Word(sample.inputPriority);
    to.Word(sample.outputVlan);
    to.Word(sample.outputPriority);
}

inline void WriteRouter(XdrWriter& to, const ExtendedRouter& router)
{
    const std::size_t addressSize = router.nextHop.size;
    const AddressType type = addressSize == 4 ? AddressType::kIpv4 : AddressType::kIpv6;
    WritePrefix(to, FlowRecord::kExtendedRouter, kExtendedRouterSize + addressSize);
    to.Word(static_cast<std::uint32_t>(type));
    to.Words(router.nextHop.bytes.data(), addressSize);
    to.Word(router.sourceBits);
    to.Word(router.destinationBits);
}

inline void WriteGeneric(XdrWriter& to, const GenericCounters& counters)
{
    WritePrefix(to, CounterRecord::kGeneric, kGenericSize);
    to.Word(counters.ifIndex);
    to.Word(counters.ifType);
    to.Hyper(counters.speed);
    to.Word(counters.direction);
    to.Word((counters.adminUp ? 1U : 0U) | (counters.operUp ? 2U : 0U));
    to.Hyper(counters.inOctets);
    to.Word(counters.inUnicast);
    to.Word(counters.inMulticast);
    to.Word(counters.inBroadcast);
    to.Word(counters.inDiscards);
    to.Word(counters.inErrors);
    to.Word(counters.inUnknownProtocols);
    to.Hyper(counters.outOctets);
    to.Word(counters.outUnicast);
    to.Word(counters.outMulticast);
    to.Word(counters.outBroadcast);
    to.Word(counters.outDiscards);
    to.Word(counters.outErrors);
    to.Word(counters.promiscuous);
}

inline void WriteEthernet(XdrWriter& to, const EthernetCounters& counters)
{
    WritePrefix(to, CounterRecord::kEthernet, kEthernetSize);
    to.Word(counters.alignmentErrors);
    to.Word(counters.fcsErrors);
    to.Word(counters.singleCollisions);
    to.Word(counters.multipleCollisions);
    to.Word(counters.sqeTestErrors);
    to.Word(counters.deferred);
    to.Word(counters.lateCollisions);
    to.Word(counters.excessiveCollisions);
    to.Word(counters.macTransmitErrors);
    to.Word(counters.carrierSenseErrors);
    to.Word(counters.frameTooLongs);
    to.Word(counters.macReceiveErrors);
    to.Word(counters.symbolErrors);
}

/// Fixed opaque bytes have no length, and are filled up with zeros to whole words.
inline void WriteSystem(XdrWriter& to, const LagCounters::System& system)
{
    std::array<std::uint8_t, Padded(sizeof system)> padded{};
    std::copy(system.begin(), system.end(), padded.begin());
    to.Words(padded.data(), padded.size());
}

inline void WriteLag(XdrWriter& to, const LagCounters& counters)
{
    WritePrefix(to, CounterRecord::kLag, kLagSize);
    WriteSystem(to, counters.actorSystem);
    WriteSystem(to, counters.partnerSystem);
    to.Word(counters.aggregate);
    to.Word(std::uint32_t{counters.actorAdminState} << 24 | std::uint32_t{counters.actorState} << 16 |
            std::uint32_t{counters.partnerAdminState} << 8 | counters.partnerState);
    to.Word(counters.lacpdusIn);
    to.Word(counters.markersIn);
    to.Word(counters.markerResponsesIn);
    to.Word(counters.unknownIn);
    to.Word(counters.illegalIn);
    to.Word(counters.lacpdusOut);
    to.Word(counters.markersOut);
    to.Word(counters.markerResponsesOut);
}

inline void WritePortName(XdrWriter& to, std::string_view name)
{
    WritePrefix(to, CounterRecord::kPortName, kPortNameSize + Padded(name.size()));
    std::memcpy(to.Opaque(name.size()), name.data(), name.size());
}

}  // namespace detail

/// Writes the sample with its type and length. `out` may be smaller than the sample: then the sampled header
/// is cut so that it fits. Returns the bytes written; 0 if not even a sample without a header fits, which
/// never happens in kMinSampleRoom. Values that are too large for the compact encoding lose their upper
/// bits and disturb nothing else. `out` must not overlap what the sample refers to.
inline std::size_t Encode(const FlowSample& sample, Encoding encoding, std::span<std::byte> out)
{
    const std::size_t bare = detail::BareSize(sample, encoding);
    if (out.size() < bare) {
        return 0;
    }
    const std::size_t headerSize = detail::HeaderSize(sample, out.size() - bare);
    const std::size_t size = bare + Padded(headerSize);

    XdrWriter to(out.data());
    const bool compact = encoding == Encoding::kCompact;
    detail::WritePrefix(to, compact ? SampleFormat::kFlow : SampleFormat::kExpandedFlow, size - kPrefixSize);
    detail::WriteSource(to, encoding, sample.sequence, sample.source);
    detail::WriteFields(to, sample, compact);
    const bool routed = detail::HasRouter(sample);
    to.Word(routed ? 3 : 2);
    detail::WriteHeader(to, sample, headerSize);
    detail::WriteSwitch(to, sample);
    if (routed) {
        detail::WriteRouter(to, *sample.router);
    }
    return size;
}

/// Likewise; records that do not fit are left out from the last one on. 0 if not even the generic counters
/// fit. At most kMaxPortName bytes of the port name are sent.
inline std::size_t Encode(const CountersSample& sample, Encoding encoding, std::span<std::byte> out)
{
    const bool compact = encoding == Encoding::kCompact;
    const std::string_view name = sample.portName.substr(0, kMaxPortName);

    std::size_t size =
        kPrefixSize + (compact ? kCountersSize : kExpandedCountersSize) + kPrefixSize + kGenericSize;
    if (out.size() < size) {
        return 0;
    }
    // If a record does not fit, those behind it are left out too: what is sent is always a beginning of the
    // whole list.
    const auto takes = [&](bool present, std::size_t record, bool& fits) {
        const bool taken = present && fits && record <= out.size() - size;
        fits = fits && taken == present;
        size += taken ? record : 0;
        return taken;
    };
    bool fits = true;
    const bool ethernet = takes(sample.ethernet.has_value(), kPrefixSize + kEthernetSize, fits);
    const bool lag = takes(sample.lag.has_value(), kPrefixSize + kLagSize, fits);
    const bool portName = takes(!name.empty(), kPrefixSize + kPortNameSize + Padded(name.size()), fits);

    XdrWriter to(out.data());
    detail::WritePrefix(to, compact ? SampleFormat::kCounters : SampleFormat::kExpandedCounters,
                        size - kPrefixSize);
    detail::WriteSource(to, encoding, sample.sequence, sample.source);
    to.Word(1 + std::uint32_t{ethernet} + std::uint32_t{lag} + std::uint32_t{portName});
    detail::WriteGeneric(to, sample.generic);
    if (ethernet) {
        detail::WriteEthernet(to, *sample.ethernet);
    }
    if (lag) {
        detail::WriteLag(to, *sample.lag);
    }
    if (portName) {
        detail::WritePortName(to, name);
    }
    return size;
}

/// Writes kDatagramHeaderSize bytes, for which `out` must have room.
inline void Encode(const DatagramHeader& header, std::span<std::byte> out)
{
    XdrWriter to(out.data());
    to.Word(kVersion);
    to.Word(static_cast<std::uint32_t>(AddressType::kIpv4));
    to.Words(&header.agentAddress, sizeof header.agentAddress);
    to.Word(header.subAgent);
    to.Word(header.sequence);
    to.Word(header.uptime);
    to.Word(header.samples);
}

}  // namespace wire

#endif
