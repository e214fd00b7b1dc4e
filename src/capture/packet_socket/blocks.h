// SPDX-License-Identifier: Apache-2.0
// Reads the blocks of a sampling socket's ring (TPACKET_V3) and gives them back to the kernel. Knows the
// layout and nothing of interfaces and rates. Used by source.cpp.
//
// The kernel hands over a block when it is full or 32 ms old, not for each packet. What does not lie within
// its block, or is not a packet that the kernel finished, is left out.

#ifndef CAPTURE_PACKET_SOCKET_BLOCKS_H
#define CAPTURE_PACKET_SOCKET_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "capture/packet_socket/socket.h"
#include "capture/packet_source.h"

struct tpacket3_hdr;

namespace capture {

class RingBlocks {
public:
    /// The area must outlive it. Nothing waits in one that is not mapped.
    RingBlocks(const RingArea& area, bool tellsSegments) : m_area(area), m_tellsSegments(tellsSegments) {}

    /// How many blocks the kernel has handed over that wait.
    [[nodiscard]] std::size_t Waiting() const;
    [[nodiscard]] std::size_t Blocks() const { return m_area.blocks; }
    [[nodiscard]] std::size_t Bytes() const { return m_area.blocks * m_area.blockSize; }

    /// Appends the packets of the next block. Their headers point into it until Release. Of a sample,
    /// what the ring knows is set: not interface, rate, pool and drops.
    void Take(std::vector<Sample>& samples) const;

    /// Gives the block back.
    void Release();

    /// Appends the packets of the block that the kernel is filling, `most` at most. Only for a socket whose
    /// filter lets nothing through any more. Waits some milliseconds for a packet that another CPU has not
    /// finished.
    void TakeUnfinished(std::vector<Sample>& samples, std::uint64_t most) const;

private:
    [[nodiscard]] const std::byte* Block() const { return At(m_next); }
    [[nodiscard]] const std::byte* At(std::size_t block) const
    {
        return m_area.memory + block * m_area.blockSize;
    }
    void Walk(std::vector<Sample>& samples, std::uint64_t most) const;
    bool TakePacket(std::size_t at, std::vector<Sample>& samples) const;
    [[nodiscard]] bool IsInside(std::size_t at) const;
    [[nodiscard]] const tpacket3_hdr& HeaderAt(std::size_t at) const;

    const RingArea& m_area;
    bool m_tellsSegments;
    std::size_t m_next = 0;
};

}  // namespace capture

#endif
