// One NETCONF session's connection: hello, framing, one request after the other. The next request is
// read when the answer to the one before it is with the client, so what a client makes us keep is
// bounded by one request and one reply, and a client that does not read delays nobody but itself.
// Knows no operation.

#ifndef AGENT_SESSION_H
#define AGENT_SESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/local/stream_protocol.hpp>

#include "netconf/hello.h"

namespace agent {

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
    };

    Session(Socket socket, Identity identity, netconf::Hello hello, Handlers handlers);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Says hello and waits at most that long for the client's.
    void Start(std::chrono::milliseconds helloTimeout);

    [[nodiscard]] const Identity& Who() const;

    [[nodiscard]] bool IsOpen() const;

    /// Whether the client knows base:1.1.
    [[nodiscard]] bool SpeaksBase11() const;

    /// Sends an answer and goes on with the next request.
    void Send(std::string message);

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
