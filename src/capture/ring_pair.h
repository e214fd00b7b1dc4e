// The two packet sockets by which an interface is sampled, with settings that they keep. Other settings mean
// another pair: both can be there at once, and one is opened right after the other is closed. Used by
// ring_source.cpp.
//
// Both sockets hang on one hook: they are a group, and a program says for each packet which of them gets it.
// What is drawn goes to the ring, all else to the socket that only counts; together they have counted every
// packet. That costs a packet little more than half of what two hooks do.

#ifndef CAPTURE_RING_PAIR_H
#define CAPTURE_RING_PAIR_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "capture/packet_source.h"
#include "capture/ring_blocks.h"
#include "capture/ring_socket.h"

namespace capture {

class RingPair {
public:
    enum class Hook { kShared, kSeparate };

    /// A ring of about so many bytes. Throws Unavailable.
    explicit RingPair(std::size_t bytes)
        : m_sampling(bytes), m_blocks(m_sampling.Area(), m_sampling.TellsSegments())
    {
    }
    RingPair(const RingPair&) = delete;
    RingPair& operator=(const RingPair&) = delete;

    /// Binds to the interface. Nothing is counted or drawn yet. With kSeparate, or where the kernel has no
    /// such groups, each packet goes to both sockets. Throws Unavailable.
    void Prepare(std::uint32_t ifIndex, const Settings& settings, std::uint32_t ownMark,
                 Hook hook = Hook::kShared);
    /// From now on packets are counted and drawn. Throws Unavailable.
    void Open();
    /// And no more. A packet that another CPU handles just now may still come. Throws Unavailable.
    void Close();
    /// Bytes kept of packets from now on. Throws Unavailable.
    void SetHeaderSize(std::uint16_t bytes);

    /// Since it was opened; asks the kernel.
    Counts Count();
    /// How many samples the kernel has put into the ring, as of the last Count.
    [[nodiscard]] std::uint64_t InRing() const { return m_inRing; }
    /// Something has come, and the ring can be read.
    [[nodiscard]] bool IsReadable();
    [[nodiscard]] RingBlocks& Blocks() { return m_blocks; }
    [[nodiscard]] const RingBlocks& Blocks() const { return m_blocks; }
    [[nodiscard]] const Settings& Current() const { return m_settings; }
    [[nodiscard]] bool SharesOneHook() const { return m_shared; }
    /// The descriptor that becomes readable when a block waits.
    [[nodiscard]] int Get() const { return m_sampling.Get(); }
    int TakeError() { return m_sampling.TakeError(); }

private:
    // In this order: see JoinInGroup.
    CountingSocket m_counting;
    SamplingSocket m_sampling;
    RingBlocks m_blocks;
    Settings m_settings;
    RingScope m_scope;
    std::uint64_t m_inRing = 0;
    bool m_shared = false;
};

/// Bytes of a ring that does for the rate: one that takes all packets has to bridge times in which nobody
/// reads; what takes few of them does so with little.
std::size_t RingSizeFor(std::uint32_t rate);

}  // namespace capture

#endif
