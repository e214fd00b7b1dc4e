// SPDX-License-Identifier: Apache-2.0
// The two packet sockets that sample an interface. A pair keeps its rate and directions; others take another
// pair, and both can exist at once. Used by source.cpp.
//
// Both sockets hang on one hook: they are a group, and a program says for each packet which of them gets it.
// What is sampled goes to the ring, all else to the socket that only counts; together they have counted every
// packet. That costs a packet little more than half of what two hooks do.
//
// A pair with another rate follows in the same group: it has the same counting socket and a ring of its own,
// which joins, and with the next program what is sampled goes there. So from one packet to the next the rate
// is another, no packet is missed, and all that is in a ring was sampled with one rate. A pair with other
// directions can't follow so: it is opened right after the other is closed.

#ifndef CAPTURE_PACKET_SOCKET_PAIR_H
#define CAPTURE_PACKET_SOCKET_PAIR_H

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <utility>

#include "capture/packet_socket/blocks.h"
#include "capture/packet_socket/socket.h"
#include "capture/packet_source.h"

namespace capture {

class PacketSocketPair {
public:
    enum class Hook { kShared, kSeparate };

    /// For a ring of about `bytes` bytes. Throws Unavailable.
    explicit PacketSocketPair(std::size_t bytes) : PacketSocketPair(bytes, std::make_shared<CountingSocket>())
    {
    }
    PacketSocketPair(const PacketSocketPair&) = delete;
    PacketSocketPair& operator=(const PacketSocketPair&) = delete;

    /// Makes the ring, for which the kernel waits. Throws Unavailable.
    void MakeRing() { m_sampling.MakeRing(); }
    /// Makes the ring, if there is none yet, and binds to the interface. Nothing is counted or sampled yet.
    /// With kSeparate, or if the kernel has no such groups, each packet goes to both sockets. Throws
    /// Unavailable.
    void Prepare(std::uint32_t ifIndex, const Settings& settings, std::uint32_t ownMark,
                 Hook hook = Hook::kShared);
    enum class Succession { kNow, kLater, kNever };
    /// Whether another pair can continue from this one: never if the directions differ, there is no group or
    /// this pair has a follower already; later if the pair that this one follows is not destroyed yet, since
    /// a group has room for one ring more only.
    [[nodiscard]] Succession SuccessionWith(const Settings& settings) const;
    /// Another pair, prepared to continue from this one, which need not be closed then. Null if that can't be
    /// now. Throws Unavailable.
    [[nodiscard]] std::shared_ptr<PacketSocketPair> MakeFollower(std::uint32_t ifIndex,
                                                                 const Settings& settings, std::size_t bytes);
    /// From now on packets are counted and sampled. Throws Unavailable.
    void Open();
    /// Ends counting and sampling. A packet that another CPU is handling may still come. Throws Unavailable.
    void Close();
    /// Bytes kept of packets from now on. Throws Unavailable.
    void SetHeaderSize(std::uint16_t bytes);

    /// The counts since it was opened; asks the kernel.
    Counts Count();
    /// Leaves out what the counting socket had counted at the last Count of the pair that this one follows.
    void TakeOverCounting() { m_countedBefore = m_counting->Known().passed; }
    /// How many samples the kernel has put into the ring, as of the last Count.
    [[nodiscard]] std::uint64_t InRing() const { return m_inRing; }
    /// Whether something has come and the ring can be read. Maps the ring.
    [[nodiscard]] bool IsReadable();
    [[nodiscard]] RingBlocks& Blocks() { return m_blocks; }
    [[nodiscard]] const RingBlocks& Blocks() const { return m_blocks; }
    [[nodiscard]] const Settings& Current() const { return m_settings; }
    [[nodiscard]] bool SharesOneHook() const { return m_group.has_value(); }
    [[nodiscard]] bool Follows() const { return m_followed.valid(); }
    /// The descriptor that becomes readable when a block waits.
    [[nodiscard]] int Get() const { return m_sampling.Get(); }
    int TakeError() { return m_sampling.TakeError(); }

private:
    PacketSocketPair(std::size_t bytes, std::shared_ptr<CountingSocket> counting)
        : m_counting(std::move(counting)),
          m_sampling(bytes),
          m_blocks(m_sampling.Area(), m_sampling.TellsSegments())
    {
    }
    void DivideBy(std::uint32_t samplingMember);

    std::promise<void> m_ended;  // destroyed after the sockets, which tells the follower
    std::shared_future<void> m_end = m_ended.get_future().share();
    std::shared_future<void> m_followed;  // the end of the pair that this one follows, if there is one
    // In this order: see JoinGroup.
    std::shared_ptr<CountingSocket> m_counting;
    SamplingSocket m_sampling;
    RingBlocks m_blocks;
    Settings m_settings;
    RingScope m_scope;
    std::optional<RingGroup> m_group;
    bool m_divided = false;  // the group knows our rate
    bool m_hasFollower = false;
    std::uint64_t m_countedBefore = 0;
    std::uint64_t m_inRing = 0;
};

/// Bytes of a ring for the rate: one that takes all packets has to bridge the time until it is read; one that
/// takes few of them does so with little.
std::size_t RingSizeFor(std::uint32_t rate);

}  // namespace capture

#endif
