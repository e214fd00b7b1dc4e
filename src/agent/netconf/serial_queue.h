// SPDX-License-Identifier: Apache-2.0
// Jobs that wait for something while they are under way, one after the other: an edit of the candidate may
// wait for a callpoint, a commit for its subscribers, and the next one waits until they are done.

#ifndef AGENT_NETCONF_SERIAL_QUEUE_H
#define AGENT_NETCONF_SERIAL_QUEUE_H

#include <functional>
#include <memory>

#include <boost/asio/io_context.hpp>

namespace agent {

class SerialQueue {
public:
    explicit SerialQueue(boost::asio::io_context& loop);
    /// Drops what waits.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Ends when the last reference to it goes; then the next job gets its turn.
    class Ticket;
    using TicketPtr = std::shared_ptr<Ticket>;
    using Job = std::function<void(const TicketPtr& turn)>;

    /// Runs the job, at once where nothing is before it.
    void Push(Job job);

private:
    struct State;
    static void RunNext(const std::shared_ptr<State>& state);
    std::shared_ptr<State> m_state;
};

}  // namespace agent

#endif
