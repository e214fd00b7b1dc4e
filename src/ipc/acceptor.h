// SPDX-License-Identifier: Apache-2.0
// Accepts the connections of a listening socket, Unix or TCP. After a failure, such as no descriptors left,
// it pauses and tries again. Used by cdbd and sflow-mgr.

#ifndef IPC_ACCEPTOR_H
#define IPC_ACCEPTOR_H

#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <boost/asio/local/stream_protocol.hpp>

#include "base/timers.h"
#include "log/log.h"

namespace ipc {

template <typename Protocol>
class Acceptor {
public:
    using Listening = typename Protocol::acceptor;
    using Handler = std::function<void(typename Protocol::socket socket)>;

    /// Takes over a listening socket. `failure` begins the message of a failure, the first of a row: "can't
    /// accept a connection on PATH". Timers and the loop of the socket must outlive it.
    Acceptor(Listening listening, base::Timers& timers, std::string failure, Handler handler)
        : m_state(
              std::make_shared<State>(std::move(listening), timers, std::move(failure), std::move(handler)))
    {
        Accept(m_state);
    }
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;
    ~Acceptor() { Close(); }

    /// Calls the handler no more, closes the socket and removes its file.
    void Close()
    {
        if (!std::exchange(m_state->open, false)) return;
        boost::system::error_code ignored;  // the socket is closed in any case
        if constexpr (std::is_same_v<Protocol, boost::asio::local::stream_protocol>) {
            const auto endpoint = m_state->listening.local_endpoint(ignored);
            if (!ignored) ::unlink(endpoint.path().c_str());
        }
        m_state->listening.close(ignored);
        m_state->pause.reset();
    }

    [[nodiscard]] bool IsOpen() const { return m_state->open; }

private:
    static constexpr std::chrono::milliseconds kPause{100};

    struct State {
        State(Listening socket, base::Timers& clock, std::string text, Handler onSocket)
            : listening(std::move(socket)),
              timers(clock),
              failure(std::move(text)),
              handler(std::move(onSocket))
        {
        }
        Listening listening;
        base::Timers& timers;
        const std::string failure;
        const Handler handler;
        std::shared_ptr<void> pause;
        bool failing = false;
        bool open = true;
    };

    static void Accept(const std::shared_ptr<State>& state)
    {
        state->listening.async_accept(
            [state](const boost::system::error_code& error, typename Protocol::socket socket) {
                if (!state->open) return;
                if (error) return AcceptLater(state, error.message());
                state->failing = false;
                state->handler(std::move(socket));
                if (state->open) Accept(state);
            });
    }

    static void AcceptLater(const std::shared_ptr<State>& state, const std::string& reason)
    {
        if (!std::exchange(state->failing, true))
            slog::Error("{}: {}; trying again until it succeeds", state->failure, reason);
        // Not owned: the state owns the timer.
        state->pause = state->timers.After(kPause, [weak = std::weak_ptr<State>(state)] {
            if (const auto still = weak.lock(); still != nullptr && still->open) Accept(still);
        });
    }

    std::shared_ptr<State> m_state;
};

}  // namespace ipc

#endif
