// SPDX-License-Identifier: Apache-2.0
// One NETCONF session's connection: hello, framing, one request after the other. The session reads the next
// request when the client has the answer to the one before, so a client takes the memory of one request and
// one reply at most, and a client that does not read delays only itself. Knows no operation.

#ifndef AGENT_NETCONF_SESSION_H
#define AGENT_NETCONF_SESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/local/stream_protocol.hpp>

#include "base/timers.h"
#include "netconf/hello.h"

namespace agent {

class AccessGrant;
class AnswerPlace;

/// How long a client may take.
struct SessionTimes {
    std::chrono::milliseconds hello{30'000};
    std::chrono::milliseconds idle{0};        // without a request, and none under way; 0: no limit
    std::chrono::milliseconds write{60'000};  // without reading anything of an answer
};

class Session : public std::enable_shared_from_this<Session> {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    struct Handlers {
        /// A whole message; to be answered once with Send or Finish. Called from the loop.
        std::function<void(const std::shared_ptr<Session>& session, std::string message)> onMessage;
        /// The framing is broken; to be answered with Finish. Called once.
        std::function<void(const std::shared_ptr<Session>& session, const std::string& problem)> onBroken;
        /// The connection has ended, from either side. Called once, from the loop.
        std::function<void(const std::shared_ptr<Session>& session, const std::string& reason)> onClosed;
    };

    struct Identity {
        std::uint32_t id = 0;
        std::string user;
        std::uint32_t uid = 0;
        /// What the user may do; not changed while a request is under way. Null for a client that is turned
        /// away, and in some tests.
        std::shared_ptr<const AccessGrant> access{};
    };

    /// The longest hello that is taken from a client, in bytes.
    static constexpr std::size_t kMaxHello = std::size_t{64} << 10;

    /// `timers` must outlive the session's connection.
    Session(Socket socket, base::Timers& timers, Identity identity, netconf::Hello hello, SessionTimes times,
            Handlers handlers);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// How long a message after the client's hello may be. To be called before Start.
    void SetMaxMessage(std::size_t bytes);

    /// Says hello and waits for the client's.
    void Start();

    /// Instead of Start, for a client that gets no session: sends one message and closes.
    void TurnAway(std::string message);

    [[nodiscard]] const Identity& Who() const;
    void SetAccess(std::shared_ptr<const AccessGrant> access);

    [[nodiscard]] bool IsOpen() const;

    /// Whether the client knows base:1.1.
    [[nodiscard]] bool SpeaksBase11() const;

    /// Sends an answer and goes on with the next request. `place` is released when the client has read the
    /// answer, or the connection has ended.
    void Send(std::string message, std::shared_ptr<AnswerPlace> place = nullptr);

    /// Sends an answer and closes.
    void Finish(std::string message);

    /// Closes at once.
    void Close(const std::string& reason);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace agent

#endif
