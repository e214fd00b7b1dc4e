// SPDX-License-Identifier: Apache-2.0
// Changes of routing.

#include "net/routes/route_follower.h"

#include <system_error>
#include <utility>

#include <linux/rtnetlink.h>

#include "log/log.h"

namespace net {
namespace {

constexpr int kDatagramsATurn = 256;
constexpr std::size_t kRouteBuffer = 256 * 1024;

bool IsAboutRules(std::uint16_t type)
{
    return type == RTM_NEWRULE || type == RTM_DELRULE || type == RTM_NEWNETCONF || type == RTM_DELNETCONF;
}

}  // namespace

RouteFollower::RouteFollower(Listener listener) : m_listener(std::move(listener)), m_socket(NETLINK_ROUTE)
{
    m_socket.SetReceiveBuffer(kRouteBuffer);
    for (const std::uint32_t group : {RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_IPV4_RULE,
                                      RTNLGRP_IPV6_RULE, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR})
        m_socket.Join(group);
    for (const std::uint32_t group : {RTNLGRP_IPV4_NETCONF, RTNLGRP_IPV6_NETCONF, RTNLGRP_NEXTHOP}) {
        try {
            m_socket.Join(group);
        } catch (const std::system_error&) {  // a kernel without them
        }
    }
}

void RouteFollower::Turn()
{
    bool heard = false;
    bool rules = false;
    try {
        for (int i = 0; i < kDatagramsATurn; ++i) {
            const auto received = m_socket.Receive(
                [&rules](const nlmsghdr& message) { rules = rules || IsAboutRules(message.nlmsg_type); });
            if (received == NetlinkSocket::Received::kNothing) break;
            heard = true;
            rules = rules || received == NetlinkSocket::Received::kLost;
        }
        m_failing = false;
    } catch (const std::system_error& error) {
        if (!std::exchange(m_failing, true))
            slog::Notice("changes of routes can't be read: {}", error.what());
        heard = rules = true;
    }
    if (rules) m_listener.rulesChanged();
    if (heard) m_listener.routesChanged();
}

}  // namespace net
