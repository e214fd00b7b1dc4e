// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/workbench.h"

#include <utility>

namespace agent {

Workbench::Workbench(boost::asio::io_context& loop) : m_worker(base::MakeWorker(loop, base::kWorkerWaits)) {}

Workbench::~Workbench() = default;

void Workbench::Do(std::function<void()> work, std::function<void()> done)
{
    const auto task = m_tasks.emplace(m_tasks.end());
    auto guarded = [task, doWork = std::move(work)] {
        try {
            doWork();
        } catch (...) {
            task->problem = std::current_exception();
        }
    };
    auto finish = [this, task, tell = std::move(done)] {
        // `tell` may destroy the bench, and the task holds this function.
        const Task finished = std::move(*task);
        m_tasks.erase(task);
        if (finished.problem) std::rethrow_exception(finished.problem);
        tell();
    };
    task->handle = m_worker->Do(std::move(guarded), std::move(finish));
}

}  // namespace agent
