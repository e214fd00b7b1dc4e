// SPDX-License-Identifier: Apache-2.0
// Does work that takes longer than the loop can wait, in a thread of its own, one piece after the other. No
// other thread uses what a piece of work uses until `done` is called. The agent has two benches: one for all
// work on the candidate and all writes of the store, one for long messages and long answers.

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

}  // namespace agent

#endif
