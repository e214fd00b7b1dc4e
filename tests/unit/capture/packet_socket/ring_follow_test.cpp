// SPDX-License-Identifier: Apache-2.0
// Pairs of packet sockets that follow one another in one group: no packet is missed or counted twice,
// whatever the order in which sockets come and go, and what can't be followed so is refused.

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "capture/cable.h"
#include "capture/packet_socket/pair.h"
#include "capture/source_suite.h"

namespace ring_follow_tests {

namespace {

using namespace capture;
using source_suite::IsBinomial;
using source_suite::kOwnMark;
using support::Network;

constexpr std::size_t kRing = 1U << 20U;
constexpr std::uint32_t kNever = 16777215;  // hardly ever

class RingFollow : public OnCable<> {
protected:
    void SetUp() override
    {
        OnCable::SetUp();
        if (IsSkipped()) return;
        m_pair = std::make_shared<PacketSocketPair>(kRing);
        m_pair->Prepare(m_near, {.rate = kNever, .headerSize = 64}, kOwnMark);
        if (!m_pair->SharesOneHook()) GTEST_SKIP() << "this kernel has no such groups";
        m_pair->Open();
    }

    static void Send(std::size_t count)
    {
        support::Injector("far").Send(std::vector<support::Bytes>(count, support::UdpFrame({.size = 200})));
    }

    // The next pair, open, and the last one's count, which has ended.
    std::uint64_t Follow(std::uint32_t rate)
    {
        const auto next = m_pair->MakeFollower(m_near, {.rate = rate, .headerSize = 64}, kRing);
        if (!next) throw std::runtime_error("can't be followed");
        next->Open();
        const std::uint64_t counted = m_pair->Count().pool;
        next->TakeOverCounting();
        m_pair = next;
        return counted;
    }

    std::shared_ptr<PacketSocketPair> m_pair;
};

TEST_F(RingFollow, EachHasCountedAndDrawnWhatCameInItsTime)
{
    for (const std::uint32_t rate : {1U, kNever, 3U, 1U, 1U, kNever}) {
        SCOPED_TRACE(rate);
        Follow(rate);
        Send(3000);
        EXPECT_EQ(m_pair->Count().pool, 3000U);
        EXPECT_TRUE(IsBinomial(m_pair->InRing(), 3000, 1.0 / rate));
    }
}

TEST_F(RingFollow, NoPacketIsMissedOrCountedTwiceWhileTheyCome)
{
    constexpr std::uint64_t kFrames = 120'000;
    constexpr std::size_t kFollowers = 5;
    std::atomic<std::uint64_t> sent = 0;
    std::atomic<bool> enough = false;
    std::thread sender([&] {
        for (; !enough; sent += 500) Send(500);
    });
    std::uint64_t counted = 0;
    for (std::size_t followers = 0; sent < kFrames || followers < kFollowers; ++followers)
        counted += Follow(followers % 2 == 0 ? 2 : 1000);
    enough = true;
    sender.join();
    EXPECT_EQ(counted + m_pair->Count().pool, sent);
}

TEST_F(RingFollow, BeforeTheNextIsOpenedTheLastSamplesOn)
{
    Follow(1);
    const auto next = m_pair->MakeFollower(m_near, {.rate = kNever, .headerSize = 64}, kRing);
    ASSERT_NE(next, nullptr);
    Send(100);
    EXPECT_EQ(m_pair->Count().pool, 100U);
    EXPECT_EQ(m_pair->InRing(), 100U);
    EXPECT_EQ(next->Count().drops, 0U);
    EXPECT_EQ(next->InRing(), 0U);
}

TEST_F(RingFollow, AfterTheNextIsOpenedTheLastSamplesNoMore)
{
    const auto last = m_pair;
    Follow(1);
    Send(100);
    last->Count();
    EXPECT_EQ(last->InRing(), 0U);
    EXPECT_EQ(m_pair->Count().pool, 100U);
    EXPECT_EQ(m_pair->InRing(), 100U);
}

TEST_F(RingFollow, SamplesTheSameAfterItsInterfaceWasDown)
{
    for (const std::uint32_t rate : {1U, kNever, 1U}) {
        SCOPED_TRACE(rate);
        Follow(rate);
        Network::Ip("link set near down\nlink set near up");
        // The far end sends again some time after that; what it sends until then is lost.
        while (m_pair->Count().pool == 0) Send(1);
        const std::uint64_t before = m_pair->Count().pool;
        Send(300);
        EXPECT_EQ(m_pair->Count().pool, before + 300);
        EXPECT_EQ(m_pair->InRing(), rate == 1 ? before + 300 : 0U);
    }
}

TEST_F(RingFollow, IsRefusedWithOtherDirections)
{
    const Settings both{.rate = 1, .headerSize = 64, .ingress = true, .egress = true};
    EXPECT_EQ(m_pair->MakeFollower(m_near, both, kRing), nullptr);
}

TEST_F(RingFollow, IsRefusedTwice)
{
    const auto next = m_pair->MakeFollower(m_near, {.rate = 1, .headerSize = 64}, kRing);
    EXPECT_NE(next, nullptr);
    EXPECT_EQ(m_pair->MakeFollower(m_near, {.rate = 1, .headerSize = 64}, kRing), nullptr);
}

TEST_F(RingFollow, IsPutOffWhileTheOneBeforeIsStillThere)
{
    using Succession = PacketSocketPair::Succession;
    constexpr Settings kNext{.rate = 2, .headerSize = 64};
    auto first = m_pair;
    EXPECT_EQ(first->SuccessionWith(kNext), Succession::kNow);
    Follow(1);
    EXPECT_EQ(first->SuccessionWith(kNext), Succession::kNever);
    EXPECT_EQ(m_pair->SuccessionWith(kNext), Succession::kLater);
    EXPECT_EQ(m_pair->MakeFollower(m_near, kNext, kRing), nullptr);
    Send(100);
    EXPECT_EQ(m_pair->Count().pool, 100U);
    EXPECT_EQ(m_pair->InRing(), 100U);
    first.reset();
    EXPECT_EQ(m_pair->SuccessionWith(kNext), Succession::kNow);
}

TEST_F(RingFollow, IsRefusedWhereEachSocketHasItsHook)
{
    PacketSocketPair separate(kRing);
    separate.Prepare(m_near, {.rate = 1, .headerSize = 64}, kOwnMark, PacketSocketPair::Hook::kSeparate);
    EXPECT_EQ(separate.MakeFollower(m_near, {.rate = 2, .headerSize = 64}, kRing), nullptr);
}

}  // namespace

}  // namespace ring_follow_tests
