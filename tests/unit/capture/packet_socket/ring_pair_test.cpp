// SPDX-License-Identifier: Apache-2.0
// The two sockets of an interface in the kernel: on one hook and on two, over times in which the interface is
// down, and what becomes of packets that are several frames.

#include "capture/packet_socket/pair.h"

#include <gmock/gmock.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>

#include "capture/cable.h"
#include "capture/source_suite.h"

namespace {

using namespace capture;
using source_suite::IsBinomial;
using source_suite::kOwnMark;
using source_suite::MarkedSender;
using support::Network;
using Hook = PacketSocketPair::Hook;

constexpr std::size_t kBytes = 8U << 20U;
constexpr std::uint32_t kHardlyEver = 16777215;

struct HookRow {
    std::string name;
    Hook hook;
};
void PrintTo(const HookRow& row, std::ostream* out) { *out << row.name; }

class RingPairOn : public OnCable<testing::TestWithParam<HookRow>> {
protected:
    void Begin(const Settings& settings)
    {
        m_pair = std::make_unique<PacketSocketPair>(kBytes);
        m_pair->Prepare(m_near, settings, kOwnMark, GetParam().hook);
        m_pair->Open();
    }

    static void Send(const std::string& device, std::size_t count)
    {
        support::Injector(device).Send(std::vector<support::Bytes>(count, support::UdpFrame({.size = 200})));
    }

    // Closes the pair: all that is in its ring, where nothing comes any more.
    std::vector<Sample> Sampled()
    {
        m_pair->Close();
        m_pair->Count();
        std::vector<Sample> samples;
        if (!m_pair->IsReadable()) return samples;
        RingBlocks& blocks = m_pair->Blocks();
        for (std::size_t waiting = blocks.Waiting(); waiting > 0; --waiting) {
            blocks.Take(samples);
            blocks.Release();
        }
        blocks.TakeUnfinished(samples, m_pair->InRing() - samples.size());
        return samples;
    }

