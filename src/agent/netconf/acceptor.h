// SPDX-License-Identifier: Apache-2.0
// A listening socket that lets connections in for as long as it lives, and goes on when that fails
// for a while (no descriptors left).

#ifndef AGENT_NETCONF_ACCEPTOR_H
#define AGENT_NETCONF_ACCEPTOR_H

#include <functional>
#include <memory>

#include <boost/asio/local/stream_protocol.hpp>

namespace agent {

class Acceptor {
public:
    using Protocol = boost::asio::local::stream_protocol;
    using Handler = std::function<void(Protocol::socket socket)>;

    /// Takes over a listening socket. Its file goes with it.
    Acceptor(Protocol::acceptor acceptor, Handler handler);
    ~Acceptor();
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;

private:
    struct State;
    static void Accept(const std::shared_ptr<State>& state);
    std::shared_ptr<State> m_state;
};

}  // namespace agent

#endif
