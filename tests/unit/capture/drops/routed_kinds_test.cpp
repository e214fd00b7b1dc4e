// SPDX-License-Identifier: Apache-2.0
// A router's drops, one kind a test: each frame sent is counted and told, with the kernel's reason and
// sFlow's.

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "capture/drops/code.h"
#include "capture/drops_world.h"
#include "wrong_frames.h"

namespace {

using support::Bytes;
using support::UdpFrame;
using wire::DropReason;

constexpr std::size_t kRoutedFrames = 7;
constexpr std::uint8_t kRouter = 0x10;  // the last byte of near0's address

struct RoutedKind {
    const char* name;
    const char* reason;  // the kernel's
    DropReason code;
    std::function<Bytes(std::uint64_t number)> frame;
    const char* setUp = "";   // lines for ip
    bool leaving = false;     // dropped at near1
    const char* output = "";  // to where it was to leave, if that is told
};

void PrintTo(const RoutedKind& kind, std::ostream* out) { *out << kind.name; }

constexpr const char* kHost4 = "10.0.0.2";
constexpr const char* kOther4 = "10.0.1.2";
constexpr const char* kHost6 = "2001:db8::2";
constexpr const char* kOther6 = "2001:db8:1::2";

Bytes From(const char* source, const char* destination, std::uint64_t number, std::size_t size = 100)
{
    return UdpFrame({.from = 1,
                     .to = kRouter,
                     .source = source,
                     .destination = destination,
                     .size = size,
                     .number = number});
}

// IPv4 from host to host with some bytes changed.
std::function<Bytes(std::uint64_t)> Changed(std::size_t at, std::initializer_list<std::uint8_t> bytes)
{
    return [at, changed = std::vector<std::uint8_t>(bytes)](std::uint64_t number) {
        Bytes frame = From(kHost4, kOther4, number);
        for (std::size_t i = 0; i < changed.size(); ++i)
            frame.at(at + i) = static_cast<std::byte>(changed[i]);
        return Summed(std::move(frame));
    };
}

std::function<Bytes(std::uint64_t)> Between(const char* source, const char* destination,
                                            std::size_t size = 100)
{
    return [=](std::uint64_t number) { return From(source, destination, number, size); };
}

// The kernel has taken the tag out, and thrown it away where no device has the VLAN.
Bytes Untagged(Bytes frame)
{
    if (frame.at(12) == std::byte{0x81}) frame.erase(frame.begin() + 12, frame.begin() + 16);
    return frame;
}

class RoutedKindsTest : public DropsWorld, public testing::WithParamInterface<RoutedKind> {
protected:
    void SetUp() override
    {
        DropsWorld::SetUp();
        if (IsSkipped()) return;
        support::Network::Ip(
            "addr add 10.0.0.1/24 dev near0\naddr add 10.0.1.1/24 dev near1\n"
            "addr add 2001:db8::1/64 dev near0 nodad\naddr add 2001:db8:1::1/64 dev near1 nodad\n"
            "neigh add 10.0.0.2 lladdr 02:00:00:00:00:01 dev near0\n"
            "neigh add 10.0.1.2 lladdr 02:00:00:00:00:02 dev near1\n"
            "neigh add 2001:db8::2 lladdr 02:00:00:00:00:01 dev near0\n"
            "neigh add 2001:db8:1::2 lladdr 02:00:00:00:00:02 dev near1");
        SetKernel("net/ipv4/ip_forward", "1");
        SetKernel("net/ipv4/conf/near0/rp_filter", "1");
        SetKernel("net/ipv6/conf/all/forwarding", "1");
        // Those that nobody answers fail at once.
        for (const char* setting : {"ipv4/neigh/near1/", "ipv6/neigh/near1/"})
            SetKernel(std::string("net/") + setting + "retrans_time_ms", "20");
        if (*GetParam().setUp != '\0') support::Network::Ip(GetParam().setUp);
    }

