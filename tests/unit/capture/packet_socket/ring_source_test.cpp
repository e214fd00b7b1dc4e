// SPDX-License-Identifier: Apache-2.0
// What only packet sockets have to do as a source: pools that are exact at 1:1, rings that are made anew, and
// rows of changes that do not hold up the loop.

#include "capture/packet_source.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <functional>
#include <string>

#include "capture/cable.h"
#include "capture/source_suite.h"
#include "support/few_files.h"

namespace {

using namespace capture;
using source_suite::NumberOf;
using std::chrono::milliseconds;
using support::Network;

// Does with samples what the test says.
class Sink final : public SampleSink {
public:
    void OnSamples(std::span<const Sample> samples) noexcept override
    {
        if (action) action(samples);
        taken += samples.size();
    }
    void OnDrained() noexcept override {}
    void OnRefused(std::uint32_t, const capture::Unavailable&) noexcept override {}
    std::function<void(std::span<const Sample>)> action;
    std::size_t taken = 0;
};

class RingSource : public OnCable<> {
protected:
    void SetUp() override
    {
        OnCable::SetUp();
        if (IsSkipped()) return;
        m_timers = base::MakeTimers(m_loop);
        m_source = MakeRingSource(m_loop, *m_timers, m_sink, {});
    }

    // Returns when packets are sampled there.
    void Add(std::uint32_t ifIndex, const Settings& settings)
    {
        m_source->Add(ifIndex, settings);
        EXPECT_TRUE(Comes([&] { return m_source->Sampled(ifIndex); }));
    }

    static void Send(std::uint64_t count, std::uint64_t first = 0)
    {
        support::Injector injector("far");
        for (std::uint64_t i = 0; i < count; ++i)
            injector.Send(support::UdpFrame({.size = 120, .number = first + i}));
    }

    void Run(milliseconds time)
    {
        m_loop.restart();
        m_loop.run_for(time);
    }

    template <typename Condition>
    [[nodiscard]] bool Comes(Condition condition)
    {
        for (int tries = 0; tries < 3000 && !condition(); ++tries) Run(milliseconds(10));
        return condition();
    }

    [[nodiscard]] bool Takes(std::size_t count)
    {
        return Comes([&] { return m_sink.taken >= count; }) && m_sink.taken == count;
    }

    boost::asio::io_context m_loop;
    std::unique_ptr<base::Timers> m_timers;
    Sink m_sink;
    std::unique_ptr<PacketSource> m_source;
};

TEST_F(RingSource, TellsThePoolOfEachPacketAtOneInOne)
{
    m_sink.action = [](std::span<const Sample> samples) {
        for (const Sample& sample : samples)
            EXPECT_EQ(sample.pool, NumberOf({sample.header.begin(), sample.header.end()}) + 1);
    };
    Add(m_near, {.rate = 1, .headerSize = 64});
    Send(700);
    EXPECT_TRUE(Takes(700));
    // The ring is made anew twice.
    for (const std::uint32_t rate : {5U, 1U}) {
        m_source->Change(m_near, {.rate = rate, .headerSize = 64});
        EXPECT_TRUE(Comes([&] { return m_source->Sampled(m_near); }));
    }
    Send(300, 700);
    EXPECT_EQ(m_source->Remove(m_near).pool, 1000U);
    EXPECT_EQ(m_sink.taken, 1000U);
}

TEST_F(RingSource, HandsOverALonePacketEachTimeAfterSilence)
{
    Add(m_near, {.rate = 1, .headerSize = 64});
    for (std::size_t round = 1; round <= 5; ++round) {
        SCOPED_TRACE(round);
        Send(1);
        EXPECT_TRUE(Takes(round));
        // Until nothing is waited for but the ring itself.
        Run(milliseconds(250));
    }
    m_loop.restart();
    EXPECT_EQ(m_loop.run_for(milliseconds(300)), 0U) << "silence costs nothing";
}

TEST_F(RingSource, BeginsBesideTheLoop)
{
    m_source->Add(m_near, {.rate = 1, .headerSize = 64});
    EXPECT_FALSE(m_source->Sampled(m_near)) << "the loop has not run";
    // What is asked for meanwhile is what it begins with, and what ends meanwhile does not begin.
    m_source->Change(m_near, {.rate = 1, .headerSize = 128});
    const std::uint32_t other = Network::Index("far");
    m_source->Add(other, {.rate = 1, .headerSize = 64});
    EXPECT_EQ(m_source->Remove(other).pool, 0U);
    EXPECT_TRUE(Comes([&] { return m_source->Sampled(m_near); }));
    std::size_t longest = 0;
    m_sink.action = [&](std::span<const Sample> samples) {
        for (const Sample& sample : samples) longest = std::max(longest, sample.header.size());
    };
    Send(10);
    EXPECT_TRUE(Takes(10));
    EXPECT_EQ(longest, 120U) << "all of the frames";
    EXPECT_FALSE(m_source->Sampled(other));
    EXPECT_EQ(m_source->Read(m_near).pool, 10U);
}

TEST_F(RingSource, KeepsOnAsBeforeWhereAChangeCannotBeMade)
{
    if (const std::string why = support::WhyNotWithoutFiles(); !why.empty()) GTEST_SKIP() << why;
    const std::uint32_t other = Network::Index("lo");
    Add(m_near, {.rate = 1, .headerSize = 64});
    Send(10);
    const std::size_t files = support::OpenFiles();
    EXPECT_THROW(m_source->Add(987654, {.rate = 1}), Unavailable);
    // The sockets that were made for it are closed on a thread; below they would leave room for others.
    ASSERT_TRUE(Comes([&] { return support::OpenFiles() == files; }));
    {
        const support::FewFiles few(0);
        EXPECT_THROW(m_source->Change(m_near, {.rate = 2, .headerSize = 64}), Unavailable);
        EXPECT_THROW(m_source->Add(other, {.rate = 1}), Unavailable);
        // What needs no other sockets can be changed.
        m_source->Change(m_near, {.rate = 1, .headerSize = 128});
    }
    Send(10);
    EXPECT_TRUE(Takes(20));
    m_source->Change(m_near, {.rate = 16777215, .headerSize = 64});
    Send(10);
    EXPECT_EQ(m_source->Remove(m_near).pool, 30U);
    EXPECT_EQ(m_sink.taken, 20U);
}

}  // namespace
