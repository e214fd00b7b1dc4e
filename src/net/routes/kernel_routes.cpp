// SPDX-License-Identifier: Apache-2.0
#include "net/routes/kernel_routes.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/socket.h>

#include <linux/fib_rules.h>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>

#include "log/log.h"

namespace net {
namespace {

using Kind = Destination::Kind;

constexpr int kDatagramsATurn = 256;
constexpr std::size_t kRouteBuffer = 256 * 1024;

Address ReadAddress(std::span<const std::uint8_t> bytes)
{
    Address address;
    if (bytes.size() != 4 && bytes.size() != 16) return address;
    address.size = static_cast<std::uint8_t>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), address.bytes.begin());
    return address;
}

Kind KindOf(std::uint8_t type)
{
    switch (type) {
    case RTN_UNICAST:
        return Kind::kInterface;
    case RTN_LOCAL:
    case RTN_BROADCAST:
    case RTN_ANYCAST:
        return Kind::kLocal;
    case RTN_MULTICAST:
        return Kind::kSeveral;
    case RTN_BLACKHOLE:
    case RTN_UNREACHABLE:
    case RTN_PROHIBIT:
    case RTN_THROW:
        return Kind::kDiscarded;
    default:
        return Kind::kUnknown;
    }
}

// The fate of the packet that the kernel's error tells; nullopt if the error concerns the request itself.
std::optional<RouteAnswer> AnswerOf(int error)
{
    RouteAnswer answer;
    answer.kind = Kind::kDiscarded;
    switch (error) {
    case ENETUNREACH:
    case EHOSTUNREACH:
    case EACCES:
        return answer;
    case EINVAL:  // a black hole, but also an invalid source
    case EXDEV:   // a source that should have entered by another interface
        answer.perSource = true;
        return answer;
    default:
        return std::nullopt;
    }
}

// False for the default rules, and for others that look only at what an answer is remembered by.
bool LooksAtSource(const nlmsghdr& message)
{
    const auto* header = HeaderOf<fib_rule_hdr>(message);
    if (header == nullptr) return false;
    const auto rule = ReadAttributes<FRA_DPORT_RANGE + 1>(Payload(message, sizeof *header));
    return header->src_len != 0 || header->tos != 0 || rule[FRA_FWMARK].U32() != 0 || rule[FRA_IP_PROTO] ||
           rule[FRA_SPORT_RANGE] || rule[FRA_DPORT_RANGE];
}

bool IsAboutRules(std::uint16_t type)
{
    return type == RTM_NEWRULE || type == RTM_DELRULE || type == RTM_NEWNETCONF || type == RTM_DELNETCONF;
}

}  // namespace

KernelRoutes::KernelRoutes() : m_socket(NETLINK_ROUTE) {}

std::optional<RouteAnswer> KernelRoutes::Ask(std::uint32_t ifIndex, const Address& destination,
                                             const Address& source)
{
    try {
        if (!m_known) ReadRules();
        // The first request returns the route as the table has it, with its prefix length; with several
        // paths, a second one returns the path that this packet takes.
        auto reply = AskOnce(ifIndex, destination, source, RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE);
        if (!reply) return std::nullopt;
        RouteAnswer answer = reply->answer;
        if (answer.kind == Kind::kInterface && (reply->severalPaths || answer.ifIndex == 0)) {
            const auto taken = AskOnce(ifIndex, destination, source, 0);
            if (!taken) return std::nullopt;
            answer = taken->answer;
            answer.bits = reply->answer.bits;
            answer.perSource = true;
        }
        if (ifIndex != 0 && m_sourceRules) answer.perSource = true;
        if (ifIndex != 0 && destination.size == 16 && !m_forwards6 && answer.kind == Kind::kInterface)
            answer.kind = Kind::kDiscarded;
        return answer;
    } catch (const std::system_error& error) {
        return AnswerOf(error.code().value());
    }
}

std::optional<KernelRoutes::Reply> KernelRoutes::AskOnce(std::uint32_t ifIndex, const Address& destination,
                                                         const Address& source, std::uint32_t flags)
{
    NetlinkRequest request(RTM_GETROUTE, 0);
    rtmsg header{};
    header.rtm_family = destination.size == 4 ? AF_INET : AF_INET6;
    header.rtm_dst_len = static_cast<std::uint8_t>(destination.size * 8);
    header.rtm_src_len = static_cast<std::uint8_t>(source.size * 8);
    header.rtm_flags = flags;
    request.AddHeader(header);
    request.AddBytes(RTA_DST, {destination.bytes.data(), destination.size});
    if (source.size != 0) request.AddBytes(RTA_SRC, {source.bytes.data(), source.size});
    if (ifIndex != 0) request.AddU32(RTA_IIF, ifIndex);

    std::optional<Reply> reply;
    m_socket.Request(request, [&reply](const nlmsghdr& message) {
        const auto* route = HeaderOf<rtmsg>(message);
        if (route == nullptr || message.nlmsg_type != RTM_NEWROUTE) return;
        const auto attributes = ReadAttributes<RTA_VIA + 1>(Payload(message, sizeof *route));
        reply.emplace();
        reply->answer.kind = KindOf(route->rtm_type);
        reply->answer.bits = route->rtm_dst_len;
        reply->answer.ifIndex = attributes[RTA_OIF].U32();
        reply->answer.nextHop = ReadAddress(attributes[RTA_GATEWAY].Bytes());
        // A next hop of the other IP version: its family, then the address.
        if (const auto via = attributes[RTA_VIA].Bytes(); via.size() > 2)
            reply->answer.nextHop = ReadAddress(via.subspan(2));
        reply->severalPaths = static_cast<bool>(attributes[RTA_MULTIPATH]);
    });
    return reply;
}

void KernelRoutes::ReadRules()
{
    m_sourceRules = false;
    for (const int family : {AF_INET, AF_INET6}) {
        NetlinkRequest request(RTM_GETRULE, NLM_F_DUMP);
        fib_rule_hdr header{};
        header.family = static_cast<std::uint8_t>(family);
        request.AddHeader(header);
        try {
            m_socket.Request(request, [this](const nlmsghdr& message) {
                if (LooksAtSource(message)) m_sourceRules = true;
            });
        } catch (const std::system_error&) {  // a kernel without rules has none
        }
    }
    ReadForwarding6();
    m_known = true;
}

void KernelRoutes::ReadForwarding6()
{
    m_forwards6 = true;
    NetlinkRequest request(RTM_GETNETCONF, 0);
    netconfmsg header{};
    header.ncm_family = AF_INET6;
    request.AddHeader(header);
    request.AddU32(NETCONFA_IFINDEX, static_cast<std::uint32_t>(NETCONFA_IFINDEX_ALL));
    try {
        m_socket.Request(request, [this](const nlmsghdr& message) {
            const auto attributes =
                ReadAttributes<NETCONFA_FORWARDING + 1>(Payload(message, sizeof(netconfmsg)));
            if (attributes[NETCONFA_FORWARDING]) m_forwards6 = attributes[NETCONFA_FORWARDING].U32() != 0;
        });
    } catch (const std::system_error&) {  // without IPv6 it is not used
    }
}

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
