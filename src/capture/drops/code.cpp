// SPDX-License-Identifier: Apache-2.0
#include "capture/drops/code.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>

namespace capture {
namespace {

using wire::DropReason;

constexpr std::uint16_t kEtherIpv4 = 0x0800, kEtherIpv6 = 0x86dd, kEtherTag = 0x8100,
                        kEtherServiceTag = 0x88a8;

struct Named {
    std::string_view name;
    DropReason code;
};

// Sorted by name. Names of sockets and of TCP that are not here are of layer 4.
constexpr Named kNames[] = {
    {"ARP_PVLAN_DISABLE", DropReason::kUnknownL2},
    {"BPF_CGROUP_EGRESS", DropReason::kAcl},
    {"BRIDGE_INGRESS_STP_STATE", DropReason::kIngressSpanningTreeFilter},
    {"CAKE_FLOOD", DropReason::kRed},
    {"CPU_BACKLOG", DropReason::kNoBufferSpace},
    {"DUALPI2_STEP_DROP", DropReason::kRed},
    {"FQ_HORIZON_LIMIT", DropReason::kTrafficShaping},
    {"FULL_RING", DropReason::kNoBufferSpace},
    {"ICMP_CSUM", DropReason::kUnknownL4},
    {"INVALID_PROTO", DropReason::kUnknownL4},
    {"IPV6DISABLED", DropReason::kUnknownL3},
    {"IPV6_BAD_EXTHDR", DropReason::kIpHeaderCorrupted},
    {"IP_CSUM", DropReason::kIpHeaderCorrupted},
    {"IP_INADDRERRORS", DropReason::kNonRoutablePacket},
    {"IP_INHDR", DropReason::kIpHeaderCorrupted},
    {"IP_INNOROUTES", DropReason::kNetUnreachable},
    {"IP_INVALID_DEST", DropReason::kNonRoutablePacket},
    {"IP_NOPROTO", DropReason::kProtocolUnreachable},
    {"IP_OUTNOROUTES", DropReason::kNetUnreachable},
    {"IP_RPFILTER", DropReason::kUcReversePathForwarding},
    {"IP_TUNNEL_ECN", DropReason::kDecapError},
    {"LOCAL_MAC", DropReason::kUnknownL2},
    {"MAC_IEEE_MAC_CONTROL", DropReason::kDmacIsReserved},
    {"MAC_INVALID_SOURCE", DropReason::kSrcMacIsMulticast},
    {"NETFILTER_DROP", DropReason::kAcl},
    {"NOMEM", DropReason::kNoBufferSpace},
    {"NO_SOCKET", DropReason::kPortUnreachable},
    {"NO_TX_TARGET", DropReason::kPortListIsEmpty},
    {"OTHERHOST", DropReason::kUnknownL2},
    {"OVS_DROP_EXPLICIT", DropReason::kAcl},
    {"OVS_DROP_IP_TTL", DropReason::kTtlExceeded},
    {"OVS_DROP_METER", DropReason::kTrafficShaping},
    {"PFMEMALLOC", DropReason::kNoBufferSpace},
    {"PKT_TOO_BIG", DropReason::kPacketTooBig},
    {"PKT_TOO_SMALL", DropReason::kUnknownL4},
    {"PROTO_MEM", DropReason::kNoBufferSpace},
    {"QDISC_CONGESTED", DropReason::kRed},
    {"SECURITY_HOOK", DropReason::kAcl},
    {"SOCKET_BACKLOG", DropReason::kNoBufferSpace},
    {"SOCKET_RCVBUFF", DropReason::kNoBufferSpace},
    {"TAP_FILTER", DropReason::kAcl},
    {"TAP_TXFILTER", DropReason::kAcl},
    {"TCP_LISTEN_OVERFLOW", DropReason::kNoBufferSpace},
    {"TCP_OFO_DROP", DropReason::kNoBufferSpace},
    {"TCP_OFO_QUEUE_PRUNE", DropReason::kNoBufferSpace},
    {"TC_EGRESS", DropReason::kAcl},
    {"TC_INGRESS", DropReason::kAcl},
    {"TUNNEL_TXINFO", DropReason::kUnknownTunnel},
    {"UDP_CSUM", DropReason::kUnknownL4},
    {"UNHANDLED_PROTO", DropReason::kNonIp},
    {"UNICAST_IN_L2_MULTICAST", DropReason::kUcDipOverMcDmac},
    {"VXLAN_ENTRY_EXISTS", DropReason::kUnknownTunnel},
    {"VXLAN_INVALID_HDR", DropReason::kDecapError},
    {"VXLAN_VNI_NOT_FOUND", DropReason::kUnknownTunnel},
    {"XDP", DropReason::kAcl},
    {"XFRM_POLICY", DropReason::kAcl},
};
static_assert(std::ranges::is_sorted(kNames, {}, &Named::name));

// How names begin that are not above.
constexpr Named kBeginnings[] = {
    {"BRIDGE_", DropReason::kUnknownL2},     {"CAN", DropReason::kUnknownL2},
    {"FQ_", DropReason::kNoBufferSpace},     {"FRAG_", DropReason::kUnknownL3},
    {"IPV6_", DropReason::kUnknownL3},       {"IP_", DropReason::kUnknownL3},
    {"MAC_", DropReason::kUnknownL2},        {"NEIGH_", DropReason::kUnresolvedNeigh},
    {"OVS_", DropReason::kUnknownL2},        {"PSP_", DropReason::kUnknownL4},
    {"QDISC_", DropReason::kNoBufferSpace},  {"RX_DROP_", DropReason::kUnknownL2},
    {"SOCKET_", DropReason::kUnknownL4},     {"TCP_", DropReason::kUnknownL4},
    {"TUNNEL_", DropReason::kUnknownTunnel}, {"VXLAN_", DropReason::kUnknownTunnel},
};

struct Placed {
    std::string_view name;
    std::string_view function;
    DropReason code;
};

// What a name stands for in one function. Where the kernel has no reason, only functions that drop for one
// reason.
constexpr Placed kPlaces[] = {
    {"IP_INHDR", "ip6_forward", DropReason::kTtlExceeded},
    {"IP_INHDR", "ip_forward", DropReason::kTtlExceeded},
    {"NOT_SPECIFIED", "br_dev_queue_push_xmit", DropReason::kPacketTooBig},
    {"NOT_SPECIFIED", "dst_discard", DropReason::kBlackholeRoute},
    {"NOT_SPECIFIED", "dst_discard_out", DropReason::kBlackholeRoute},
    {"NOT_SPECIFIED", "neigh_invalidate", DropReason::kUnresolvedNeigh},
    {"PKT_TOO_SMALL", "ip6_rcv_core", DropReason::kIpHeaderCorrupted},
    {"PKT_TOO_SMALL", "ip_rcv_core", DropReason::kIpHeaderCorrupted},
};

// A route that only drops: the error says how it was configured, or that there is none.
std::optional<DropReason> OfRoute(const Drop& drop)
{
    const std::string_view name = drop.reasonName;
    if (name != "NOT_SPECIFIED" && name != "IP_INNOROUTES" && name != "IP_OUTNOROUTES") return {};
    switch (drop.routeError) {
    case EINVAL:
        return DropReason::kBlackholeRoute;
    case EACCES:
        return DropReason::kCommunicationProhibited;
    case EHOSTUNREACH:
        return DropReason::kHostUnreachable;
    case ENETUNREACH:
        return DropReason::kNetUnreachable;
    default:
        return {};
    }
}

std::uint8_t At(const Drop& drop, std::size_t index)
{
    return std::to_integer<std::uint8_t>(drop.header[index]);
}

// Where the network header begins in the packet's bytes.
std::size_t NetworkAt(const Drop& drop)
{
    if (drop.start != HeaderStart::kEthernet) return 0;
    std::size_t at = 14;
    while (at <= drop.header.size()) {
        const auto type = static_cast<std::uint16_t>(At(drop, at - 2) << 8 | At(drop, at - 1));
        if (type != kEtherTag && type != kEtherServiceTag) break;
        at += 4;
    }
    return at;
}

// What is wrong with the addresses of an IPv4 packet. Ordered as routers check them.
std::optional<DropReason> WrongIpv4(const Drop& drop, std::size_t network)
{
    const std::size_t source = network + 12, destination = network + 16;
    if (destination + 4 > drop.header.size()) return {};
    const auto all = [&](std::size_t at, std::uint8_t value) {
        for (std::size_t i = at; i < at + 4; ++i)
            if (At(drop, i) != value) return false;
        return true;
    };
    constexpr std::uint8_t kLoopback = 127, kMulticast = 0xe, kClassE = 0xf;
    if (At(drop, source) >> 4 == kMulticast) return DropReason::kSipIsMc;
    if (all(source, 0xff)) return DropReason::kIpv4SipIsLimitedBc;
    if (At(drop, source) >> 4 == kClassE) return DropReason::kSipIsClassE;
    if (At(drop, source) == 0) return DropReason::kSipIsUnspecified;
    if (At(drop, source) == kLoopback) return DropReason::kSipIsLoopbackAddress;
    if (At(drop, destination) == kLoopback) return DropReason::kDipIsLoopbackAddress;
    return {};
}

std::optional<DropReason> WrongIpv6(const Drop& drop, std::size_t network)
{
    const std::size_t source = network + 8, destination = network + 24;
    if (destination + 16 > drop.header.size()) return {};
    const auto isLoopback = [&](std::size_t at) {
        for (std::size_t i = at; i < at + 15; ++i)
            if (At(drop, i) != 0) return false;
        return At(drop, at + 15) == 1;
    };
    constexpr std::uint8_t kMulticast = 0xff;
    if (At(drop, source) == kMulticast) return DropReason::kSipIsMc;
    if (isLoopback(source)) return DropReason::kSipIsLoopbackAddress;
    if (isLoopback(destination)) return DropReason::kDipIsLoopbackAddress;
    if (At(drop, destination) != kMulticast) return {};
    const int scope = At(drop, destination + 1) & 0xf;
    if (scope == 0) return DropReason::kIpv6McDipReservedScope;
    if (scope == 1) return DropReason::kIpv6McDipInterfaceLocalScope;
    return {};
}

// One reason of the kernel's for all addresses that can't be; in IPv6 also for what else is wrong with the
// header.
std::optional<DropReason> OfAddresses(const Drop& drop)
{
    const std::string_view name = drop.reasonName;
    const std::size_t network = NetworkAt(drop);
    if (drop.etherType == kEtherIpv6) return name == "IP_INHDR" ? WrongIpv6(drop, network) : std::nullopt;
    if (drop.etherType != kEtherIpv4) return {};
    return name == "IP_INVALID_SOURCE" || name == "IP_LOCALNET" ? WrongIpv4(drop, network) : std::nullopt;
}

std::optional<DropReason> OfEtherType(const Drop& drop)
{
    if (drop.reasonName == "PKT_TOO_BIG" && drop.etherType == kEtherIpv4)
        return DropReason::kFragmentationNeeded;
    if (drop.reasonName != "UNHANDLED_PROTO") return {};
    // Neither IP's version nor its length is what it should be.
    if (drop.etherType == kEtherIpv4 || drop.etherType == kEtherIpv6) return DropReason::kIpHeaderCorrupted;
    return {};
}

}  // namespace

wire::DropReason CodeOf(const Drop& drop)
{
    if (const auto code = OfRoute(drop)) return *code;
    for (const Placed& place : kPlaces)
        if (place.name == drop.reasonName && place.function == drop.function) return place.code;
    if (const auto code = OfEtherType(drop)) return *code;
    if (const auto code = OfAddresses(drop)) return *code;
    const auto* named = std::ranges::lower_bound(kNames, drop.reasonName, {}, &Named::name);
    if (named != std::end(kNames) && named->name == drop.reasonName) return named->code;
    for (const Named& beginning : kBeginnings)
        if (drop.reasonName.starts_with(beginning.name)) return beginning.code;
    return DropReason::kUnknown;
}

}  // namespace capture
