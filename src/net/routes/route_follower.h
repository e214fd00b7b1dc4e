// SPDX-License-Identifier: Apache-2.0
// Notices changes of routing: routes, next hops, rules, addresses, and whether this machine forwards. What
// changed does not matter, since its users only forget remembered answers, so lost messages do no harm. It
// has no loop of its own. Used by the monitor.

#ifndef NET_ROUTES_ROUTE_FOLLOWER_H
#define NET_ROUTES_ROUTE_FOLLOWER_H

#include <functional>

#include "netlink/netlink.h"

namespace net {

class RouteFollower {
public:
    struct Listener {
        std::function<void()> routesChanged;  // after any change
        std::function<void()> rulesChanged;   // before that; only for rules and forwarding switches
    };

    /// Opens the socket. Throws std::system_error.
    explicit RouteFollower(Listener listener);

    [[nodiscard]] int Descriptor() const { return m_socket.Descriptor(); }
    /// Takes a bounded number of messages. Does not throw: an error counts as a change.
    void Turn();

private:
    Listener m_listener;
    NetlinkSocket m_socket;
    bool m_failing = false;  // and that is logged
};

}  // namespace net

#endif
