// SPDX-License-Identifier: Apache-2.0
// Runs jobs that may themselves wait, one after the other: an edit of the candidate may wait for a callpoint,
// a commit for its subscribers.

#ifndef AGENT_NETCONF_SERIAL_QUEUE_H
#define AGENT_NETCONF_SERIAL_QUEUE_H

#include <functional>
#include <memory>

#include <boost/asio/io_context.hpp>

namespace agent {

class SerialQueue {
public:
    explicit SerialQueue(boost::asio::io_context& loop);
    /// Drops the jobs that wait.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// A job's turn: it ends with the last reference, and the next job begins.
    class Ticket;
    using TicketPtr = std::shared_ptr<Ticket>;
    using Job = std::function<void(const TicketPtr& ticket)>;

    /// Runs the job in its turn, from inside Push if none is before it.
    void Push(Job job);

private:
    struct State;
    static void RunNext(const std::shared_ptr<State>& state);
    std::shared_ptr<State> m_state;
};

}  // namespace agent

#endif
