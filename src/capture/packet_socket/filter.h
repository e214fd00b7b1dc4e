// SPDX-License-Identifier: Apache-2.0
// The classic BPF programs of the packet sockets (linux/filter.h): what is sampled, what is only counted, and
// how much of a packet is kept. Only values: socket.h attaches them.

#ifndef CAPTURE_PACKET_SOCKET_FILTER_H
#define CAPTURE_PACKET_SOCKET_FILTER_H

#include <linux/filter.h>

#include <cstdint>
#include <vector>

#include "capture/packet_source.h"

namespace capture {

using RingFilter = std::vector<sock_filter>;

/// The answers of DividingProgram: the sockets' numbers in their group, which the kernel takes modulo the
/// number of members. A third member that joins gets nothing until the program answers with its number; when
/// the second leaves then, the third becomes the second, and the same answer still means it.
inline constexpr std::uint32_t kCountingMember = 0;
inline constexpr std::uint32_t kSamplingMember = 1;
inline constexpr std::uint32_t kNextSamplingMember = 5;
static_assert(kSamplingMember % 2 == 1 && kSamplingMember % 3 == 1);
static_assert(kNextSamplingMember % 3 == 2 && kNextSamplingMember % 2 == 1);

/// Which packets an interface's sockets are meant for.
struct RingScope {
    bool ingress = true;
    bool egress = false;
    std::uint32_t ownMark = 0;     // packets with this socket mark are left out; 0: none are
    bool outgoingIgnored = false;  // the sockets do not see leaving packets anyway
};

/// Nothing passes and nothing is counted.
RingFilter RejectingFilter();

/// For a group of sockets: says which of them gets a packet. Each packet in the scope goes with the
/// probability 1/rate, to 2^-64, to the sampling one, else to the counting one; what is beyond the scope
/// goes to the sampling one too, whose KeepingFilter rejects it.
RingFilter DividingProgram(std::uint32_t rate, const RingScope& scope,
                           std::uint32_t samplingMember = kSamplingMember);

/// For the sampling socket of a group: what is in the scope passes, cut to `bytes`.
RingFilter KeepingFilter(std::uint32_t bytes, const RingScope& scope);

/// For a sampling socket by itself: what is in the scope passes with the probability 1/rate, to 2^-64, cut to
/// `bytes`.
RingFilter SamplingFilter(std::uint32_t rate, std::uint32_t bytes, const RingScope& scope);

/// For a counting socket by itself: what is in the scope passes.
RingFilter CountingFilter(const RingScope& scope);

/// Bytes of a packet that are kept.
std::uint32_t SnapLength(const Settings& settings);

}  // namespace capture

#endif
