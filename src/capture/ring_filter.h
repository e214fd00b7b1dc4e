// The classic BPF programs of the packet sockets (linux/filter.h): one draws at random and cuts, one lets
// through what could have been drawn, one nothing. Only values: attaching them is ring_socket.h's.

#ifndef CAPTURE_RING_FILTER_H
#define CAPTURE_RING_FILTER_H

#include <linux/filter.h>

#include <cstdint>
#include <vector>

#include "capture/packet_source.h"

namespace capture {

using RingFilter = std::vector<sock_filter>;

/// Nothing passes and nothing is counted.
RingFilter RejectingFilter();

/// What the settings sample passes: any packet in their directions without the mark (0: no mark is ours).
/// With `outgoingIgnored` the socket does not see leaving packets anyway.
RingFilter CountingFilter(const Settings& settings, std::uint32_t ownMark, bool outgoingIgnored);

/// Of these, each by itself passes with the probability 1/rate, to 2^-64, cut to SnapLength().
RingFilter DrawingFilter(const Settings& settings, std::uint32_t ownMark, bool outgoingIgnored);

/// Bytes of a packet that are kept.
std::uint32_t SnapLength(const Settings& settings);

}  // namespace capture

#endif