    [[nodiscard]] static bool KernelHas(capture::DropSource& source, std::string_view reason)
    {
        for (std::uint32_t number = 0; number < 200; ++number)
            if (source.NameOf(number) == reason) return true;
        return false;
    }
};

TEST_P(RoutedKindsTest, EachIsCountedAndTold)
{
    const RoutedKind& kind = GetParam();
    if (!KernelHas(*source, kind.reason)) GTEST_SKIP() << "the kernel has no reason " << kind.reason;
    const std::uint32_t place = kind.leaving ? near1 : near0;
    source->Change({.limit = 1000, .headerSize = 512});
    source->Add(near0);
    source->Add(near1);
    std::vector<Bytes> frames;
    for (std::size_t i = 0; i < kRoutedFrames; ++i) frames.push_back(kind.frame(i));
    Send(frames);
    Await(place, kRoutedFrames);

    EXPECT_EQ(DropsFor(place, kind.reason), kRoutedFrames);
    EXPECT_EQ(Read(place).counts, (capture::DropCounts{.drops = kRoutedFrames, .untold = 0, .own = 0}));
    EXPECT_EQ(DropsAt(kind.leaving ? near0 : near1), 0U);
    ASSERT_EQ(sink.drops.size(), kRoutedFrames);
    for (std::size_t i = 0; i < kRoutedFrames; ++i) {
        const KeptDrop& kept = sink.drops[i];
        EXPECT_EQ(kept.reason, kind.reason);
        EXPECT_EQ(CodeOf(Told(kept)), kind.code) << kept.reason << " in " << kept.function;
        EXPECT_EQ(kept.drop.ifIndex, place);
        EXPECT_EQ(kept.drop.input, near0);
        EXPECT_EQ(kept.drop.output, *kind.output == '\0' ? 0 : support::Network::Index(kind.output));
        EXPECT_EQ(kept.drop.start, capture::HeaderStart::kEthernet);
        // IP sets aside what follows its packet, and lowers the time to live before some checks.
        EXPECT_GE(kept.header.size(), 54U);
        const Bytes frame = Untagged(frames[i]);
        EXPECT_TRUE(std::equal(kept.header.begin(), kept.header.begin() + 14, frame.begin()));
        EXPECT_EQ(support::NumberOf(kept.header), support::NumberOf(frame));
    }
}

const RoutedKind kIpv4Kinds[] = {
    {"NoRoute", "IP_INNOROUTES", DropReason::kNetUnreachable, Between(kHost4, "203.0.113.9")},
    {"Unreachable", "NOT_SPECIFIED", DropReason::kHostUnreachable, Between(kHost4, "203.0.113.9"),
     "route add unreachable 203.0.113.0/24"},
    {"Prohibited", "NOT_SPECIFIED", DropReason::kCommunicationProhibited, Between(kHost4, "203.0.113.9"),
     "route add prohibit 203.0.113.0/24"},
    {"Blackhole", "NOT_SPECIFIED", DropReason::kBlackholeRoute, Between(kHost4, "203.0.113.9"),
     "route add blackhole 203.0.113.0/24"},
    {"TtlExceeded", "IP_INHDR", DropReason::kTtlExceeded, Changed(kIpTtl, {1}), "", false, "near1"},
    {"TooBigAndNotToBeFragmented", "PKT_TOO_BIG", DropReason::kFragmentationNeeded,
     [](std::uint64_t number) { return Summed(With(From(kHost4, kOther4, number, 1200), kIpFlags, {0x40})); },
     "link set near1 mtu 1000", false, "near1"},
    {"NoNeighbour", "NEIGH_FAILED", DropReason::kUnresolvedNeigh, Between(kHost4, "10.0.1.77"), "", true,
     "near1"},
    {"NoUdpSocket", "NO_SOCKET", DropReason::kPortUnreachable, Between(kHost4, "10.0.0.1")},
    {"NoTcpSocket", "NO_SOCKET", DropReason::kPortUnreachable,
     [](std::uint64_t) {
         return TcpFrame({.from = 1, .to = kRouter, .source = kHost4, .destination = "10.0.0.1"});
     }},
    {"NoProtocol", "IP_NOPROTO", DropReason::kProtocolUnreachable,
     [](std::uint64_t number) { return Summed(With(From(kHost4, "10.0.0.1", number), kIpProtocol, {200})); }},
    {"WrongIpChecksum", "IP_CSUM", DropReason::kIpHeaderCorrupted,
     [](std::uint64_t number) {
         return With(From(kHost4, kOther4, number), kIpSum, {0x12, 0x34});
     }},
    {"WrongIpVersion", "IP_INHDR", DropReason::kIpHeaderCorrupted, Changed(kIpVersion, {0x65})},
    {"WrongIpHeaderSize", "IP_INHDR", DropReason::kIpHeaderCorrupted, Changed(kIpVersion, {0x41})},
    {"LongerThanTheFrame", "PKT_TOO_SMALL", DropReason::kIpHeaderCorrupted, Changed(kIpLength, {0x04, 0x00})},
    {"WrongWayBack", "IP_RPFILTER", DropReason::kUcReversePathForwarding, Between("10.0.1.99", kOther4)},
    {"SourceIsMulticast", "IP_INVALID_SOURCE", DropReason::kSipIsMc, Between("224.0.0.9", kOther4)},
    {"SourceIsBroadcast", "IP_INVALID_SOURCE", DropReason::kIpv4SipIsLimitedBc,
     Between("255.255.255.255", kOther4)},
    {"SourceIsLoopback", "IP_LOCALNET", DropReason::kSipIsLoopbackAddress, Between("127.0.0.1", kOther4)},
    {"DestinationIsLoopback", "IP_LOCALNET", DropReason::kDipIsLoopbackAddress, Between(kHost4, "127.0.0.1")},
    {"SourceIsTheRouter", "IP_LOCAL_SOURCE", DropReason::kUnknownL3, Between("10.0.0.1", kOther4)},
    {"ForAnother", "OTHERHOST", DropReason::kUnknownL2,
     [](std::uint64_t number) { return UdpFrame({.from = 1, .to = 0x99, .size = 100, .number = number}); }},
    {"UnknownVlan", "OTHERHOST", DropReason::kUnknownL2,
     [](std::uint64_t number) {
         return UdpFrame({.from = 1, .to = kRouter, .tags = {0x8100'0064}, .size = 104, .number = number});
     }},
    {"UnknownEtherType", "UNHANDLED_PROTO", DropReason::kNonIp,
     [](std::uint64_t) { return support::EthernetFrame(1, kRouter, 0x9999, 100); }},
    {"NoReasonGiven", "NOT_SPECIFIED", DropReason::kUnknown,  // a group that nobody has joined
     [](std::uint64_t number) {
         return With(From(kHost4, "239.1.1.1", number), 0, {0x01, 0x00, 0x5e, 0x01, 0x01, 0x01});
     }},
};

const RoutedKind kIpv6Kinds[] = {
    {"NoRoute", "IP_INNOROUTES", DropReason::kNetUnreachable, Between(kHost6, "2001:db8:9::9")},
    {"Unreachable", "IP_INNOROUTES", DropReason::kHostUnreachable, Between(kHost6, "2001:db8:9::9"),
     "route add unreachable 2001:db8:9::/48"},
    {"Prohibited", "IP_INNOROUTES", DropReason::kCommunicationProhibited, Between(kHost6, "2001:db8:9::9"),
     "route add prohibit 2001:db8:9::/48"},
    {"Blackhole", "NOT_SPECIFIED", DropReason::kBlackholeRoute, Between(kHost6, "2001:db8:9::9"),
     "route add blackhole 2001:db8:9::/48"},
    {"HopLimitExceeded", "IP_INHDR", DropReason::kTtlExceeded,
     [](std::uint64_t number) { return With(From(kHost6, kOther6, number), kIpv6HopLimit, {1}); }, "", false,
     "near1"},
    {"TooBig", "PKT_TOO_BIG", DropReason::kPacketTooBig, Between(kHost6, kOther6, 1400),
     "link set near1 mtu 1300", true, "near1"},
    {"NoNeighbour", "NOT_SPECIFIED", DropReason::kUnresolvedNeigh, Between(kHost6, "2001:db8:1::77"), "",
     true, "near1"},
    {"SourceIsMulticast", "IP_INHDR", DropReason::kSipIsMc, Between("ff02::1", kOther6)},
    {"SourceIsLoopback", "IP_INHDR", DropReason::kSipIsLoopbackAddress, Between("::1", kOther6)},
    {"DestinationIsLoopback", "IP_INHDR", DropReason::kDipIsLoopbackAddress, Between(kHost6, "::1")},
    {"SourceIsLinkLocal", "IP_INADDRERRORS", DropReason::kNonRoutablePacket, Between("fe80::9", kOther6), "",
     false, "near1"},
    {"WrongVersion", "UNHANDLED_PROTO", DropReason::kIpHeaderCorrupted,
     [](std::uint64_t number) { return With(From(kHost6, kOther6, number), 14, {0x40}); }},
};

INSTANTIATE_TEST_SUITE_P(Ipv4, RoutedKindsTest, testing::ValuesIn(kIpv4Kinds),
                         [](const auto& each) { return std::string(each.param.name); });
INSTANTIATE_TEST_SUITE_P(Ipv6, RoutedKindsTest, testing::ValuesIn(kIpv6Kinds),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
