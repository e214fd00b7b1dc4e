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

Discard ReasonOf(std::uint8_t type)
{
    switch (type) {
    case RTN_BLACKHOLE:
        return Discard::kBlackHole;
    case RTN_UNREACHABLE:
        return Discard::kUnreachable;
    case RTN_PROHIBIT:
        return Discard::kProhibited;
    default:
        return Discard::kUnknown;
    }
}

// The fate of the packet that the kernel's error tells; nullopt if the error concerns the request itself. For
// EINVAL see WhyInvalid.
std::optional<RouteAnswer> AnswerOf(int error)
{
    RouteAnswer answer;
    answer.kind = Kind::kDiscarded;
    switch (error) {
    case ENETUNREACH:
        answer.reason = Discard::kNoRoute;
        return answer;
    case EHOSTUNREACH:
        answer.reason = Discard::kUnreachable;
        return answer;
    case EACCES:
        answer.reason = Discard::kProhibited;
        return answer;
    case EXDEV:
        answer.reason = Discard::kReversePath;
        answer.perSource = true;
        return answer;
    default:
        return std::nullopt;
    }
}

// Why a packet with this source enters nowhere.
Discard WhySource(const Address& source)
{
    if (IsMulticast(source)) return Discard::kSourceMulticast;
    if (IsLoopback(source)) return Discard::kSourceLoopback;
    if (IsUnspecified(source)) return Discard::kSourceUnspecified;
    return Discard::kReversePath;
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

// The kernel forwards IPv4 by the MTU of a route, IPv6 only if it is locked.
std::uint32_t ReadMtu(std::uint8_t family, Attribute metrics)
{
    const auto metric = ReadAttributes<RTAX_MTU + 1>(metrics.Bytes());
    const bool locked = (metric[RTAX_LOCK].U32() & 1U << RTAX_MTU) != 0;
    return family == AF_INET || locked ? metric[RTAX_MTU].U32() : 0;
}

bool IsAboutRules(std::uint16_t type)
{
    return type == RTM_NEWRULE || type == RTM_DELRULE || type == RTM_NEWNETCONF || type == RTM_DELNETCONF;
}

}  // namespace

KernelRoutes::KernelRoutes() : m_socket(NETLINK_ROUTE) {}

std::optional<RouteAnswer> KernelRoutes::Ask(RouteFrom from, const Address& destination,
                                             const Address& source)
{
    try {
        if (!m_known) ReadRules();
        return IsMulticast(destination) ? AskGroup(from, destination, source)
                                        : AskUnicast(from, destination, source);
    } catch (const std::system_error& error) {
        const int number = error.code().value();
        if (number != EINVAL) return AnswerOf(number);
        RouteAnswer answer;
        answer.kind = Kind::kDiscarded;
        answer.reason = WhyInvalid(from, destination, source);
        answer.perSource = answer.reason != Discard::kBlackHole || m_sourceRules;
        return answer;
    }
}

std::optional<RouteAnswer> KernelRoutes::AskUnicast(RouteFrom from, const Address& destination,
                                                    const Address& source)
{
    // The first request returns the route as the table has it, with its prefix length; with several paths, a
    // second one returns the path that this packet takes.
    auto reply = AskOnce(from, destination, source, RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE);
    if (!reply) return std::nullopt;
    RouteAnswer answer = reply->answer;
    if (answer.kind == Kind::kInterface && (reply->severalPaths || answer.ifIndex == 0)) {
        const auto taken = AskOnce(from, destination, source, 0);
        if (!taken) return std::nullopt;
        answer = taken->answer;
        answer.bits = reply->answer.bits;
        answer.mtu =
            reply->answer.mtu;  // the other reply has what was learned of the path, which does not count
        answer.perSource = true;
    }
    if (from.ifIndex != 0 && m_sourceRules) answer.perSource = true;
    if (from.ifIndex != 0 && destination.size == 16 && !m_forwards6 && answer.kind == Kind::kInterface) {
        answer.kind = Kind::kDiscarded;
        answer.reason = Discard::kUnreachable;
    }
    return answer;
}

