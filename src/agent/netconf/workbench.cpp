// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/workbench.h"

#include <deque>
#include <utility>

#include <boost/asio/post.hpp>

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

struct SerialQueue::State {
    explicit State(boost::asio::io_context& ioLoop) : loop(ioLoop) {}
    boost::asio::io_context& loop;
    std::deque<Job> waiting;
    bool busy = false;
};

class SerialQueue::Ticket {
public:
    explicit Ticket(std::weak_ptr<State> state) : m_state(std::move(state)) {}
    Ticket(const Ticket&) = delete;
    Ticket& operator=(const Ticket&) = delete;
    ~Ticket()
    {
        const auto state = m_state.lock();
        if (!state) return;  // the queue has gone
        state->busy = false;
        // Posted, so that many short jobs make no deep stack.
        if (!state->waiting.empty()) boost::asio::post(state->loop, [state] { RunNext(state); });
    }

private:
    std::weak_ptr<State> m_state;
};

SerialQueue::SerialQueue(boost::asio::io_context& loop) : m_state(std::make_shared<State>(loop)) {}

SerialQueue::~SerialQueue() { m_state->waiting.clear(); }

void SerialQueue::Push(Job job)
{
    m_state->waiting.push_back(std::move(job));
    RunNext(m_state);
}

void SerialQueue::RunNext(const std::shared_ptr<State>& state)
{
    if (state->busy || state->waiting.empty()) return;
    state->busy = true;
    const Job job = std::move(state->waiting.front());
    state->waiting.pop_front();
    job(std::make_shared<Ticket>(state));
}

}  // namespace agent
