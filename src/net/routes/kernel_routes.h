// SPDX-License-Identifier: Apache-2.0
// Asks the kernel for the route of a packet (RTM_GETROUTE), as it would choose for one that entered by an
// interface: with policy rules on addresses and interfaces, virtual routing domains, forwarding switched
// off and the check of sources. Rules on ports, marks or the type of service can't be told from an
// address, and a choice among several paths by ports neither: there it names one of them.

#ifndef NET_ROUTES_KERNEL_ROUTES_H
#define NET_ROUTES_KERNEL_ROUTES_H

#include <cstdint>
#include <optional>

#include "net/routes/routes.h"
#include "netlink/netlink.h"

namespace net {

class KernelRoutes final : public RouteQuestions {
public:
    /// Opens a socket; throws std::system_error.
    KernelRoutes();

    std::optional<RouteAnswer> Ask(std::uint32_t ifIndex, const Address& destination,
                                   const Address& source) override;

    /// Rules, or whether this machine forwards, may have changed.
    void ForgetRules() { m_known = false; }

private:
    struct Reply {
        RouteAnswer answer;
        bool severalPaths = false;
    };
    std::optional<Reply> AskOnce(std::uint32_t ifIndex, const Address& destination, const Address& source,
                                 std::uint32_t flags);
    void ReadRules();
    void ReadForwarding6();

    NetlinkSocket m_socket;
    bool m_known = false;
    bool m_sourceRules = false;  // some rule looks at more than the destination
    bool m_forwards6 = true;     // IPv4 needs no such thing: the answer tells
};

}  // namespace net

#endif
