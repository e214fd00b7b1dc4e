// SPDX-License-Identifier: Apache-2.0
// Accepts the connections of a listening socket. After a failure, such as no descriptors left, it logs,
// pauses and tries again.

#ifndef AGENT_NETCONF_ACCEPTOR_H
#define AGENT_NETCONF_ACCEPTOR_H

#include <functional>
#include <memory>

#include <boost/asio/local/stream_protocol.hpp>

#include "base/timers.h"

namespace agent {

class Acceptor {
public:
    using Protocol = boost::asio::local::stream_protocol;
    using Handler = std::function<void(Protocol::socket socket)>;

    /// Takes over a listening socket; the destructor closes it and removes its file. `timers` must outlive
    /// this.
    Acceptor(Protocol::acceptor acceptor, base::Timers& timers, Handler handler);
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
