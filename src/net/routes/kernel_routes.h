// SPDX-License-Identifier: Apache-2.0
// The kernel's routing: answers, and news of changes.
//
// KernelRoutes asks for the route of a packet (RTM_GETROUTE) that entered by an interface, so that policy
// rules on addresses and interfaces, VRFs, disabled forwarding and source validation count. Rules on ports,
// marks or the type of service can't be followed, since only addresses are known; of several paths chosen by
// ports, the answer names one. Of a group it tells whether this machine is a member (IPv4), or that the
// kernel forwards groups, but not to how many interfaces.

#ifndef NET_ROUTES_KERNEL_ROUTES_H
#define NET_ROUTES_KERNEL_ROUTES_H

#include <cstdint>
#include <functional>
#include <optional>

#include "net/routes/routes.h"
#include "netlink/netlink.h"

namespace net {

class KernelRoutes final : public RouteQuestions {
public:
    /// Opens a socket. Throws std::system_error.
    KernelRoutes();

    std::optional<RouteAnswer> Ask(RouteFrom from, const Address& destination,
                                   const Address& source) override;

    /// Call when rules, or whether this machine forwards, may have changed.
    void ForgetRules() { m_known = false; }

private:
    struct Reply {
        RouteAnswer answer;
        bool severalPaths = false;
    };
    std::optional<Reply> AskOnce(RouteFrom from, const Address& destination, const Address& source,
                                 std::uint32_t flags);
    std::optional<RouteAnswer> AskUnicast(RouteFrom from, const Address& destination, const Address& source);
    std::optional<RouteAnswer> AskGroup(RouteFrom from, const Address& destination, const Address& source);
    Discard WhyInvalid(RouteFrom from, const Address& destination, const Address& source);
    void ReadRules();
    void ReadForwarding(std::uint8_t family);

    NetlinkSocket m_socket;
    bool m_known = false;
    bool m_sourceRules = false;  // some rule looks at more than the destination
    bool m_forwards6 = true;     // for IPv4 the kernel's answer says it
    bool m_forwardsGroups4 = false, m_forwardsGroups6 = false;
};

/// Notices changes of routing: routes, next hops, rules, addresses, and whether this machine forwards. What
/// changed does not matter, since its users only forget remembered answers, so lost messages do no harm. It
/// has no loop of its own: the monitor has.
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
