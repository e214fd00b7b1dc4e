// SPDX-License-Identifier: Apache-2.0
// Writes sFlow version 5 in XDR (RFC 4506: big-endian, everything in units of four bytes) into the caller's
// buffers: flow samples (records sampled header, extended switch, and extended router if there is one),
// counters samples (generic, Ethernet, port name) and the head of a datagram. Allocates nothing, sends
// nothing, numbers nothing. The manager's export uses it; a test decoder that shares no code with it checks
// it.

#ifndef WIRE_ENCODE_H
#define WIRE_ENCODE_H

#include <cstddef>
#include <span>

#include "wire/encode_counters.h"
#include "wire/encode_flow.h"
#include "wire/format.h"
#include "wire/sample.h"
#include "wire/xdr.h"

namespace wire {

inline constexpr std::uint32_t kVersion = 5;
inline constexpr std::size_t kDatagramHeaderSize = 28;  // with an IPv4 agent address
/// Room that any sample needs at most.
inline constexpr std::size_t kMaxFlowSample = 1024;
inline constexpr std::size_t kMaxCountersSample = 512;
/// Room in which a flow sample always fits once its header is cut: what the smallest datagram, 200 bytes,
/// leaves.
inline constexpr std::size_t kMinSampleRoom = 200 - kDatagramHeaderSize;

/// Writes the sample with its type and length. `out` may be smaller than the sample: then the sampled header
/// is cut so that it fits. Returns the bytes written; 0 if not even a sample without a header fits, which
/// never happens in kMinSampleRoom. Values that are too large for the compact encoding lose their upper
/// bits and disturb nothing else. `out` must not overlap what the sample refers to.
inline std::size_t Encode(const FlowSample& sample, Encoding encoding, std::span<std::byte> out)
{
    return detail::EncodeFlow(sample, encoding, out);
}

/// Likewise; records that do not fit are left out from the last one on. 0 if not even the generic counters
/// fit. At most kMaxPortName bytes of the port name are sent.
inline std::size_t Encode(const CountersSample& sample, Encoding encoding, std::span<std::byte> out)
{
    return detail::EncodeCounters(sample, encoding, out);
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
