// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/acceptor.h"

#include <unistd.h>

#include <chrono>
#include <string>
#include <utility>

#include "log/log.h"

namespace agent {
namespace {

using boost::system::error_code;

constexpr std::chrono::milliseconds kPause{100};

}  // namespace

struct Acceptor::State {
    State(Protocol::acceptor listening, base::Timers& allTimers, Handler onSocket)
        : acceptor(std::move(listening)), timers(allTimers), handler(std::move(onSocket))
    {
    }
    Protocol::acceptor acceptor;
    base::Timers& timers;
    std::shared_ptr<void> pause;
    Handler handler;
    bool open = true;
};

Acceptor::Acceptor(Protocol::acceptor acceptor, base::Timers& timers, Handler handler)
    : m_state(std::make_shared<State>(std::move(acceptor), timers, std::move(handler)))
{
    Accept(m_state);
}

Acceptor::~Acceptor()
{
    m_state->open = false;
    error_code ignored;  // the socket is closed in any case
    const auto endpoint = m_state->acceptor.local_endpoint(ignored);
    if (!ignored) ::unlink(endpoint.path().c_str());
    m_state->acceptor.close(ignored);
    m_state->pause.reset();
}

void Acceptor::Accept(const std::shared_ptr<State>& state)
{
    state->acceptor.async_accept([state](const error_code& error, Protocol::socket socket) {
        if (!state->open) return;
        if (!error) {
            state->handler(std::move(socket));
            return Accept(state);
        }
        slog::Error("a connection can't be taken: {}", error.message());
        state->pause = state->timers.After(kPause, [weak = std::weak_ptr<State>(state)] {
            if (const auto still = weak.lock()) Accept(still);
        });
    });
}

}  // namespace agent
