// SPDX-License-Identifier: Apache-2.0
// Makes pairs of packet sockets ready without holding up the loop: for each the kernel waits twice until
// every CPU has passed a quiet moment, some 12 ms. So a few threads do it, which wait together and
// exist only while there is something to make. Used by source.cpp.

#ifndef CAPTURE_PACKET_SOCKET_MAKER_H
#define CAPTURE_PACKET_SOCKET_MAKER_H

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "base/worker.h"
#include "capture/packet_socket/pair.h"
#include "capture/packet_source.h"

namespace boost::asio {
class io_context;
}

namespace capture {

class GracePeriods;
class RingCloser;

class PairMaker {
public:
    /// `refusal` is null if the pair is prepared.
    using Done = std::function<void(std::shared_ptr<PacketSocketPair> pair, const Unavailable* refusal)>;

    /// All must outlive it.
    PairMaker(boost::asio::io_context& loop, GracePeriods& grace, RingCloser& closer)
        : m_loop(loop), m_grace(grace), m_closer(closer)
    {
    }
    PairMaker(const PairMaker&) = delete;
    PairMaker& operator=(const PairMaker&) = delete;
    ~PairMaker();

    /// Calls the pair's Prepare in a thread, and then `done` from the loop. Dropping the result cancels; the
    /// pair is closed then.
    [[nodiscard]] std::shared_ptr<void> Prepare(std::shared_ptr<PacketSocketPair> pair, std::uint32_t ifIndex,
                                                const Settings& settings, std::uint32_t ownMark, Done done);

private:
    struct Job {
        std::shared_ptr<PacketSocketPair> pair;
        std::uint32_t ifIndex;
        Settings settings;
        std::uint32_t ownMark;
        std::weak_ptr<Done> done;  // expired: cancelled
        std::optional<Unavailable> refusal;
    };
    struct Lane {
        std::unique_ptr<base::Worker> worker;
        std::shared_ptr<Job> job;  // under way; null: none
        std::shared_ptr<void> task;
    };

    static void Do(Job& job);
    void Next();
    [[nodiscard]] Lane* FreeLane();
    void Take(Lane& lane);

    boost::asio::io_context& m_loop;
    GracePeriods& m_grace;
    RingCloser& m_closer;
    std::deque<std::shared_ptr<Job>> m_waiting;
    std::vector<std::unique_ptr<Lane>> m_lanes;  // empty when all is made
};

}  // namespace capture

#endif
