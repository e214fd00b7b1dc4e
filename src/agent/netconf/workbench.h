// SPDX-License-Identifier: Apache-2.0
// How work that takes long, or waits, is done: one piece after the other.

#ifndef AGENT_NETCONF_WORKBENCH_H
#define AGENT_NETCONF_WORKBENCH_H

#include <exception>
#include <functional>
#include <list>
#include <memory>

#include <boost/asio/io_context.hpp>

#include "base/worker.h"

namespace agent {

/// Does work that takes longer than the loop can wait, in a thread of its own, one piece after the other. No
/// other thread uses what a piece of work uses until `done` is called. The agent has two benches: one for all
/// work on the candidate and all writes of the store, one for long messages and long answers.
class Workbench {
public:
    /// `loop` must outlive this.
    explicit Workbench(boost::asio::io_context& loop);
    /// Waits for the work under way; drops what has not begun.
    ~Workbench();
    Workbench(const Workbench&) = delete;
    Workbench& operator=(const Workbench&) = delete;

    /// Calls `work` in the thread and then `done` from the loop; neither from within Do. If `work`
    /// throws, the loop throws that instead of calling `done`. `work` must not write to the log.
    void Do(
        std::function<void()> work, std::function<void()> done = [] {});

    /// Frees something large in the thread.
    template <typename Owner>
    void Free(Owner owner)
    {
        const auto kept = std::make_shared<Owner>(std::move(owner));
        Do([kept] { *kept = Owner(); });
    }

private:
    struct Task {
        std::exception_ptr problem;
        std::shared_ptr<void> handle;
    };
    std::list<Task> m_tasks;
    std::unique_ptr<base::Worker> m_worker;  // destroyed, with its thread, before the tasks
};

/// Runs jobs that may themselves wait, one after the other: an edit of the candidate may wait for a
/// callpoint, a commit for its subscribers.
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
