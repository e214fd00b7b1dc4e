// SPDX-License-Identifier: Apache-2.0
#include "net/counters/aggregate_members.h"

#include <algorithm>
#include <memory>
#include <system_error>

#include <sys/socket.h>

#include <linux/if_bonding.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "net/links/link_message.h"

namespace net {
namespace {

using Count = std::optional<std::uint64_t> AggregateMember::*;

/// The count for a statistic of LACP; null if it is not exported.
Count PlaceOf(std::uint16_t statistic)
{
    switch (statistic) {
    case BOND_3AD_STAT_LACPDU_RX:
        return &AggregateMember::lacpdusIn;
    case BOND_3AD_STAT_LACPDU_TX:
        return &AggregateMember::lacpdusOut;
    case BOND_3AD_STAT_LACPDU_ILLEGAL_RX:
        return &AggregateMember::illegalIn;
    case BOND_3AD_STAT_MARKER_RX:
        return &AggregateMember::markersIn;
    case BOND_3AD_STAT_MARKER_TX:
        return &AggregateMember::markersOut;
    case BOND_3AD_STAT_MARKER_RESP_RX:
        return &AggregateMember::markerResponsesIn;
    case BOND_3AD_STAT_MARKER_RESP_TX:
        return &AggregateMember::markerResponsesOut;
    // The kernel tells apart where it met what it does not know: the slow protocol, or its marker.
    case BOND_3AD_STAT_LACPDU_UNKNOWN_RX:
    case BOND_3AD_STAT_MARKER_UNKNOWN_RX:
        return &AggregateMember::unknownIn;
    default:
        return nullptr;
    }
}

/// All zeros if it is absent or has another size.
MacAddress ReadMac(Attribute attribute)
{
    MacAddress mac{};
    const auto bytes = attribute.Bytes();
    if (bytes.size() == mac.size()) std::ranges::copy(bytes, mac.begin());
    return mac;
}

void ReadBond(Attribute data, AggregateLink& read)
{
    const auto bond = ReadAttributes<IFLA_BOND_AD_ACTOR_SYSTEM + 1>(data.Bytes());
    read.lacp = bond[IFLA_BOND_MODE].U8() == BOND_MODE_8023AD;
    if (!read.lacp) return;
    if (const MacAddress configured = ReadMac(bond[IFLA_BOND_AD_ACTOR_SYSTEM]); configured != MacAddress{})
        read.system = configured;
    const auto active = ReadAttributes<IFLA_BOND_AD_INFO_PARTNER_MAC + 1>(bond[IFLA_BOND_AD_INFO].Bytes());
    read.aggregator = active[IFLA_BOND_AD_INFO_AGGREGATOR].U16();
    read.partner = ReadMac(active[IFLA_BOND_AD_INFO_PARTNER_MAC]);
}

NetlinkRequest LinkRequest(std::uint32_t ifIndex)
{
    NetlinkRequest request(RTM_GETLINK, 0);
    ifinfomsg header{};
    header.ifi_index = static_cast<int>(ifIndex);
    request.AddHeader(header);
    request.AddU32(IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    return request;
}

NetlinkRequest LacpCountsRequest(std::uint32_t ifIndex)
{
    NetlinkRequest request(RTM_GETSTATS, 0);
    if_stats_msg header{};
    header.ifindex = ifIndex;
    header.filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_XSTATS_SLAVE);
    request.AddHeader(header);
    return request;
}

}  // namespace

std::optional<MemberLink> ReadMemberLink(const nlmsghdr& message)
{
    if (message.nlmsg_type != RTM_NEWLINK || LinkIndex(message, AF_UNSPEC) == 0) return std::nullopt;
    const auto attributes = ReadAttributes<IFLA_LINKINFO + 1>(Payload(message, sizeof(ifinfomsg)));
    const auto info = ReadAttributes<IFLA_INFO_SLAVE_DATA + 1>(attributes[IFLA_LINKINFO].Bytes());
    const auto kind = info[IFLA_INFO_SLAVE_KIND].Text();
    MemberLink read;
    read.aggregate = attributes[IFLA_MASTER].U32();
    if (read.aggregate == 0 || (kind != "bond" && kind != "team")) return std::nullopt;
    if (kind == "team") return read;
    const auto member =
        ReadAttributes<IFLA_BOND_SLAVE_AD_PARTNER_OPER_PORT_STATE + 1>(info[IFLA_INFO_SLAVE_DATA].Bytes());
    read.aggregator = member[IFLA_BOND_SLAVE_AD_AGGREGATOR_ID].U16();
    read.actorState = member[IFLA_BOND_SLAVE_AD_ACTOR_OPER_PORT_STATE].U8();
    // The kernel has 16 bits for these 8.
    read.partnerState =
        static_cast<std::uint8_t>(member[IFLA_BOND_SLAVE_AD_PARTNER_OPER_PORT_STATE].U16() & 0xFF);
    return read;
}

std::optional<AggregateLink> ReadAggregateLink(const nlmsghdr& message)
{
    if (message.nlmsg_type != RTM_NEWLINK || LinkIndex(message, AF_UNSPEC) == 0) return std::nullopt;
    const auto attributes = ReadAttributes<IFLA_LINKINFO + 1>(Payload(message, sizeof(ifinfomsg)));
    const auto info = ReadAttributes<IFLA_INFO_DATA + 1>(attributes[IFLA_LINKINFO].Bytes());
    const auto kind = info[IFLA_INFO_KIND].Text();
    if (kind != "bond" && kind != "team") return std::nullopt;
    AggregateLink read;
    read.system = ReadMac(attributes[IFLA_ADDRESS]);
    if (kind == "bond") ReadBond(info[IFLA_INFO_DATA], read);
    return read;
}

void ReadLacpCounts(const nlmsghdr& message, AggregateMember& member)
{
    if (message.nlmsg_type != RTM_NEWSTATS) return;
    const auto attributes =
        ReadAttributes<IFLA_STATS_LINK_XSTATS_SLAVE + 1>(Payload(message, sizeof(if_stats_msg)));
    const auto kinds =
        ReadAttributes<LINK_XSTATS_TYPE_BOND + 1>(attributes[IFLA_STATS_LINK_XSTATS_SLAVE].Bytes());
    const auto bond = ReadAttributes<BOND_XSTATS_3AD + 1>(kinds[LINK_XSTATS_TYPE_BOND].Bytes());
    ForEachAttribute(bond[BOND_XSTATS_3AD].Bytes(), [&member](Attribute statistic) {
        const Count place = PlaceOf(statistic.Type());
        if (place == nullptr || statistic.Bytes().size() != sizeof(std::uint64_t)) return;
        member.*place = (member.*place).value_or(0) + statistic.U64();
    });
}

AggregateMember MakeMember(const MemberLink& member, const AggregateLink& aggregate)
{
    AggregateMember made;
    made.aggregate = member.aggregate;
    made.actorSystem = aggregate.system;
    if (!aggregate.lacp) return made;
    made.actorState = member.actorState;
    made.partnerState = member.partnerState;
    if (member.aggregator != 0 && member.aggregator == aggregate.aggregator)
        made.partnerSystem = aggregate.partner;
    return made;
}

AggregateMembers::AggregateMembers()
    : m_exchange([socket = std::make_shared<NetlinkSocket>(NETLINK_ROUTE)](
                     NetlinkRequest& request, const NetlinkSocket::OnMessage& answer) {
          socket->Request(request, answer);
      })
{
}

bool AggregateMembers::Ask(NetlinkRequest& request, const NetlinkSocket::OnMessage& answer)
{
    try {
        m_exchange(request, answer);
        return true;
    } catch (const std::system_error&) {  // it has gone, or the kernel keeps no such counts
        return false;
    }
}

const std::optional<AggregateLink>& AggregateMembers::Aggregate(std::uint32_t ifIndex)
{
    const auto [place, isNew] = m_aggregates.try_emplace(ifIndex);
    if (!isNew) return place->second;
    NetlinkRequest request = LinkRequest(ifIndex);
    std::optional<AggregateLink>& read = place->second;
    if (!Ask(request, [&read](const nlmsghdr& message) { read = ReadAggregateLink(message); })) read.reset();
    return read;
}

std::optional<AggregateMember> AggregateMembers::Read(std::uint32_t ifIndex)
{
    std::optional<MemberLink> link;
    NetlinkRequest request = LinkRequest(ifIndex);
    if (!Ask(request, [&link](const nlmsghdr& message) { link = ReadMemberLink(message); }) || !link)
        return std::nullopt;
    const auto& aggregate = Aggregate(link->aggregate);
    if (!aggregate) return std::nullopt;
    AggregateMember member = MakeMember(*link, *aggregate);
    if (!aggregate->lacp) return member;
    NetlinkRequest counts = LacpCountsRequest(ifIndex);
    Ask(counts, [&member](const nlmsghdr& message) { ReadLacpCounts(message, member); });
    return member;
}

}  // namespace net
