// SPDX-License-Identifier: Apache-2.0
// A kernel that takes its time to answer: the poller waits for it beside the loop, and whatever happens
// meanwhile happens.

#include <array>
#include <memory>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>

#include "base/worker.h"
#include "manager/export/poller_world.h"
#include "support/barrier.h"
#include "support/run_until.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Answers once it is let go. It is asked in the worker's thread: tests look at it while nothing is asked.
class StuckReader final : public net::CounterReader {
public:
    explicit StuckReader(std::shared_ptr<support::Barrier> barrier) : m_barrier(std::move(barrier)) {}

    std::span<const net::LinkCounters> Read(std::span<const std::uint32_t> ifIndexes) override
    {
        m_reads.emplace_back(ifIndexes.begin(), ifIndexes.end());
        m_barrier->Wait();
        m_result.clear();
        for (const std::uint32_t index : ifIndexes) m_result.push_back({.ifIndex = index});
        return m_result;
    }
    std::optional<net::EthernetCounters> ReadEthernet(std::uint32_t ifIndex) override
    {
        net::EthernetCounters counters;
        counters.fcsErrors = ifIndex;
        return counters;
    }
    std::optional<net::AggregateMember> ReadMember(std::uint32_t) override { return std::nullopt; }
    void Forget(std::uint32_t ifIndex) override { m_forgotten.push_back(ifIndex); }

    std::vector<std::vector<std::uint32_t>> m_reads;
    std::vector<std::uint32_t> m_forgotten;

private:
    const std::shared_ptr<support::Barrier> m_barrier;
    std::vector<net::LinkCounters> m_result;
};

class PollerStuck : public testing::Test {
protected:
    PollerStuck()
    {
        for (const std::uint32_t index : {1U, 2U, 3U, 4U}) {
            net::Link link;
            link.index = index;
            m_links.Put(link);
        }
    }
    void Poll(const std::string& key, std::uint32_t index, std::uint16_t interval)
    {
        m_poller->Set(key, {index, interval, &m_streams});
    }
    /// Second by second, with all that the loop has to do then and need not wait for.
    void Advance(int seconds)
    {
        for (; seconds > 0; --seconds) {
            m_timers.Advance(std::chrono::seconds(1));
            m_loop.restart();
            m_loop.poll();
        }
    }
    [[nodiscard]] bool Comes(std::size_t samples)
    {
        return support::RunUntil(m_loop, [&] { return m_stream.m_taken.size() >= samples; });
    }

    const std::shared_ptr<support::Barrier> m_barrier = std::make_shared<support::Barrier>();
    const std::shared_ptr<StuckReader> m_reader = std::make_shared<StuckReader>(m_barrier);
    boost::asio::io_context m_loop;
    support::ManualTimers m_timers;
    std::unique_ptr<base::Worker> m_worker = base::MakeWorker(m_loop);
    net::Links m_links;
    RecordingStream m_stream{m_timers};
    const std::vector<manager::Stream*> m_streams{&m_stream}, m_none;
    std::unique_ptr<manager::Poller> m_poller = std::make_unique<manager::Poller>(
        m_timers, *m_worker, m_reader, m_links, [] {},
        [this] { return std::chrono::steady_clock::time_point(m_timers.Now()); },
        [] { return manager::WallTime(); }, [](std::uint32_t) { return 0U; });
};

TEST_F(PollerStuck, TheLoopGoesOnAndWhatFallsDueMeanwhileIsReadTogetherAfterwards)
{
    Poll("a", 1, 2);
    Advance(1);
    Poll("b", 2, 3);
    Poll("c", 3, 3600);
    Advance(9);  // the loop comes back each time; second 10
    EXPECT_THAT(m_stream.m_taken, IsEmpty());
    EXPECT_EQ(m_timers.Waiting(), 0U) << "nothing is asked for until the answer has come";
    m_barrier->LetGo();
    ASSERT_TRUE(Comes(1));
    EXPECT_THAT(m_stream.m_taken, ElementsAre(Taken{10, 1, 1}));
    m_timers.Advance(std::chrono::milliseconds(0));
    ASSERT_TRUE(Comes(4));
    EXPECT_THAT(m_reader->m_reads, ElementsAre(ElementsAre(1), ElementsAre(1, 2, 3)));
    EXPECT_THAT(m_stream.m_taken,
                ElementsAre(Taken{10, 1, 1}, Taken{10, 1, 2}, Taken{10, 2, 1}, Taken{10, 3, 1}));
    // Then each in its rhythm: 11, 13, … and 2, 5, 8, 11.
    m_timers.Advance(std::chrono::seconds(1));
    ASSERT_TRUE(Comes(6));
    EXPECT_EQ(m_stream.m_taken[4], (Taken{11, 1, 3}));
    EXPECT_EQ(m_stream.m_taken[5], (Taken{11, 2, 2}));
}

TEST_F(PollerStuck, WhatHasChangedMeanwhileGetsNothingThatIsNotItsOwn)
{
    Poll("removed", 1, 5);
    Poll("silent", 2, 5);
    Poll("moved", 3, 5);
    Poll("same", 4, 5);
    Advance(1);
    m_poller->Remove("removed");
    m_poller->Forget(1);
    m_poller->Set("silent", {2, 5, &m_none});
    m_links.Remove(3);
    m_poller->Forget(3);
    Poll("moved", 2, 5);
    m_barrier->LetGo();
    ASSERT_TRUE(Comes(1));
    EXPECT_THAT(m_stream.m_taken, ElementsAre(Taken{1, 4, 1}));
    ASSERT_TRUE(m_stream.m_samples[0].ethernet.has_value());
    EXPECT_EQ(m_stream.m_samples[0].ethernet->fcsErrors, 4U);
    EXPECT_THAT(m_reader->m_forgotten, IsEmpty());
    m_timers.Advance(std::chrono::seconds(5));
    ASSERT_TRUE(Comes(3));
    EXPECT_THAT(m_reader->m_forgotten, ElementsAre(1, 3)) << "with the next that is asked";
    EXPECT_THAT(m_reader->m_reads, ElementsAre(ElementsAre(1, 2, 3, 4), ElementsAre(2, 4)));
}

TEST_F(PollerStuck, TheEndDoesNotWaitForTheAnswer)
{
    Poll("a", 1, 1);
    Advance(1);
    const std::weak_ptr<StuckReader> reader = m_reader;
    const auto before = std::chrono::steady_clock::now();
    m_poller.reset();
    m_worker.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
    m_barrier->LetGo();
    // Nothing but the thread and this test have the reader now.
    EXPECT_TRUE(support::RunUntil(m_loop, [&] { return reader.use_count() == 1; }));
    EXPECT_THAT(m_stream.m_taken, IsEmpty());
}

}  // namespace
