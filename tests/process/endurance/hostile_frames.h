// SPDX-License-Identifier: Apache-2.0
// Frames that make no sense, for whatever looks into sampled packets. The same ones each time.

#ifndef ENDURANCE_HOSTILE_FRAMES_H
#define ENDURANCE_HOSTILE_FRAMES_H

#include <vector>

#include "support/network.h"

namespace endurance {

/// Random bytes in every length from 14 to 1514; the EtherType is random, or one of those that have a
/// meaning.
std::vector<support::Bytes> RandomFrames();

/// Sound frames of each kind, cut off behind every byte from the 14th on.
std::vector<support::Bytes> CutFrames();

/// Headers whose own words about their length, version or successor are wrong.
std::vector<support::Bytes> LyingFrames();

/// IPv6 with extension headers in long rows, in rings, and too long for their packet; VLAN tags in rows.
std::vector<support::Bytes> ChainedFrames();

/// Whether the kernel drops the frame before it can be sampled: too short for the VLAN tag that its
/// EtherType announces and the type behind it.
bool KernelDrops(const support::Bytes& frame);

}  // namespace endurance

#endif
