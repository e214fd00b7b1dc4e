// SPDX-License-Identifier: Apache-2.0
// A bridge's drops, one kind a test, and those of a full queue at one of its ports.

#include <functional>
#include <ostream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "capture/drops/code.h"
#include "capture/drops_world.h"
#include "wrong_frames.h"

namespace {

using support::Bytes;
using support::Network;
using support::UdpFrame;
using wire::DropReason;

constexpr std::size_t kBridgedFrames = 7;
constexpr std::uint8_t kBehindNear1 = 0x56;

Bytes ToNear1(std::uint64_t number, std::size_t size = 100)
{
    return UdpFrame({.from = 1, .to = kBehindNear1, .size = size, .number = number});
}

class BridgedTest : public DropsWorld {
protected:
    void SetUp() override
    {
        DropsWorld::SetUp();
        if (IsSkipped()) return;
        Network::MakeBridge("br0", {"near0", "near1"});
        Network::Bridge("fdb add 02:00:00:00:00:56 dev near1 master static");
        source->Change({.limit = 1000, .headerSize = 512});
        source->Add(near0);
        source->Add(near1);
    }
};

struct BridgedKind {
    const char* name;
    const char* reason;
    DropReason code;
    std::function<void()> setUp;
    std::function<Bytes(std::uint64_t number)> frame;
    bool leaving = false;  // dropped at near1
};

void PrintTo(const BridgedKind& kind, std::ostream* out) { *out << kind.name; }

class BridgedKindsTest : public BridgedTest, public testing::WithParamInterface<BridgedKind> {};

TEST_P(BridgedKindsTest, EachIsCountedAndTold)
{
    const BridgedKind& kind = GetParam();
    const std::uint32_t place = kind.leaving ? near1 : near0;
    kind.setUp();
    std::vector<Bytes> frames;
    for (std::size_t i = 0; i < kBridgedFrames; ++i) frames.push_back(kind.frame(i));
    Send(frames);
    Await(place, kBridgedFrames);

    EXPECT_EQ(DropsFor(place, kind.reason), kBridgedFrames) << Everything();
    EXPECT_EQ(DropsAt(kind.leaving ? near0 : near1), 0U);
    ASSERT_EQ(sink.drops.size(), kBridgedFrames);
    for (std::size_t i = 0; i < kBridgedFrames; ++i) {
        const KeptDrop& kept = sink.drops[i];
        EXPECT_EQ(kept.reason, kind.reason);
        EXPECT_EQ(CodeOf(Told(kept)), kind.code) << kept.reason << " in " << kept.function;
        EXPECT_EQ(kept.drop.ifIndex, place);
        EXPECT_EQ(kept.drop.input, near0);
        EXPECT_EQ(kept.drop.output, kind.leaving ? near1 : 0);
        EXPECT_EQ(kept.drop.start, capture::HeaderStart::kEthernet);
        EXPECT_EQ(kept.drop.length, frames[i].size());
        EXPECT_TRUE(std::equal(kept.header.begin(), kept.header.end(), frames[i].begin()));
    }
}

const std::function<void()> kNothing = [] {};

const BridgedKind kBridgedKinds[] = {
    {"NoPortToFloodTo", "NO_TX_TARGET", DropReason::kPortListIsEmpty,
     [] { Network::Bridge("link set dev near1 flood off"); },
     [](std::uint64_t number) { return UdpFrame({.from = 1, .to = 0x99, .size = 100, .number = number}); }},
    {"PortLearns", "BRIDGE_INGRESS_STP_STATE", DropReason::kIngressSpanningTreeFilter,
     [] { Network::Bridge("link set dev near0 state 2"); },
     [](std::uint64_t number) { return ToNear1(number); }},
    {"PortIsDisabled", "BRIDGE_INGRESS_STP_STATE", DropReason::kIngressSpanningTreeFilter,
     [] { Network::Bridge("link set dev near0 state 0"); },
     [](std::uint64_t number) { return ToNear1(number); }},
    {"SourceIsMulticast", "MAC_INVALID_SOURCE", DropReason::kSrcMacIsMulticast, kNothing,
     [](std::uint64_t number) { return With(ToNear1(number), 6, {0x01}); }},
    {"PauseFrame", "MAC_IEEE_MAC_CONTROL", DropReason::kDmacIsReserved, kNothing,
     [](std::uint64_t) {
         return With(support::EthernetFrame(1, 2, 0x8808, 60), 0, {0x01, 0x80, 0xc2, 0x00, 0x00, 0x01});
     }},
    {"TooBig", "NOT_SPECIFIED", DropReason::kPacketTooBig, [] { Network::Ip("link set near1 mtu 1000"); },
     [](std::uint64_t number) { return ToNear1(number, 1200); }, true},
    // The kernel gives no reason for these.
    {"PortIsDown", "NOT_SPECIFIED", DropReason::kUnknown, [] { Network::Ip("link set near1 down"); },
     [](std::uint64_t number) { return ToNear1(number); }},
    {"PortsAreIsolated", "NOT_SPECIFIED", DropReason::kUnknown,
     [] { Network::Bridge("link set dev near0 isolated on\nlink set dev near1 isolated on"); },
     [](std::uint64_t number) { return ToNear1(number); }},
    {"BackToItsPort", "NOT_SPECIFIED", DropReason::kUnknown,
     [] { Network::Bridge("fdb replace 02:00:00:00:00:56 dev near0 master static"); },
     [](std::uint64_t number) { return ToNear1(number); }},
};

INSTANTIATE_TEST_SUITE_P(, BridgedKindsTest, testing::ValuesIn(kBridgedKinds),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_F(BridgedTest, FramesOfAVlanThatThePortHasNotAreCounted)
{
    try {
        Network::Ip("link set br0 type bridge vlan_filtering 1");
    } catch (const std::runtime_error&) {
        GTEST_SKIP() << "the kernel's bridges filter no VLANs";
    }
    std::vector<Bytes> frames;
    for (std::size_t i = 0; i < kBridgedFrames; ++i)
        frames.push_back(
            UdpFrame({.from = 1, .to = kBehindNear1, .tags = {0x8100'0064}, .size = 104, .number = i}));
    Send(frames);
    Await(near0, kBridgedFrames);
    ASSERT_EQ(sink.drops.size(), kBridgedFrames);
    EXPECT_EQ(sink.drops[0].drop.tagControl, 0x64);
}

// What the queueing disciplines of an interface say that they have dropped: the outermost one.
std::uint64_t DroppedByQueue(const std::string& device)
{
    const std::string text = Network::Run({"tc", "-s", "-j", "qdisc", "show", "dev", device});
    std::smatch found;
    return std::regex_search(text, found, std::regex("\"drops\":([0-9]+)")) ? std::stoull(found[1]) : 0;
}

class FullQueueTest : public BridgedTest {
protected:
    // Sends more than the queue takes.
    void ExpectEachTold()
    {
        std::vector<Bytes> frames;
        for (std::size_t i = 0; i < 20; ++i) frames.push_back(ToNear1(i, 900));
        Send(frames);
        EXPECT_TRUE(support::Becomes([&] {
            return DropsFor(near1, "QDISC_DROP") == DroppedByQueue("near1");
        })) << Everything();
        const auto dropped = DroppedByQueue("near1");
        EXPECT_GE(dropped, 14U);
        EXPECT_LT(dropped, 20U);
        source->Drain();
        EXPECT_EQ(sink.drops.size(), dropped);
        for (const auto& kept : sink.drops) {
            EXPECT_EQ(CodeOf(Told(kept)), DropReason::kNoBufferSpace) << kept.reason;
            EXPECT_EQ(kept.drop.output, near1);
        }
    }

    static void AddQueue(const std::string& words)
    {
        std::vector<std::string> arguments{"tc", "qdisc", "add", "dev", "near1"};
        std::istringstream rest(words);
        for (std::string word; rest >> word;) arguments.push_back(word);
        Network::Run(arguments);
    }
};

TEST_F(FullQueueTest, EachThatAShaperDropsIsCountedAndTold)
{
    AddQueue("root tbf rate 8kbit burst 2000 limit 3000");
    ExpectEachTold();
}

TEST_F(FullQueueTest, EachThatAQueueOfFewPacketsDropsIsCountedAndTold)
{
    AddQueue("root handle 1: tbf rate 8kbit burst 2000 limit 300000");
    AddQueue("parent 1:1 pfifo limit 3");
    ExpectEachTold();
}

TEST_F(BridgedTest, EachThatTheFirewallDropsIsCountedAndTold)
{
    if (const auto why = WhyNoFirewall(); !why.empty()) GTEST_SKIP() << why;
    Network::Run(
        {"nft", "table bridge t { chain c { type filter hook forward priority 0; udp dport 99 drop; }; }"});
    std::vector<Bytes> frames;
    for (std::size_t i = 0; i < 2 * kBridgedFrames; ++i)
        frames.push_back(UdpFrame({.from = 1,
                                   .to = kBehindNear1,
                                   .destinationPort = i % 2 == 0 ? std::uint16_t{99} : std::uint16_t{98},
                                   .number = i}));
    Send(frames);
    Await(near1, kBridgedFrames);
    EXPECT_EQ(DropsFor(near1, "NETFILTER_DROP"), kBridgedFrames);
    ASSERT_EQ(sink.drops.size(), kBridgedFrames);
    for (std::size_t i = 0; i < kBridgedFrames; ++i) {
        EXPECT_EQ(CodeOf(Told(sink.drops[i])), DropReason::kAcl);
        EXPECT_EQ(support::NumberOf(sink.drops[i].header), 2 * i);
    }
}

}  // namespace
