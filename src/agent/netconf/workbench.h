// SPDX-License-Identifier: Apache-2.0
// Work that takes longer than the loop can wait, done beside it in a thread of the bench, one piece after the
// other. What a piece of work uses is used by no other thread until its end has been told to the loop. The
// agent has two: one for all that is done with the candidate and the store's write side, one for long
// messages and long answers.

#ifndef AGENT_NETCONF_WORKBENCH_H
#define AGENT_NETCONF_WORKBENCH_H

#include <exception>
#include <functional>
#include <list>
#include <memory>

#include <boost/asio/io_context.hpp>

#include "base/worker.h"

namespace agent {

class Workbench {
public:
    /// The loop outlives it.
    explicit Workbench(boost::asio::io_context& loop);
    /// Waits for what is under way; what has not begun is dropped.
    ~Workbench();
    Workbench(const Workbench&) = delete;
    Workbench& operator=(const Workbench&) = delete;

    /// Calls `work` in the thread and then `done` from the loop; neither from within Do. What `work` throws
    /// is thrown from the loop in the place of `done`. `work` does not write to the log.
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
    std::unique_ptr<base::Worker> m_worker;  // its thread ends before the tasks go
};

}  // namespace agent

#endif
