// SPDX-License-Identifier: Apache-2.0
// How much memory the long answers may take that clients have not read yet, all sessions together. A request
// for a long answer is not begun before there is room for it: until then it waits, and where it has waited
// too long it is refused. Short answers never ask. Lives in the loop.

#ifndef AGENT_NETCONF_ANSWER_ROOM_H
#define AGENT_NETCONF_ANSWER_ROOM_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include <boost/asio/io_context.hpp>

#include "agent/netconf/request.h"

namespace agent {

class AnswerRoom {
public:
    struct Options {
        /// Bytes of all long answers that are unread. One that is being made counts as a quarter, because its
        /// length is not known: so the bound holds where no answer is longer than that. Users other than root
        /// have half each at most, so that clients of one user that do not read do not hold up another's.
        std::size_t bytes = std::size_t{256} << 20;
        /// How long a request waits. Longer than a client may go without reading (SessionTimes::write): those
        /// that read nothing have lost their sessions by then.
        std::chrono::milliseconds wait{75'000};
    };
    AnswerRoom(boost::asio::io_context& loop, const Options& options);
    /// What waits is refused, as any request that is given up.
    ~AnswerRoom();
    AnswerRoom(const AnswerRoom&) = delete;
    AnswerRoom& operator=(const AnswerRoom&) = delete;

    /// Calls `begin` when there is room, at once where there is, in the order of the requests. From then on
    /// the request has its place in the room, and its answer keeps that until the client has it.
    void Enter(const RequestPtr& request, std::function<void()> begin);

private:
    struct State;
    std::shared_ptr<State> m_state;
};

}  // namespace agent

#endif
