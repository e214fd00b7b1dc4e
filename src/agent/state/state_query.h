// SPDX-License-Identifier: Apache-2.0
// Asks several providers for state at once, takes their answers part by part, each in a turn of the loop, and
// gives up providers that stop answering. Used by state.cpp.

#ifndef AGENT_STATE_STATE_QUERY_H
#define AGENT_STATE_STATE_QUERY_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/clients/client.h"
#include "agent/state/provided_state.h"
#include "base/timers.h"

struct ly_ctx;

namespace agent {

struct StateQuestion {
    ClientPtr client;
    ipc::cdb::StateRequest request;  // without its number
};

/// The result of a question.
struct StateOutcome {
    ClientPtr client;
    std::vector<std::string> paths;  // that the client was asked for
    Client::AnswerKey key;           // of its answer
    bool late = false;               // the answer may still come
    std::string problem;             // why there is no state; empty if there is
    std::unique_ptr<ProvidedState> state;
};

class StateQuery : public std::enable_shared_from_this<StateQuery> {
public:
    using Done = std::function<void(std::vector<StateOutcome>&& outcomes)>;

    /// A whole answer may take this many times the timeout of one part.
    static constexpr int kWhole = 5;

    StateQuery(boost::asio::io_context& loop, base::Timers& timers, const ly_ctx* context,
               std::chrono::milliseconds timeout, Done done);

    /// Asks. Calls `done` once, from the loop, never from inside Run. At least one question.
    void Run(std::vector<StateQuestion> questions);

private:
    struct Open {
        StateOutcome outcome;
        std::shared_ptr<void> timer{};                  // for the next part
        std::chrono::steady_clock::time_point until{};  // for the whole answer
        bool ended = false;
    };

    void Ask(std::size_t index, ipc::cdb::StateRequest&& request);
    void Await(std::size_t index);
    void Take(std::size_t index, const ipc::cdb::ClientMessage* message);
    void End(std::size_t index, std::string problem);

    boost::asio::io_context& m_loop;
    base::Timers& m_timers;
    const ly_ctx* m_context;
    std::chrono::milliseconds m_timeout;
    Done m_done;
    std::vector<std::unique_ptr<Open>> m_open;
    std::size_t m_running = 0;
};

/// "2 s", "50 ms"
std::string DurationText(std::chrono::milliseconds duration);

}  // namespace agent

#endif
