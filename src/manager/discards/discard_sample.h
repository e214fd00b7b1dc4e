// SPDX-License-Identifier: Apache-2.0
// What a dropped packet is in the terms of sFlow (sflow.org, "sFlow Dropped Packet Notification Structures").
// Values in, values out. Used by the discards.

#ifndef MANAGER_DISCARDS_DISCARD_SAMPLE_H
#define MANAGER_DISCARDS_DISCARD_SAMPLE_H

#include <cstddef>

#include "capture/drop_source.h"
#include "wire/discard.h"

namespace manager {

/// Fills all but sequence and drops, with at most `maxHeader` bytes of the packet. `discard` refers to what
/// `drop` refers to.
void DescribeDiscard(const capture::Drop& drop, std::size_t maxHeader, wire::DiscardSample& discard);

}  // namespace manager

#endif
