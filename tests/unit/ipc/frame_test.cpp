// SPDX-License-Identifier: Apache-2.0
#include "channel_fixture.h"

namespace {

class FrameTest : public ChannelFixture {};

TEST_F(FrameTest, ReceivesFramesInOrder)
{
    Start();
    PeerWrites(FrameOf("one") + FrameOf("") + FrameOf("three"));
    Settle();
    EXPECT_EQ(m_frames, (Frames{"one", "", "three"}));
    EXPECT_EQ(m_reasons, Frames{});
}

TEST_F(FrameTest, ReceivesFramesCutAtEachByte)
{
    const std::string bytes = FrameOf("first") + FrameOf("") + FrameOf("second");
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
        SCOPED_TRACE(cut);
        m_frames.clear();
        if (cut == 0) Start();
        PeerWrites(std::string_view(bytes).substr(0, cut));
        Settle();
        PeerWrites(std::string_view(bytes).substr(cut));
        Settle();
        EXPECT_EQ(m_frames, (Frames{"first", "", "second"}));
    }
}

TEST_F(FrameTest, ReceivesFramesByteByByte)
{
    Start();
    for (const char byte : FrameOf("slow") + FrameOf("slower")) {
        PeerWrites({&byte, 1});
        Settle();
    }
    EXPECT_EQ(m_frames, (Frames{"slow", "slower"}));
}

TEST_F(FrameTest, SendsWhatIsQueuedInOneTurnTogetherAndInOrder)
{
    Start();
    const std::string before = PeerReads();
    std::string expected;
    for (const char* text : {"a", "bb", "ccc"}) {
        EXPECT_TRUE(m_channel->Send(Named(text)));
        expected += FrameOf(Named(text).SerializeAsString());
    }
    EXPECT_EQ(before + PeerReads(), "");
    EXPECT_EQ(m_channel->QueuedBytes(), expected.size());
    m_loop.restart();
    m_loop.run_one();
    EXPECT_EQ(PeerReads(), expected);
    Settle();
    EXPECT_EQ(m_channel->QueuedBytes(), 0U);
}

TEST_F(FrameTest, CarriesManyMessagesThroughASlowPeer)
{
    Start();
    constexpr std::size_t kMessages = 50'000;
    std::string expected;
    for (std::size_t i = 0; i < kMessages; ++i) {
        const auto message = Named("message " + std::to_string(i));
        ASSERT_TRUE(m_channel->Send(message));
        expected += FrameOf(message.SerializeAsString());
    }
    std::string received;
    EXPECT_TRUE(RunUntil([&] {
        received += PeerReads();
        return received.size() >= expected.size();
    }));
    EXPECT_EQ(received, expected);
}

TEST_F(FrameTest, CarriesTheLargestFrameBothWays)
{
    Start();
    const auto large = Named(std::string(ipc::kMaxFrame - 5, 'x'));
    ASSERT_EQ(large.ByteSizeLong(), ipc::kMaxFrame);
    ASSERT_TRUE(m_channel->Send(large));
    std::string received;
    ASSERT_TRUE(RunUntil([&] {
        received += PeerReads();
        return received.size() >= ipc::kMaxFrame + 4;
    }));
    EXPECT_TRUE(received == FrameOf(large.SerializeAsString()));

    std::string_view rest = received;
    ASSERT_TRUE(RunUntil([&] {
        const ssize_t sent = ::send(m_peer, rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) rest.remove_prefix(static_cast<std::size_t>(sent));
        return rest.empty() && m_frames.size() == 1;
    }));
    EXPECT_TRUE(m_frames[0] == large.SerializeAsString());
    EXPECT_EQ(m_reasons, Frames{});
}

TEST_F(FrameTest, RefusesToSendAFrameOverTheLimit)
{
    Start();
    EXPECT_FALSE(m_channel->Send(Named(std::string(ipc::kMaxFrame, 'x'))));
    EXPECT_EQ(m_reasons, Frames{});  // not from inside Send
    Settle();
    EXPECT_EQ(m_reasons, (Frames{"too much is waiting to be sent"}));
}

TEST_F(FrameTest, EndsWhenTheQueueIsFull)
{
    Start();
    const auto message = Named(std::string(std::size_t{1} << 20, 'x'));
    std::size_t sent = 0;
    while (m_channel->Send(message)) ++sent;
    EXPECT_EQ(sent, 63U);
    EXPECT_FALSE(m_channel->Send(Named("x")));
    Settle();
    EXPECT_EQ(m_reasons, (Frames{"too much is waiting to be sent"}));
    EXPECT_EQ(m_channel->QueuedBytes(), 0U);
}

