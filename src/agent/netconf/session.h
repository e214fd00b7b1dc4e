// SPDX-License-Identifier: Apache-2.0
// One NETCONF session's connection: hello, framing, one request after the other. The next request is
// read when the answer to the one before it is with the client, so what a client makes us keep is
// bounded by one request and one reply, and a client that does not read delays nobody but itself.
// Knows no operation.

#ifndef AGENT_NETCONF_SESSION_H
#define AGENT_NETCONF_SESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/local/stream_protocol.hpp>

#include "netconf/hello.h"

namespace agent {

class AccessGrant;
class AnswerPlace;

/// How long a client may take; for what depends on it. 0 where the member says so: as long as it likes.
struct SessionTimes {
    std::chrono::milliseconds hello{30'000};
    std::chrono::milliseconds idle{0};        // without a request, and none under way; 0: for ever
    std::chrono::milliseconds write{60'000};  // without taking anything of an answer
};

class Session : public std::enable_shared_from_this<Session> {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    struct Handlers {
        /// A whole message; to be answered once with Send or Finish. Called from the loop.
        std::function<void(const std::shared_ptr<Session>& session, std::string message)> onMessage;
        /// The framing is broken: the last chance to Finish with an answer. Called once.
        std::function<void(const std::shared_ptr<Session>& session, const std::string& problem)> onBroken;
        /// The connection has ended, by whom ever. Called once, from the loop.
        std::function<void(const std::shared_ptr<Session>& session, const std::string& reason)> onClosed;
    };

    struct Identity {
        std::uint32_t id = 0;
        std::string user;
        std::uint32_t uid = 0;
        /// What the user may do; never changed while a request is under way. Null only in tests of parts.
        std::shared_ptr<const AccessGrant> access{};
    };

    /// Before the client's hello no more is taken than this.
    static constexpr std::size_t kMaxHello = std::size_t{64} << 10;

    Session(Socket socket, Identity identity, netconf::Hello hello, SessionTimes times, Handlers handlers);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// How long a message may be, from the client's hello on. To be called before Start.
    void SetMaxMessage(std::size_t bytes);

    /// Says hello and waits for the client's.
    void Start();

    /// Instead of Start: says one message, to a client that gets no session, and closes.
    void TurnAway(std::string message);

    [[nodiscard]] const Identity& Who() const;
    void SetAccess(std::shared_ptr<const AccessGrant> access);

    [[nodiscard]] bool IsOpen() const;

    /// Whether the client knows base:1.1.
    [[nodiscard]] bool SpeaksBase11() const;

    /// Sends an answer and goes on with the next request. `place` goes when the client has read the answer,
    /// or the connection has ended.
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