/// Who is a member changes without notice.
std::optional<RouteAnswer> KernelRoutes::AskGroup(RouteFrom from, const Address& destination,
                                                  const Address& source)
{
    RouteAnswer answer;
    answer.brief = true;
    if (destination.size == 4 ? m_forwardsGroups4 : m_forwardsGroups6) {
        answer.kind = Kind::kSeveral;
    } else if (destination.size == 4 && from.ifIndex != 0) {
        try {
            if (!AskOnce(from, destination, source, 0)) return std::nullopt;
            answer.kind = Kind::kLocal;
        } catch (const std::system_error& error) {
            if (error.code().value() != EINVAL) throw;
            answer.kind = Kind::kDiscarded;  // no program here has joined
        }
    }
    return answer;
}

/// The kernel has one error for a black hole and for addresses that can't be. Without the source the route
/// tells which.
Discard KernelRoutes::WhyInvalid(RouteFrom from, const Address& destination, const Address& source)
{
    if (IsLoopback(destination)) return Discard::kDestinationLoopback;
    if (from.ifIndex == 0) return Discard::kBlackHole;
    try {
        AskOnce({0, from.vrf}, destination, {}, RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE);
        return WhySource(source);
    } catch (const std::system_error& error) {
        return error.code().value() == EINVAL ? Discard::kBlackHole : WhySource(source);
    }
}

std::optional<KernelRoutes::Reply> KernelRoutes::AskOnce(RouteFrom from, const Address& destination,
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
    if (from.ifIndex != 0)
        request.AddU32(RTA_IIF, from.ifIndex);
    else if (from.vrf != 0)
        request.AddU32(RTA_OIF, from.vrf);

    std::optional<Reply> reply;
    m_socket.Request(request, [&reply](const nlmsghdr& message) {
        const auto* route = HeaderOf<rtmsg>(message);
        if (route == nullptr || message.nlmsg_type != RTM_NEWROUTE) return;
        const auto attributes = ReadAttributes<RTA_VIA + 1>(Payload(message, sizeof *route));
        reply.emplace();
        reply->answer.kind = KindOf(route->rtm_type);
        reply->answer.reason = ReasonOf(route->rtm_type);
        reply->answer.bits = route->rtm_dst_len;
        reply->answer.ifIndex = attributes[RTA_OIF].U32();
        reply->answer.nextHop = ReadAddress(attributes[RTA_GATEWAY].Bytes());
        // A next hop of the other IP version: its family, then the address.
        if (const auto via = attributes[RTA_VIA].Bytes(); via.size() > 2)
            reply->answer.nextHop = ReadAddress(via.subspan(2));
        reply->answer.mtu = ReadMtu(route->rtm_family, attributes[RTA_METRICS]);
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
    m_forwards6 = true;
    m_forwardsGroups4 = m_forwardsGroups6 = false;
    for (const std::uint8_t family : {std::uint8_t{AF_INET}, std::uint8_t{AF_INET6}}) ReadForwarding(family);
    m_known = true;
}

void KernelRoutes::ReadForwarding(std::uint8_t family)
{
    NetlinkRequest request(RTM_GETNETCONF, 0);
    netconfmsg header{};
    header.ncm_family = family;
    request.AddHeader(header);
    request.AddU32(NETCONFA_IFINDEX, static_cast<std::uint32_t>(NETCONFA_IFINDEX_ALL));
    try {
        m_socket.Request(request, [this, family](const nlmsghdr& message) {
            const auto attributes =
                ReadAttributes<NETCONFA_MC_FORWARDING + 1>(Payload(message, sizeof(netconfmsg)));
            const bool groups = attributes[NETCONFA_MC_FORWARDING].U32() != 0;
            (family == AF_INET ? m_forwardsGroups4 : m_forwardsGroups6) = groups;
            if (family == AF_INET6 && attributes[NETCONFA_FORWARDING])
                m_forwards6 = attributes[NETCONFA_FORWARDING].U32() != 0;
        });
    } catch (const std::system_error&) {  // without this family it is not used
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
