// SPDX-License-Identifier: Apache-2.0
// Hears that something about routing has changed: routes, next hops, rules, addresses, whether this machine
// forwards. What it was does not matter to those who only remember answers, nor does it when messages are
// lost. It has no loop of its own. Used by the monitor.

#ifndef NET_ROUTES_ROUTE_FOLLOWER_H
#define NET_ROUTES_ROUTE_FOLLOWER_H

#include <functional>

#include "netlink/netlink.h"

namespace net {

class RouteFollower {
public:
    struct Listener {
        std::function<void()> routesChanged;  // whatever has changed
        std::function<void()> rulesChanged;   // before that; rules and switches only
    };

    /// Opens the socket; throws std::system_error.
    explicit RouteFollower(Listener listener);

    [[nodiscard]] int Descriptor() const { return m_socket.Descriptor(); }
    /// Takes a bounded part of what has come. Never throws: what can't be read counts as changed.
    void Turn();

private:
    Listener m_listener;
    NetlinkSocket m_socket;
    bool m_failing = false;  // and that is in the log
};

}  // namespace net

#endif
