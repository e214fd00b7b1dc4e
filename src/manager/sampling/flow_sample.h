// SPDX-License-Identifier: Apache-2.0
// What a sampled packet is in the terms of sFlow: lengths on the wire, interfaces, VLANs, next hop. Pure
// translation of what the packet source and the forwarding tables say; used by sampling.

#ifndef MANAGER_SAMPLING_FLOW_SAMPLE_H
#define MANAGER_SAMPLING_FLOW_SAMPLE_H

#include <cstddef>
#include <cstdint>

#include "capture/packet_source.h"
#include "net/routes/forwarding.h"
#include "wire/sample.h"

namespace manager {

/// Bytes of the Ethernet frame check sequence: on the wire, never in what the kernel hands over.
inline constexpr std::uint32_t kFcs = 4;

/// By the device's type (ARPHRD_*) and the packet's EtherType.
wire::HeaderProtocol HeaderProtocolOf(std::uint16_t hardwareType, std::uint16_t etherType);

/// Bytes without FCS of the frames that a segmented packet is on the wire: all but the last have the first
/// length. If its headers can't be read, an even share of its length.
struct SegmentLengths {
    std::uint32_t each = 0, last = 0;
    friend bool operator==(const SegmentLengths&, const SegmentLengths&) = default;
};
SegmentLengths LengthsOf(const capture::Sample& sample);

/// The outermost 802.1Q or 802.1ad tag, wherever it is: taken away by the kernel, or in the header. Zeros if
/// there is none.
struct Tag {
    std::uint16_t vlan = 0;
    std::uint8_t priority = 0;
};
Tag OuterTag(const capture::Sample& sample);

/// Fills what the packet itself tells: header, lengths, tag.
void DescribePacket(const capture::Sample& sample, std::uint16_t hardwareType, wire::FlowSample& flow);

/// Fills where a packet that leaves by `output` has come from. `untagged` is the VLAN of packets without a
/// tag at that interface; 0: none.
void DescribeEgress(std::uint32_t output, Tag tag, std::uint16_t untagged, const net::Origin& origin,
                    wire::FlowSample& flow);

/// Fills where a packet that enters by `input` goes: both interfaces, VLANs and next hop.
void DescribeIngress(std::uint32_t input, Tag tag, const net::Destination& destination,
                     wire::FlowSample& flow);

}  // namespace manager

#endif
