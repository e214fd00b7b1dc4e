// Reads the blocks of a sampling socket's ring (TPACKET_V3) and gives them back to the kernel. Knows the
// layout and nothing of interfaces and rates. Used by ring_source.cpp.
//
// A block is handed over when it is full or 50 ms old, so nobody is woken for each packet.

#ifndef CAPTURE_RING_BLOCKS_H
#define CAPTURE_RING_BLOCKS_H

#include <cstdint>
#include <vector>

#include "capture/packet_source.h"
#include "capture/ring_socket.h"

namespace capture {

class RingBlocks {
public:
    RingBlocks(const RingArea& area, bool tellsSegments) : m_area(area), m_tellsSegments(tellsSegments) {}

    /// A block that the kernel has handed over waits.
    [[nodiscard]] bool Waits() const;

    /// Appends the packets of the next block. Their headers point into it until Release. Of a sample,
    /// what the ring knows is set: not interface, rate, pool and drops.
    void Take(std::vector<Sample>& samples) const;

    /// Gives the block back.
    void Release();

    /// Appends the packets of the block that the kernel is filling, `most` at most. Only for a socket
    /// whose filter lets nothing through any more.
    void TakeUnfinished(std::vector<Sample>& samples, std::uint64_t most) const;

private:
    [[nodiscard]] const std::byte* Block() const { return m_area.memory + m_next * m_area.blockSize; }
    void Walk(std::vector<Sample>& samples, std::uint64_t most) const;

    RingArea m_area;
    bool m_tellsSegments;
    std::size_t m_next = 0;
};

}  // namespace capture

#endif
