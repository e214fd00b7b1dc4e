// SPDX-License-Identifier: Apache-2.0
// An interface that is sampled with packet sockets, over all changes: the pair of sockets it has now, its
// counts, and how often to look at its ring. Used by source.cpp.

#ifndef CAPTURE_PACKET_SOCKET_PORT_H
#define CAPTURE_PACKET_SOCKET_PORT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "capture/packet_socket/pair.h"
#include "capture/packet_source.h"

namespace capture {

struct RingPort {
    std::uint32_t ifIndex = 0;
    Settings wanted;
    std::shared_ptr<void> making;            // while the first pair is made
    std::shared_ptr<PacketSocketPair> pair;  // null while there is none
    Counts before;                           // of the pairs it had until now
    std::uint64_t delivered = 0;             // samples that left the ring of this pair
    std::uint64_t told = 0;                  // the pool of the last sample, or of the last pair
    std::chrono::milliseconds pause{};       // from one look to the next
    std::chrono::milliseconds silent{};      // for so long looks have found nothing
    bool looking = false;                    // the timer looks; else the ring wakes

    /// The counts of all its pairs; asks the kernel.
    [[nodiscard]] Counts Count() const;

    /// Hands over the blocks that wait now and no more, so that other rings are read too. Returns how many.
    /// `samples` is used for those of one block.
    std::size_t HandOver(SampleSink& sink, std::vector<Sample>& samples);
    /// Hands over all of a pair that has ended, with the block that the kernel has not handed over, and takes
    /// its counts over.
    void HandOverLast(SampleSink& sink, std::vector<Sample>& samples);

    /// Sets in the next samples of the pair's ring what the ring does not know. `counts` are of now, from
    /// Count().
    void Describe(std::span<Sample> samples, const Counts& counts);

    /// The pause between looks for the fastest packets.
    static std::chrono::milliseconds PauseFor(const PacketSocketPair& pair);
    /// Adapts the pause to how many blocks were waiting.
    void Pace(std::size_t waiting);

private:
    void Emit(SampleSink& sink, std::vector<Sample>& samples, const Counts& counts);
};

}  // namespace capture

#endif
