// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/acceptor.h"

#include <unistd.h>

#include <chrono>
#include <string>
#include <utility>

#include <boost/asio/steady_timer.hpp>

#include "log/log.h"

namespace agent {
namespace {

using boost::system::error_code;

constexpr std::chrono::milliseconds kPause{100};

}  // namespace

struct Acceptor::State {
    State(Protocol::acceptor listening, Handler onSocket)
        : acceptor(std::move(listening)), pause(acceptor.get_executor()), handler(std::move(onSocket))
    {
    }
    Protocol::acceptor acceptor;
    boost::asio::steady_timer pause;
    Handler handler;
    bool open = true;
};

Acceptor::Acceptor(Protocol::acceptor acceptor, Handler handler)
    : m_state(std::make_shared<State>(std::move(acceptor), std::move(handler)))
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
    m_state->pause.cancel();
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
        state->pause.expires_after(kPause);
        state->pause.async_wait([state](const error_code&) {
            if (state->open) Accept(state);
        });
    });
}

}  // namespace agent
