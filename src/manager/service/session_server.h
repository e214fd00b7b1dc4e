// SPDX-License-Identifier: Apache-2.0
// manager.sock: gives the session to one client at a time and refuses the others. Knows sockets and
// messages, not what operations mean: that is the service's.

#ifndef MANAGER_SERVICE_SESSION_SERVER_H
#define MANAGER_SERVICE_SESSION_SERVER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ipc/trust.h"

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
}  // namespace base

namespace manager {

class Service;

class SessionServer {
public:
    /// Connections that have not sent hello; one more ends the oldest of them.
    static constexpr std::size_t kMaxStrangers = 64;
    /// The same of one user, root aside; one more is refused.
    static constexpr std::size_t kMaxStrangersOfUser = 16;

    /// Listens on the path. Throws std::runtime_error, which names the path, and the process that listens
    /// there already. Loop, timers and service must outlive it. `trust`: which peers may have the session.
    /// `group`: the group of the socket's file; nullopt: the process's own.
    SessionServer(boost::asio::io_context& loop, base::Timers& timers, std::string socketPath,
                  Service& service, ipc::Trust trust = ipc::Trust("sflow-mgr"),
                  std::optional<std::uint32_t> group = std::nullopt);
    SessionServer(const SessionServer&) = delete;
    SessionServer& operator=(const SessionServer&) = delete;
    ~SessionServer();

    /// Asks the client for a new session. False if there is no client.
    bool RequestResync();

    /// Gives the socket's file to a user and a group, so that these can connect. Throws
    /// std::system_error.
    void GiveTo(std::uint32_t user, std::uint32_t group);

    /// Ends the session and all connections, stops listening and removes the socket's file.
    void Stop();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace manager

#endif
