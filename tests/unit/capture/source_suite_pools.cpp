// SPDX-License-Identifier: Apache-2.0
// What the samples say of the packets that they were sampled from, when the traffic of an interface goes from
// one CPU to another: each CPU counts by itself, and the sum must rise with each sample.

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

#include "capture/source_suite.h"

namespace source_suite {

namespace {

constexpr std::uint64_t kAtOnce = 25;

std::vector<int> Cpus()
{
    cpu_set_t all;
    CPU_ZERO(&all);
    if (sched_getaffinity(0, sizeof all, &all) != 0) return {};
    std::vector<int> cpus;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        if (CPU_ISSET(static_cast<std::size_t>(cpu), &all)) cpus.push_back(cpu);
    return cpus;
}

void MoveTo(int cpu)
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(cpu), &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0)
        throw std::system_error(errno, std::generic_category(), "moving to another CPU");
}

// Sends so many frames, a few of them from each of the CPUs in turn.
void SendFromEach(const std::vector<int>& cpus, std::uint64_t count)
{
    support::Injector injector("far");
    const std::vector<support::Bytes> some(kAtOnce, support::UdpFrame({.size = 100}));
    for (std::uint64_t i = 0; i < count / kAtOnce; ++i) {
        MoveTo(cpus[i % cpus.size()]);
        injector.Send(some);
    }
}

}  // namespace

class PoolOfManyCpus : public SourceSuite {
protected:
    void SetUp() override
    {
        m_cpus = Cpus();  // before the suite keeps to one
        SourceSuite::SetUp();
        if (IsSkipped()) return;
        if (m_cpus.size() < 2) GTEST_SKIP() << "has one CPU only";
        m_cpus.resize(2);
        m_port = Cable("near", "far");
        Make();
    }

    // Sends in threads while the loop takes what is sampled. `senders`: the CPUs of each.
    void Send(const std::vector<std::vector<int>>& senders, std::uint64_t each)
    {
        std::atomic<std::size_t> left = senders.size();
        std::vector<std::thread> threads;
        for (const auto& cpus : senders)
            threads.emplace_back([&] {
                SendFromEach(cpus, each);
                --left;
            });
        while (left > 0) {
            Run(std::chrono::milliseconds(1));
            m_source->Drain();
        }
        for (std::thread& thread : threads) thread.join();
    }

    // Each sample's pool is greater than the one before, and never less than what was sampled.
    void ExpectRising(std::uint64_t sent) const
    {
        std::uint64_t last = 0;
        std::uint64_t sampled = 0;
        for (const SampledFrame& each : m_record.all) {
            sampled += each.sample.count;
            ASSERT_GT(each.sample.pool, last) << "after " << sampled << " sampled frames";
            ASSERT_GE(each.sample.pool, sampled);
            ASSERT_LE(each.sample.pool, sent);
            last = each.sample.pool;
        }
    }

    // When all is quiet, a further packet's pool is exact.
    void ExpectExactNext(std::uint64_t sent)
    {
        Change(m_port, {.rate = 1, .headerSize = 64});
        for (const int cpu : m_cpus) {
            std::thread([&] {
                MoveTo(cpu);
                support::Injector("far").Send(support::UdpFrame({.size = 100}));
            }).join();
            ASSERT_TRUE(Settles(m_port, ++sent));
            ASSERT_FALSE(m_record.all.empty());
            EXPECT_EQ(m_record.all.back().sample.pool, sent);
        }
    }

    std::vector<int> m_cpus;
    std::uint32_t m_port = 0;
};

TEST_P(PoolOfManyCpus, RisesWithEachSampleWhileTheTrafficMoves)
{
    std::uint64_t sent = 0;
    for (const std::uint32_t rate : {1U, 4U}) {
        SCOPED_TRACE(rate);
        constexpr std::uint64_t kFrames = 20'000;
        Add(m_port, {.rate = rate, .headerSize = 64});
        Send({m_cpus}, kFrames);
        sent += kFrames;
        ASSERT_TRUE(Settles(m_port, sent));
        EXPECT_EQ(m_source->Read(m_port).drops, 0U);
        ExpectRising(sent);
        if (rate == 1) {
            EXPECT_EQ(m_record.all.size(), kFrames);
            EXPECT_EQ(m_record.all.back().sample.pool, kFrames);
        } else {
            EXPECT_TRUE(IsBinomial(m_record.all.size() - kFrames, kFrames, 1.0 / rate));
        }
    }
    ExpectExactNext(sent);
    EXPECT_EQ(m_source->Remove(m_port).pool, sent + m_cpus.size());
}

TEST_P(PoolOfManyCpus, RisesWithEachSampleWhileBothSend)
{
    std::uint64_t sent = 0;
    for (const std::uint32_t rate : {1U, 4U, 50U}) {
        SCOPED_TRACE(rate);
        constexpr std::uint64_t kEach = 20'000;
        Add(m_port, {.rate = rate, .headerSize = 64});
        Send({{m_cpus[0]}, {m_cpus[1]}}, kEach);
        sent += 2 * kEach;
        ASSERT_TRUE(Settles(m_port, sent));
        ExpectRising(sent);
        if (rate == 1) {
            EXPECT_EQ(m_record.all.size() + m_source->Read(m_port).drops, sent) << "all, or known to be lost";
        }
    }
    ExpectExactNext(sent);
    EXPECT_EQ(m_source->Remove(m_port).pool, sent + m_cpus.size());
}

INSTANTIATE_TEST_SUITE_P(All, PoolOfManyCpus, testing::ValuesIn(Kinds()),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace source_suite
