// SPDX-License-Identifier: Apache-2.0
// How long a packet's frame is on the wire, as sFlow counts it (sflow.org, "sFlow Version 5":
// sampled_header), told from what the kernel holds of it.

#ifndef WIRE_FRAME_H
#define WIRE_FRAME_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace wire {

/// Bytes of the Ethernet frame check sequence: on the wire, never in what the kernel hands over.
inline constexpr std::uint32_t kFcs = 4;
/// Bytes that an Ethernet frame has at least, without FCS (IEEE 802.3, 3.2.8): the device pads what this
/// machine has made shorter.
inline constexpr std::uint32_t kMinFrame = 60;
/// Bytes of a VLAN tag (IEEE 802.1Q).
inline constexpr std::size_t kTag = 4;
/// Bytes of both addresses, with which an Ethernet frame begins.
inline constexpr std::size_t kLinkAddresses = 12;

/// Of an Ethernet frame of `length` bytes without FCS. `untagged`: the kernel has taken a tag out of it.
constexpr std::uint32_t FrameLength(std::uint32_t length, bool untagged)
{
    return std::max(length + (untagged ? std::uint32_t{kTag} : 0), kMinFrame) + kFcs;
}

}  // namespace wire

#endif