TEST_F(FrameTest, TellsOfThePeersEndOnce)
{
    Start();
    PeerWrites(FrameOf("last") + std::string("\0\0\0\x10half", 8));
    ClosePeer();
    Settle();
    EXPECT_EQ(m_frames, (Frames{"last"}));
    EXPECT_EQ(m_reasons, (Frames{"closed by the peer"}));
    EXPECT_FALSE(m_channel->Send(Named("x")));
    Settle();
    EXPECT_EQ(m_reasons.size(), 1U);
}

TEST_F(FrameTest, StillReceivesWhatThePeerSentBeforeItClosed)
{
    Start();
    EXPECT_TRUE(m_channel->Send(Named("never read")));
    PeerWrites(FrameOf("refused"));
    ClosePeer();
    Settle();
    EXPECT_EQ(m_frames, (Frames{"refused"}));
    EXPECT_EQ(m_reasons.size(), 1U);
}

TEST_F(FrameTest, EndsWithAPeerThatTakesNothingMoreAndStaysSilent)
{
    Start();
    PeerWrites(FrameOf("last"));
    ASSERT_EQ(::shutdown(m_peer, SHUT_RD), 0);
    EXPECT_TRUE(m_channel->Send(Named("refused by the kernel")));
    Settle();
    EXPECT_EQ(m_frames, (Frames{"last"}));
    EXPECT_EQ(m_reasons.size(), 1U);
    EXPECT_FALSE(m_channel->Send(Named("x")));
}

TEST_F(FrameTest, ClosesAfterWhatIsQueuedHasBeenWritten)
{
    Start();
    const auto message = Named(std::string(std::size_t{4} << 20, 'x'));
    EXPECT_TRUE(m_channel->Send(message));
    m_channel->Close();
    EXPECT_FALSE(m_channel->Send(message));
    PeerWrites(FrameOf("unheard"));
    std::string received;
    EXPECT_TRUE(RunUntil([&] {
        received += PeerReads();
        return received.size() >= message.ByteSizeLong() + 4;
    }));
    EXPECT_TRUE(received == FrameOf(message.SerializeAsString()));
    Settle();
    char byte = 0;
    EXPECT_EQ(::recv(m_peer, &byte, 1, MSG_DONTWAIT), ssize_t{0});
    EXPECT_EQ(m_frames, Frames{});
    EXPECT_EQ(m_reasons, Frames{});
}

TEST_F(FrameTest, ClosesAtOnceWithDiscard)
{
    Start();
    EXPECT_TRUE(m_channel->Send(Named("dropped")));
    m_channel->Close(true);
    Settle();
    char byte = 0;
    EXPECT_EQ(::recv(m_peer, &byte, 1, MSG_DONTWAIT), ssize_t{0});
    EXPECT_EQ(m_reasons, Frames{});
}

TEST_F(FrameTest, MayBeClosedAndLetGoFromItsOwnHandler)
{
    int calls = 0;
    m_channel->Start({[&](std::string_view) {
                          ++calls;
                          m_channel->Close();
                          m_channel.reset();
                      },
                      [&](std::string_view) { ++calls; }});
    PeerWrites(FrameOf("one") + FrameOf("two"));
    Settle();
    EXPECT_EQ(calls, 1);
    char byte = 0;
    EXPECT_EQ(::recv(m_peer, &byte, 1, MSG_DONTWAIT), ssize_t{0});
}

TEST_F(FrameTest, ReportsProgressWhileThePeerReads)
{
    Start();
    EXPECT_TRUE(m_channel->Send(Named(std::string(std::size_t{8} << 20, 'x'))));
    Settle();
    ASSERT_GT(m_channel->QueuedBytes(), 0U);
    m_timers.Advance(std::chrono::seconds(1));
    Settle();
    EXPECT_TRUE(m_channel->Stuck(std::chrono::seconds(1)));
    EXPECT_FALSE(m_channel->Stuck(std::chrono::milliseconds(1001)));
    EXPECT_TRUE(RunUntil([&] {
        static_cast<void>(PeerReads());
        return !m_channel->Stuck(std::chrono::seconds(1));
    }));
}

TEST_F(FrameTest, GivesUpWhatIsQueuedTenSecondsAfterItWasClosed)
{
    Start();
    EXPECT_TRUE(m_channel->Send(Named(std::string(std::size_t{8} << 20, 'x'))));
    m_channel->Close();
    m_timers.Advance(std::chrono::milliseconds(9'999));
    Settle();
    EXPECT_GT(m_channel->QueuedBytes(), 0U);
    m_timers.Advance(std::chrono::milliseconds(1));
    Settle();
    EXPECT_EQ(m_channel->QueuedBytes(), 0U);
    EXPECT_EQ(m_timers.Waiting(), 0U);
    EXPECT_EQ(m_reasons, Frames{});
}

TEST_F(FrameTest, KnowsItsPeer)
{
    EXPECT_EQ(m_channel->Peer().pid, ::getpid());
    EXPECT_EQ(m_channel->Peer().uid, ::getuid());
}

}  // namespace
