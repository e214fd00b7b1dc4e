// SPDX-License-Identifier: Apache-2.0
// What a sampled packet is in the terms of sFlow (sFlow version 5, sFlow.org, July 2004): its header and
// lengths, its tag, where it came from and where it goes. Values in, values out. Used by the pipeline.

#ifndef MANAGER_SAMPLING_FLOW_SAMPLE_H
#define MANAGER_SAMPLING_FLOW_SAMPLE_H

#include <cstdint>

#include "capture/packet_source.h"
#include "manager/sampling/segmented_header.h"
#include "net/routes/forwarding.h"
#include "wire/sample.h"

namespace manager {

/// By the device's type (ARPHRD_*) and the packet's EtherType.
wire::HeaderProtocol HeaderProtocolOf(std::uint16_t hardwareType, std::uint16_t etherType);

/// The outermost 802.1Q or 802.1ad tag, wherever it is: taken away by the kernel, or in the header. Zeros if
/// there is none.
struct Tag {
    std::uint16_t vlan = 0;
    std::uint8_t priority = 0;
    std::uint16_t protocol = 0;  // its EtherType
};
/// Of a sample that begins with an Ethernet header.
Tag OuterTag(const capture::Sample& sample);

/// Fills what the packet itself tells: header, lengths, tag. Of a packet with several segments it fills the
/// whole packet; DescribeSegment makes it one of the frames.
void DescribePacket(const capture::Sample& sample, std::uint16_t hardwareType, wire::FlowSample& flow);

/// Makes the described packet the frame of `length` bytes (SegmentLengths) of it. `flow` refers to `header`.
void DescribeSegment(SegmentedHeader& header, std::uint32_t length, wire::FlowSample& flow);

/// Fills where a packet that leaves by `output` has come from. `untagged` is the VLAN of packets without a
/// tag at that interface; 0: none.
void DescribeEgress(std::uint32_t output, Tag tag, std::uint16_t untagged, const net::Origin& origin,
                    wire::FlowSample& flow);

/// Fills where a packet that enters by `input` goes: both interfaces, VLANs and next hop.
void DescribeIngress(std::uint32_t input, Tag tag, const net::Destination& destination,
                     wire::FlowSample& flow);

}  // namespace manager

#endif