    std::unique_ptr<PacketSocketPair> m_pair;
};

INSTANTIATE_TEST_SUITE_P(Either, RingPairOn,
                         testing::Values(HookRow{"OneHook", Hook::kShared}, HookRow{"Two", Hook::kSeparate}),
                         [](const auto& row) { return row.param.name; });

TEST_P(RingPairOn, CountsEveryPacketAndSamplesAsManyAsChanceAllows)
{
    constexpr std::size_t kPackets = 20000;
    for (const std::uint32_t rate : {1U, 2U, 10U, 1000U, kHardlyEver}) {
        SCOPED_TRACE(rate);
        Begin({.rate = rate, .headerSize = 64});
        Send("far", kPackets);
        const Counts counts = m_pair->Count();
        EXPECT_EQ(counts.pool, kPackets);
        EXPECT_TRUE(IsBinomial(m_pair->InRing(), kPackets, 1.0 / rate));
        EXPECT_EQ(counts.drops, 0U);
        const std::uint64_t inRing = m_pair->InRing();
        EXPECT_EQ(Sampled().size(), inRing);
    }
}

TEST_P(RingPairOn, HangsOnAsManyHooksAsItSays)
{
    Begin({.rate = 1, .headerSize = 64});
    EXPECT_EQ(m_pair->SharesOneHook(), GetParam().hook == Hook::kShared);
}

TEST_P(RingPairOn, SeesNothingBeforeItIsOpenedAndAfterItIsClosed)
{
    m_pair = std::make_unique<PacketSocketPair>(kBytes);
    m_pair->Prepare(m_near, {.rate = 1, .headerSize = 64}, kOwnMark, GetParam().hook);
    Send("far", 10);
    EXPECT_EQ(m_pair->Count().pool, 0U);
    m_pair->Open();
    Send("far", 20);
    EXPECT_EQ(m_pair->Count().pool, 20U);
    m_pair->Close();
    Send("far", 40);
    EXPECT_EQ(m_pair->Count().pool, 20U);
    EXPECT_EQ(Sampled().size(), 20U);
    m_pair->Open();
    Send("far", 80);
    EXPECT_EQ(m_pair->Count().pool, 100U);
}

TEST_P(RingPairOn, TakesTheDirectionsThatAreWantedAndNothingOfOurs)
{
    for (const auto& [ingress, egress] :
         {std::pair{true, false}, {false, true}, {true, true}, {false, false}}) {
        for (const std::uint32_t rate : {1U, kHardlyEver}) {
            SCOPED_TRACE(testing::Message()
                         << "ingress " << ingress << ", egress " << egress << ", 1:" << rate);
            Begin({.rate = rate, .headerSize = 64, .ingress = ingress, .egress = egress});
            Send("far", 5);
            Send("near", 70);
            const MarkedSender entering("far", kOwnMark), leaving("near", kOwnMark);
            for (int i = 0; i < 11; ++i) entering.Send(support::UdpFrame({}));
            for (int i = 0; i < 13; ++i) leaving.Send(support::UdpFrame({}));
            const std::uint64_t expected = (ingress ? 5U : 0U) + (egress ? 70U : 0U);
            EXPECT_EQ(m_pair->Count().pool, expected);
            EXPECT_EQ(Sampled().size(), rate == 1 ? expected : 0U);
        }
    }
}

TEST_P(RingPairOn, SamplesTheSameAfterItsInterfaceWasDown)
{
    for (const std::uint32_t rate : {1U, kHardlyEver}) {
        SCOPED_TRACE(rate);
        Begin({.rate = rate, .headerSize = 64});
        std::uint64_t before = 0;
        for (int round = 0; round < 3; ++round) {
            Network::Ip("link set near down\nlink set near up");
            // The far end sends again some time after that; what it sends until then is lost.
            before = m_pair->Count().pool;
            while (m_pair->Count().pool == before) Send("far", 1);
        }
        before = m_pair->Count().pool;
        Send("far", 300);
        EXPECT_EQ(m_pair->Count().pool, before + 300);
        EXPECT_EQ(m_pair->InRing(), rate == 1 ? before + 300 : 0U);
    }
}

TEST_P(RingPairOn, CanBeMadeWhileItsInterfaceIsDown)
{
    Network::Ip("link set near down");
    Begin({.rate = kHardlyEver, .headerSize = 64});
    Network::Ip("link set near up");
    while (m_pair->Count().pool == 0) Send("far", 1);
    const std::uint64_t before = m_pair->Count().pool;
    Send("far", 300);
    EXPECT_EQ(m_pair->Count().pool, before + 300);
    EXPECT_EQ(m_pair->InRing(), 0U);
}

TEST_P(RingPairOn, CutsWhatComesFromNowOn)
{
    Begin({.rate = 1, .headerSize = 100});
    Send("far", 2);
    m_pair->SetHeaderSize(150);
    Send("far", 2);
    const std::vector<Sample> sampled = Sampled();
    ASSERT_EQ(sampled.size(), 4U);
    EXPECT_THAT(sampled, testing::ElementsAre(testing::Field(&Sample::header, testing::SizeIs(100)),
                                              testing::Field(&Sample::header, testing::SizeIs(100)),
                                              testing::Field(&Sample::header, testing::SizeIs(150)),
                                              testing::Field(&Sample::header, testing::SizeIs(150))));
}

TEST_P(RingPairOn, RefusesAnInterfaceThatIsNotThere)
{
    m_pair = std::make_unique<PacketSocketPair>(kBytes);
    EXPECT_THROW(m_pair->Prepare(987654, {.rate = 1}, kOwnMark, GetParam().hook), Unavailable);
}

// ---- packets that are several frames ----

// Puts a TCP packet on the interface as its own stack would: whole, to be cut into segments by a
// receiver that can't take it whole.
void SendWhole(const std::string& device, std::size_t payload, std::uint16_t segmentSize)
{
    constexpr std::size_t kHeaders = 14 + 20 + 20;
    struct {
        std::uint8_t flags = 1;  // the checksum is still to be made
        std::uint8_t type = 1;   // TCP over IPv4
        std::uint16_t headerLength = kHeaders, segmentSize = 0, checksumStart = 34, checksumOffset = 16;
    } before;
    before.segmentSize = segmentSize;
    support::Bytes packet = support::UdpFrame({.size = kHeaders + payload});
    constexpr std::size_t kProtocol = 14 + 9;
    constexpr std::size_t kDataOffset = 34 + 12;
    packet.at(kProtocol) = std::byte{6};
    packet.at(kDataOffset) = std::byte{0x50};
    const int sender = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    const int one = 1;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(Network::Index(device));
    iovec parts[] = {{&before, 10}, {packet.data(), packet.size()}};
    const bool sent = setsockopt(sender, SOL_PACKET, PACKET_VNET_HDR, &one, sizeof one) == 0 &&
                      bind(sender, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                      writev(sender, parts, 2) == static_cast<ssize_t>(10 + packet.size());
    const int error = errno;
    close(sender);
    if (!sent) throw std::system_error(error, std::generic_category(), "packet of several segments");
}

TEST_P(RingPairOn, TellsHowManyFramesAPacketIsButCountsItOnce)
{
    Begin({.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    SendWhole("far", 4500, 1000);
    SendWhole("near", 1001, 1000);
    SendWhole("far", 800, 1000);
    EXPECT_EQ(m_pair->Count().pool, 3U);
    const std::vector<Sample> sampled = Sampled();
    ASSERT_EQ(sampled.size(), 3U);
    EXPECT_EQ(sampled[0].segments, 5);
    EXPECT_EQ(sampled[0].segmentSize, 1000);
    EXPECT_EQ(sampled[0].length, 54U + 4500);
    EXPECT_EQ(sampled[0].count, 1);
    EXPECT_FALSE(sampled[0].egress);
    EXPECT_EQ(sampled[1].segments, 2);
    EXPECT_EQ(sampled[1].segmentSize, 1000);
    EXPECT_TRUE(sampled[1].egress);
    EXPECT_EQ(sampled[1].origin, kOriginUnknown);
    EXPECT_EQ(sampled[2].segments, 1);
    EXPECT_EQ(sampled[2].length, 54U + 800);
}

// ---- how large ----

TEST(RingSize, OutlivesAPauseOfTheReaderAtEachRate)
{
    // At 600,000 packets a second, 256 bytes each.
    constexpr double kBytesPerMillisecond = 600.0 * 256;
    for (const std::uint32_t rate : {1U, 2U, 10U, 100U, 1000U, kHardlyEver}) {
        const std::size_t size = RingSizeFor(rate);
        EXPECT_GE(static_cast<double>(size) * rate / kBytesPerMillisecond, 27) << rate;
        EXPECT_GE(size, 64U << 10U);
        EXPECT_LE(size, 4U << 20U);
    }
}

}  // namespace
