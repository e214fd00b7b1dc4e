// SPDX-License-Identifier: Apache-2.0
// Bounds the memory of long answers that clients have not read yet, all sessions together. A request for a
// long answer waits until there is room for it, and is refused if it has waited too long. Short answers never
// ask. To be used in the loop only.

#ifndef AGENT_NETCONF_ANSWER_ROOM_H
#define AGENT_NETCONF_ANSWER_ROOM_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include <boost/asio/io_context.hpp>

#include "agent/netconf/request.h"
#include "base/timers.h"

namespace agent {

class AnswerRoom {
public:
    struct Options {
        /// Bytes of all unread long answers. An answer that is being made counts as a quarter of this,
        /// because its length is not known: the bound holds if no answer is longer. A user other than root
        /// has at most half, so that one user's clients that do not read do not block another's.
        std::size_t bytes = std::size_t{256} << 20;
        /// How long a request waits. Longer than a client may go without reading (SessionTimes::write):
        /// clients that read nothing have lost their sessions by then.
        std::chrono::milliseconds wait{75'000};
    };
    /// `loop` and `timers` must outlive this.
    AnswerRoom(boost::asio::io_context& loop, base::Timers& timers, const Options& options);
    /// Drops the requests that wait, which refuses them.
    ~AnswerRoom();
    AnswerRoom(const AnswerRoom&) = delete;
    AnswerRoom& operator=(const AnswerRoom&) = delete;

    /// Calls `begin` when there is room, from inside Enter if there is some; requests of one user in order.
    /// From then on the request has its place in the room, and its answer keeps it until the client has read
    /// it.
    void Enter(const RequestPtr& request, std::function<void()> begin);

private:
    struct State;
    std::shared_ptr<State> m_state;
};

}  // namespace agent

#endif
