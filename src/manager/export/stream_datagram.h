// SPDX-License-Identifier: Apache-2.0
// The closed datagrams of a stream as they lie one behind the other, and which of them the kernel can take as
// one message: UDP segmentation offload cuts a message into datagrams of one size, the last of which may be
// shorter. No sockets here; the stream and its socket use it.

#ifndef MANAGER_EXPORT_STREAM_DATAGRAM_H
#define MANAGER_EXPORT_STREAM_DATAGRAM_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace manager {

struct Datagram {
    std::uint16_t size = 0;                 // bytes of UDP payload
    std::uint16_t flows = 0, counters = 0;  // samples in it
};

/// The most datagrams that are sent at once, which is also the kernel's limit of segments a message.
inline constexpr std::size_t kMaxDatagrams = 64;
/// The largest UDP payload over IPv4, in segments or not.
inline constexpr std::size_t kMaxMessage = 65507;

struct Run {
    std::size_t datagrams = 0;
    std::size_t bytes = 0;
};

/// The first run of `datagrams`, which are not empty: as many as one message can carry.
inline Run FirstRun(std::span<const Datagram> datagrams)
{
    const std::size_t size = datagrams[0].size;
    Run run{1, size};
    while (run.datagrams < datagrams.size() && run.datagrams < kMaxDatagrams) {
        const std::size_t next = datagrams[run.datagrams].size;
        if (next > size || run.bytes + next > kMaxMessage) break;
        run.bytes += next;
        ++run.datagrams;
        if (next < size) break;
    }
    return run;
}

}  // namespace manager

#endif
