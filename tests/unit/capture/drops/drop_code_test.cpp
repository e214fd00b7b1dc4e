// SPDX-License-Identifier: Apache-2.0
// Which of sFlow's reasons stands for a drop: what no live test can make the kernel drop, or not every
// kernel.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "capture/drops/code.h"
#include "support/network.h"

namespace {

using capture::Drop;
using wire::DropReason;

struct Row {
    const char* name;
    const char* reason;
    DropReason code;
    const char* function = "";
    int routeError = 0;
    std::uint16_t etherType = 0x0800;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

const Row kRows[] = {
    {"NoReason", "NOT_SPECIFIED", DropReason::kUnknown},
    {"NoReasonInAnyFunction", "NOT_SPECIFIED", DropReason::kUnknown, "igmp_rcv"},
    {"NoName", "131", DropReason::kUnknown},
    {"Nothing", "", DropReason::kUnknown},
    {"NoSocket", "NO_SOCKET", DropReason::kPortUnreachable},
    {"NoProtocol", "IP_NOPROTO", DropReason::kProtocolUnreachable},
    {"Checksum", "IP_CSUM", DropReason::kIpHeaderCorrupted},
    {"UdpChecksum", "UDP_CSUM", DropReason::kUnknownL4},
    {"Header", "IP_INHDR", DropReason::kIpHeaderCorrupted, "ip_rcv_core"},
    {"TimeToLive", "IP_INHDR", DropReason::kTtlExceeded, "ip_forward"},
    {"HopLimit", "IP_INHDR", DropReason::kTtlExceeded, "ip6_forward", 0, 0x86dd},
    {"TooBigForIpv4", "PKT_TOO_BIG", DropReason::kFragmentationNeeded},
    {"TooBigForIpv6", "PKT_TOO_BIG", DropReason::kPacketTooBig, "", 0, 0x86dd},
    {"NoRoute", "IP_INNOROUTES", DropReason::kNetUnreachable},
    {"NoRouteOut", "IP_OUTNOROUTES", DropReason::kNetUnreachable},
    {"RouteIsUnreachable", "NOT_SPECIFIED", DropReason::kHostUnreachable, "ip_error", EHOSTUNREACH},
    {"RouteIsProhibited", "NOT_SPECIFIED", DropReason::kCommunicationProhibited, "ip_error", EACCES},
    {"RouteIsABlackhole", "NOT_SPECIFIED", DropReason::kBlackholeRoute, "ip_error", EINVAL},
    {"NoRouteOfAnError", "IP_INNOROUTES", DropReason::kNetUnreachable, "ip_error", ENETUNREACH},
    {"AnErrorOfOtherDrops", "NO_SOCKET", DropReason::kPortUnreachable, "", EINVAL},
    {"AnotherError", "NOT_SPECIFIED", DropReason::kUnknown, "", EAGAIN},
    {"Neighbour", "NEIGH_QUEUEFULL", DropReason::kUnresolvedNeigh},
    {"NeighbourToCome", "NEIGH_SOMETHING_NEW", DropReason::kUnresolvedNeigh},
    {"Queue", "QDISC_DROP", DropReason::kNoBufferSpace},
    {"QueueWasLong", "QDISC_CONGESTED", DropReason::kRed},
    {"FlowQueue", "FQ_FLOW_LIMIT", DropReason::kNoBufferSpace},
    {"FlowQueueShapes", "FQ_HORIZON_LIMIT", DropReason::kTrafficShaping},
    {"Ring", "FULL_RING", DropReason::kNoBufferSpace},
    {"Classifier", "TC_INGRESS", DropReason::kAcl},
    {"Xdp", "XDP", DropReason::kAcl},
    {"Firewall", "NETFILTER_DROP", DropReason::kAcl},
    {"Tunnel", "VXLAN_INVALID_HDR", DropReason::kDecapError},
    {"TunnelToCome", "VXLAN_SOMETHING_NEW", DropReason::kUnknownTunnel},
    {"Tcp", "TCP_INVALID_SEQUENCE", DropReason::kUnknownL4},
    {"TcpHasNoRoom", "TCP_LISTEN_OVERFLOW", DropReason::kNoBufferSpace},
    {"TcToCome", "TC_SOMETHING_NEW", DropReason::kUnknown},
    {"UnknownEtherType", "UNHANDLED_PROTO", DropReason::kNonIp, "", 0, 0x9999},
    {"VersionOfIp", "UNHANDLED_PROTO", DropReason::kIpHeaderCorrupted, "", 0, 0x86dd},
    {"OpenVSwitch", "OVS_DROP_METER", DropReason::kTrafficShaping},
    {"Wireless", "RX_DROP_U_REPLAY", DropReason::kUnknownL2},
};

class DropCodeTest : public testing::TestWithParam<Row> {};

TEST_P(DropCodeTest, IsThatOfTheTable)
{
    const Row& row = GetParam();
    Drop drop;
    drop.reasonName = row.reason;
    drop.function = row.function;
    drop.routeError = row.routeError;
    drop.etherType = row.etherType;
    EXPECT_EQ(CodeOf(drop), row.code);
}

INSTANTIATE_TEST_SUITE_P(, DropCodeTest, testing::ValuesIn(kRows),
                         [](const auto& each) { return std::string(each.param.name); });

// However short or strange the packet is, its addresses are looked for in its bytes only.
TEST(DropCodeOfAddresses, LooksAtWhatIsThere)
{
    for (const bool six : {false, true}) {
        const support::Bytes frame = support::UdpFrame({.tags = {0x88a8'0001, 0x8100'0002},
                                                        .source = six ? "ff02::1" : "224.0.0.1",
                                                        .destination = six ? "2001:db8::1" : "192.0.2.1"});
        const DropReason whole = DropReason::kSipIsMc;
        const DropReason cut = six ? DropReason::kIpHeaderCorrupted : DropReason::kUnknownL3;
        const std::size_t addresses = 14 + 8 + (six ? 40 : 20);
        for (std::size_t size = 0; size <= frame.size(); ++size) {
            // Of its own size, so that address checks see a byte too many.
            const std::vector<std::byte> bytes(frame.begin(),
                                               frame.begin() + static_cast<std::ptrdiff_t>(size));
            Drop drop;
            drop.reasonName = six ? "IP_INHDR" : "IP_INVALID_SOURCE";
            drop.etherType = six ? 0x86dd : 0x0800;
            drop.start = capture::HeaderStart::kEthernet;
            drop.header = bytes;
            EXPECT_EQ(CodeOf(drop), size >= addresses ? whole : cut) << size;
        }
    }
}

TEST(DropCodeOfAddresses, OfAPacketWithoutLinkHeader)
{
    const support::Bytes frame = support::UdpFrame({.source = "240.0.0.1", .destination = "192.0.2.1"});
    Drop drop;
    drop.reasonName = "IP_INVALID_SOURCE";
    drop.etherType = 0x0800;
    drop.start = capture::HeaderStart::kIpv4;
    drop.header = std::span(frame).subspan(14);
    EXPECT_EQ(CodeOf(drop), DropReason::kSipIsClassE);
    for (const auto& [source, code] : {std::pair{"0.0.0.0", DropReason::kSipIsUnspecified},
                                       std::pair{"255.255.255.255", DropReason::kIpv4SipIsLimitedBc},
                                       std::pair{"192.0.2.9", DropReason::kUnknownL3}}) {
        const support::Bytes other = support::UdpFrame({.source = source, .destination = "192.0.2.1"});
        drop.header = std::span(other).subspan(14);
        EXPECT_EQ(CodeOf(drop), code) << source;
    }
}

}  // namespace
