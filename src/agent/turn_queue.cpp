// SPDX-License-Identifier: Apache-2.0
#include "agent/turn_queue.h"

#include <deque>
#include <utility>

#include <boost/asio/post.hpp>

namespace agent {

struct TurnQueue::State {
    explicit State(boost::asio::io_context& ioLoop) : loop(ioLoop) {}
    boost::asio::io_context& loop;
    std::deque<Job> waiting;
    bool busy = false;
};

class TurnQueue::Turn {
public:
    explicit Turn(std::weak_ptr<State> state) : m_state(std::move(state)) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn()
    {
        const auto state = m_state.lock();
        if (!state) return;  // the queue has gone
        state->busy = false;
        // Posted, so that a long row of short jobs is no deep stack.
        if (!state->waiting.empty()) boost::asio::post(state->loop, [state] { RunNext(state); });
    }

private:
    std::weak_ptr<State> m_state;
};

TurnQueue::TurnQueue(boost::asio::io_context& loop) : m_state(std::make_shared<State>(loop)) {}

TurnQueue::~TurnQueue() { m_state->waiting.clear(); }

void TurnQueue::Push(Job job)
{
    m_state->waiting.push_back(std::move(job));
    RunNext(m_state);
}

void TurnQueue::RunNext(const std::shared_ptr<State>& state)
{
    if (state->busy || state->waiting.empty()) return;
    state->busy = true;
    const Job job = std::move(state->waiting.front());
    state->waiting.pop_front();
    job(std::make_shared<Turn>(state));
}

}  // namespace agent
