// SPDX-License-Identifier: Apache-2.0
// Makes pairs of packet sockets ready, and closes them, without holding up the loop. A few threads do it,
// which exist only while there is something to make or to close. Used by source.cpp.

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

/// To close a pair the kernel waits several times until every CPU has passed a quiet moment: some 60 ms. The
/// threads wait together, so a few of them close hundreds in a second. If no thread can be made, the caller
/// closes.
class RingCloser {
public:
    RingCloser();
    RingCloser(const RingCloser&) = delete;
    RingCloser& operator=(const RingCloser&) = delete;
    /// Returns when all are closed.
    ~RingCloser();

    /// Drops the reference in a thread; the sockets close with the last one. Null is allowed.
    void Close(std::shared_ptr<PacketSocketPair> pair);

private:
    struct Work;
    static void Run(const std::shared_ptr<Work>& work);
    std::shared_ptr<Work> m_work;
};

/// To make a pair the kernel waits twice in the same way, some 12 ms.
class PairMaker {
public:
    /// `refusal` is null if the pair is prepared; else the pair may be null.
    using Done = std::function<void(std::shared_ptr<PacketSocketPair> pair, const Unavailable* refusal)>;

    /// All must outlive it.
    PairMaker(boost::asio::io_context& loop, GracePeriods& grace, RingCloser& closer)
        : m_loop(loop), m_grace(grace), m_closer(closer)
    {
    }
    PairMaker(const PairMaker&) = delete;
    PairMaker& operator=(const PairMaker&) = delete;
    ~PairMaker();

    struct Wanted {
        std::shared_ptr<PacketSocketPair> pair;  // null: one is made, for a ring of `bytes`
        std::size_t bytes = 0;
        std::uint32_t ifIndex = 0;
        Settings settings;
        std::uint32_t ownMark = 0;
    };
    /// Makes the pair and calls its Prepare in a thread, and then `done` from the loop. Dropping the result
    /// cancels; the pair is closed then. Throws Unavailable.
    [[nodiscard]] std::shared_ptr<void> Prepare(Wanted wanted, Done done);

private:
    struct Job {
        Wanted wanted;
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
