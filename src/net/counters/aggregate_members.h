// SPDX-License-Identifier: Apache-2.0
// What the kernel tells of the members of bonds and teams, as IEEE 802.1AX sees them: a member's link and its
// aggregate's (RTM_GETLINK), and the LACP counts of a member whose bond runs LACP (RTM_GETSTATS). A part of
// the counter reader (counters.h).
//
// A link is asked for each time, since the kernel does not notify of each change of LACP's states.

#ifndef NET_COUNTERS_AGGREGATE_MEMBERS_H
#define NET_COUNTERS_AGGREGATE_MEMBERS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <utility>

#include "net/counters/counters.h"
#include "net/links/links.h"
#include "netlink/netlink.h"

namespace net {

/// A member as its own RTM_NEWLINK describes it.
struct MemberLink {
    std::uint32_t aggregate = 0;   // ifIndex of the bond or team
    std::uint16_t aggregator = 0;  // within the bond; 0: the bond runs no LACP, or it is a team
    std::uint8_t actorState = 0, partnerState = 0;
    friend bool operator==(const MemberLink&, const MemberLink&) = default;
};

/// A bond or team as its own RTM_NEWLINK describes it.
struct AggregateLink {
    /// The system in LACP: the device's own address, unless another is configured. The kernel tells that one
    /// only to processes with CAP_NET_ADMIN.
    MacAddress system{};
    bool lacp = false;             // a bond of mode 802.3ad
    std::uint16_t aggregator = 0;  // the active one; 0: none
    MacAddress partner{};          // of the active aggregator; all zeros: none
    friend bool operator==(const AggregateLink&, const AggregateLink&) = default;
};

// Readers of one message; safe on any payload. Nullopt if it is another message, or not of such a link.
[[nodiscard]] std::optional<MemberLink> ReadMemberLink(const nlmsghdr& message);
[[nodiscard]] std::optional<AggregateLink> ReadAggregateLink(const nlmsghdr& message);

/// Sets the counts that an RTM_NEWSTATS has of a member (IFLA_STATS_LINK_XSTATS_SLAVE). Safe on any payload.
void ReadLacpCounts(const nlmsghdr& message, AggregateMember& member);

/// Combines both links; without counts. The kernel knows the partner of the active aggregator only.
[[nodiscard]] AggregateMember MakeMember(const MemberLink& member, const AggregateLink& aggregate);

class AggregateMembers {
public:
    /// Sends a request and hands over its answers, like NetlinkSocket::Request. Throws std::system_error.
    using Exchange = std::function<void(NetlinkRequest& request, const NetlinkSocket::OnMessage& answer)>;

    /// Asks the kernel. Opens its socket. Throws std::system_error.
    AggregateMembers();
    explicit AggregateMembers(Exchange exchange) : m_exchange(std::move(exchange)) {}

    /// Nullopt if it is no member, or if the kernel reports an error for one of the links. Costs one
    /// question, one more for each aggregate since Refresh, and one where LACP runs.
    std::optional<AggregateMember> Read(std::uint32_t ifIndex);
    /// Forgets what has been read of aggregates.
    void Refresh() { m_aggregates.clear(); }

private:
    const std::optional<AggregateLink>& Aggregate(std::uint32_t ifIndex);
    bool Ask(NetlinkRequest& request, const NetlinkSocket::OnMessage& answer);

    Exchange m_exchange;
    std::unordered_map<std::uint32_t, std::optional<AggregateLink>> m_aggregates;
};

}  // namespace net

#endif
