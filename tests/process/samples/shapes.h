// SPDX-License-Identifier: Apache-2.0
// Frames of many shapes that enter a bridge by its port p1, each with what sFlow says of it. The table is
// worked out by hand from what is on the wire.

#ifndef SAMPLES_SHAPES_H
#define SAMPLES_SHAPES_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/network.h"

namespace samples_tests {

enum class Goes {
    kToP2,
    kToBoth,  // other ports of the bridge: p2 and p3
    kHere,
};

struct Shape {
    std::string name;
    support::Bytes frame;
    Goes goes = Goes::kToP2;
    std::uint16_t vlan = 0;
    std::uint8_t priority = 0;
};

/// From Mac(1); none is larger than an MTU of 9000 takes, and no two have the same first 60 bytes.
std::vector<Shape> Shapes();

/// Those of them that are IP whole and right, checksums too, so that dissectors have nothing to say.
std::vector<Shape> IpShapes();

// Frames that support/network.h has not, with checksums.
/// Also for IPv6, where UDP may not go without one.
support::Bytes IpUdp(const support::FrameOptions& options);
support::Bytes TcpFrame(const support::FrameOptions& options);
/// ICMP or ICMPv6, an echo request.
support::Bytes EchoFrame(const support::FrameOptions& options);
/// The frame with another destination: six bytes.
support::Bytes To(support::Bytes frame, const std::vector<int>& mac);

}  // namespace samples_tests

#endif
