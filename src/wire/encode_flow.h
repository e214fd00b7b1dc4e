// SPDX-License-Identifier: Apache-2.0
// The flow sample of encode.h: one computation of its size, then words stored one behind the other.
// Include encode.h, not this file.

#ifndef WIRE_ENCODE_FLOW_H
#define WIRE_ENCODE_FLOW_H

#include <endian.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "wire/encode_parts.h"
#include "wire/format.h"
#include "wire/sample.h"
#include "wire/xdr.h"

namespace wire::detail {

inline constexpr std::size_t kLinkAddresses = 12;  // both of an Ethernet header
inline constexpr std::size_t kTag = 4;

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

constexpr bool PutsTagBack(const FlowSample& sample)
{
    return sample.tagProtocol != 0 && sample.header.size() >= kLinkAddresses;
}

/// The first `size` bytes of the header with its tag put back.
inline void WriteTagged(const FlowSample& sample, std::size_t size, std::byte* out)
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

inline void WriteCompactFields(XdrWriter& to, const FlowSample& sample)
{
    to.Word(sample.rate);
    to.Word(sample.pool);
    to.Word(sample.drops);
    to.Word(CompactPort(sample.input));
    to.Word(CompactPort(sample.output));
}

inline void WriteExpandedFields(XdrWriter& to, const FlowSample& sample)
{
    to.Word(sample.rate);
    to.Word(sample.pool);
    to.Word(sample.drops);
    to.Word(static_cast<std::uint32_t>(sample.input.format));
    to.Word(sample.input.value);
    to.Word(static_cast<std::uint32_t>(sample.output.format));
    to.Word(sample.output.value);
}

inline void WriteHeader(XdrWriter& to, const FlowSample& sample, std::size_t size)
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

inline std::size_t EncodeFlow(const FlowSample& sample, Encoding encoding, std::span<std::byte> out)
{
    const std::size_t bare = BareSize(sample, encoding);
    if (out.size() < bare) {
        return 0;
    }
    const std::size_t whole = sample.header.size() + (PutsTagBack(sample) ? kTag : 0);
    const std::size_t room = (out.size() - bare) & ~(kWord - 1);
    const std::size_t headerSize = std::min({whole, sample.maxHeader, room});
    const std::size_t size = bare + Padded(headerSize);

    XdrWriter to(out.data());
    const bool compact = encoding == Encoding::kCompact;
    WritePrefix(to, compact ? SampleFormat::kFlow : SampleFormat::kExpandedFlow, size - kPrefixSize);
    WriteSource(to, encoding, sample.sequence, sample.source);
    if (compact) {
        WriteCompactFields(to, sample);
    } else {
        WriteExpandedFields(to, sample);
    }
    const bool routed = HasRouter(sample);
    to.Word(routed ? 3 : 2);
    WriteHeader(to, sample, headerSize);
    WriteSwitch(to, sample);
    if (routed) {
        WriteRouter(to, *sample.router);
    }
    return size;
}

}  // namespace wire::detail

#endif
