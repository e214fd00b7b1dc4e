// SPDX-License-Identifier: Apache-2.0
// What happens while traffic flows: changes, removal, interfaces that go, and what others notice of it.

#include <gmock/gmock.h>
#include <sched.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "capture/source_suite.h"

namespace source_suite {

namespace {

std::vector<std::uint64_t> UpTo(std::uint64_t count)
{
    std::vector<std::uint64_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

// The number of a frame that may be lost.
constexpr std::uint64_t kProbe = 1000000;

// Packets received by the interface, as its driver counts them.
std::uint64_t Received(const std::string& device)
{
    std::ifstream devices("/proc/thread-self/net/dev");
    for (std::string line; std::getline(devices, line);) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        if (line.substr(line.find_first_not_of(' '), colon - line.find_first_not_of(' ')) != device) continue;
        std::istringstream values(line.substr(colon + 1));
        std::uint64_t bytes = 0;
        std::uint64_t packets = 0;
        if (values >> bytes >> packets) return packets;
    }
    throw std::runtime_error("no counters of " + device);
}

}  // namespace

TEST_P(SourceSuite, LosesAndDoublesNothingWhileItIsChanged)
{
    const std::uint32_t changed = Cable("near", "far");
    const std::uint32_t other = Cable("near2", "far2");
    const std::uint32_t visitor = Cable("near3", "far3");
    Make();
    if (IsSkipped()) return;
    Add(changed, {.rate = 1, .headerSize = 64});
    Add(other, {.rate = 1, .headerSize = 64});
    constexpr std::uint64_t kRounds = 100;
    constexpr std::uint64_t kEach = 37;
    for (std::uint64_t round = 0; round < kRounds; ++round) {
        SendNumbered("far", round * kEach, kEach);
        Change(changed, {.rate = 1, .headerSize = static_cast<std::uint16_t>(64 + round * 4)});
        SendNumbered("far2", round * kEach, kEach);
        if (round % 20 == 5) Add(visitor, {.rate = 1, .headerSize = 64});
        if (round % 20 == 15) {
            EXPECT_EQ(m_source->Remove(visitor).pool, 0U);
        }
        Run(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(Settles(changed, kRounds * kEach));
    EXPECT_TRUE(Settles(other, kRounds * kEach));
    EXPECT_EQ(m_record.Numbers(changed), UpTo(kRounds * kEach));
    EXPECT_EQ(m_record.Numbers(other), UpTo(kRounds * kEach));
    EXPECT_EQ(m_source->Read(changed).drops, 0U);
    EXPECT_EQ(m_source->Read(other).drops, 0U);
}

TEST_P(SourceSuite, TellsTheRateThatASampleWasSampledWith)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    // 1:1 between, so that the frames of every round are known to be there.
    constexpr std::uint64_t kEach = 50;
    constexpr std::uint64_t kRounds = 40;
    const auto rate = [](std::uint64_t round) {
        return round % 2 == 0 ? 1U : 2U + static_cast<unsigned>(round);
    };
    Add(port, {.rate = 1, .headerSize = 64});
    for (std::uint64_t round = 0; round < kRounds; ++round) {
        Change(port, {.rate = rate(round), .headerSize = 64});
        SendNumbered("far", round * kEach, kEach);
    }
    EXPECT_TRUE(Settles(port, kRounds * kEach));
    std::uint64_t ones = 0;
    for (const SampledFrame& sampled : m_record.all) {
        const std::uint64_t round = NumberOf(sampled.header) / kEach;
        ASSERT_EQ(sampled.sample.rate, rate(round)) << "frame " << NumberOf(sampled.header);
        ones += sampled.sample.rate == 1 ? 1U : 0U;
    }
    EXPECT_EQ(ones, kRounds / 2 * kEach);
}

TEST_P(SourceSuite, CountsEveryFrameOnceWhileItsRateChanges)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    Add(port, {.rate = 50, .headerSize = 64});
    constexpr std::uint64_t kFrames = 400'000;
    constexpr std::uint32_t kChanges = 5;
    std::atomic<std::uint64_t> sent = 0;
    std::atomic<bool> enough = false;
    std::thread sender([&] {
        support::Injector injector("far");
        const std::vector<support::Bytes> some(500, support::UdpFrame({.size = 200}));
        for (; !enough; sent += some.size()) injector.Send(some);
    });
    // A change takes as long as the kernel makes it wait, so the frames come until there were some.
    for (std::uint32_t changes = 0; sent < kFrames || changes < kChanges; ++changes) {
        Change(port, {.rate = changes % 2 == 0 ? 30U : 1000U, .headerSize = 64});
        Run(std::chrono::milliseconds(1));
    }
    enough = true;
    sender.join();
    EXPECT_TRUE(Settles(port, sent));
}

TEST_P(SourceSuite, TakesTheLastOfChangesThatComeFasterThanTheKernelMakesThem)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    Add(port, {.rate = 16777215, .headerSize = 64});
    for (const std::uint32_t rate : {1U, 16777214U, 1U, 16777213U}) {
        m_source->Change(port, {.rate = rate, .headerSize = 64});
        SendNumbered("far", 0, 10);
    }
    // One that waits ends with its interface.
    m_source->Change(port, {.rate = 1, .headerSize = 64});
    m_source->Change(port, {.rate = 16777215, .headerSize = 64});
    EXPECT_EQ(m_source->Remove(port).pool, 40U);
    EXPECT_FALSE(m_source->Sampled(port));
    Add(port, {.rate = 16777215, .headerSize = 64});
    for (const std::uint32_t rate : {16777213U, 16777214U})
        m_source->Change(port, {.rate = rate, .headerSize = 64});
    Change(port, {.rate = 1, .headerSize = 64});
    m_record.all.clear();
    SendNumbered("far", 1000, 40);
    EXPECT_TRUE(Settles(port, 40));
    EXPECT_THAT(m_record.Numbers(port),
                testing::AllOf(testing::SizeIs(40), testing::Each(testing::Ge(1000U))));
    EXPECT_EQ(m_record.refused, 0U);
}

TEST_P(SourceSuite, ToAddWhatIsSampledAlreadyChangesIt)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    Add(port, {.rate = 16777215, .headerSize = 64});
    SendNumbered("far", 0, 40);
    Add(port, {.rate = 1, .headerSize = 64});
    SendNumbered("far", 1000, 40);
    EXPECT_TRUE(Settles(port, 80));
    EXPECT_THAT(m_record.Numbers(port),
                testing::AllOf(testing::SizeIs(40), testing::Each(testing::Ge(1000U))));
}

TEST_P(SourceSuite, HandsOverWhatWaitsWhenAnInterfaceIsRemoved)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    constexpr std::uint64_t kFrames = 90;
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        m_record.all.clear();
        Add(port, {.rate = 1, .headerSize = 64});
        SendNumbered("far", 0, kFrames);
        const capture::Counts counts = m_source->Remove(port);
        EXPECT_EQ(counts.pool, kFrames);
        EXPECT_EQ(counts.drops, 0U);
        EXPECT_EQ(m_record.Numbers(port), UpTo(kFrames));
        // Not sampled now.
        SendNumbered("far", 1000, kFrames);
        Run(std::chrono::milliseconds(300));
        EXPECT_EQ(m_record.all.size(), kFrames);
        EXPECT_EQ(m_source->ReadAll().size(), 0U);
    }
}

TEST_P(SourceSuite, HandsOverAllThatTheLastCountsSayWhenItIsRemovedUnderTraffic)
{
    const std::uint32_t port = Cable("near", "far");
    Make(16U << 20U);
    if (IsSkipped()) return;
    // From any CPU, while this one removes.
    cpu_set_t all;
    std::memset(&all, 0xff, sizeof all);
    sched_setaffinity(0, sizeof all, &all);
    std::atomic<bool> enough = false;
    std::thread sender([&] {
        support::Injector injector("far");
        const std::vector<support::Bytes> some(50, support::UdpFrame({.size = 100}));
        while (!enough) injector.Send(some);
    });
    for (int round = 0; round < 30; ++round) {
        m_record.all.clear();
        Add(port, {.rate = 1, .headerSize = 64});
        EXPECT_TRUE(Becomes([&] { return m_source->Read(port).pool > 100; }));
        const capture::Counts counts = m_source->Remove(port);
        EXPECT_EQ(m_record.all.size() + counts.drops, counts.pool) << "round " << round;
        const std::size_t handedOver = m_record.all.size();
        m_source->Drain();
        EXPECT_EQ(m_record.all.size(), handedOver);
    }
    enough = true;
    sender.join();
}

TEST_P(SourceSuite, OutlivesAnInterfaceThatVanishes)
{
    const std::uint32_t goes = Cable("near", "far");
    const std::uint32_t stays = Cable("near2", "far2");
    Make();
    if (IsSkipped()) return;
    Add(goes, {.rate = 1, .headerSize = 64});
    Add(stays, {.rate = 1, .headerSize = 64});
    SendNumbered("far", 0, 40);
    support::Network::Ip("link del near");
    SendNumbered("far2", 0, 40);
    EXPECT_TRUE(Settles(stays, 40));
    EXPECT_EQ(m_record.Numbers(goes), UpTo(40));
    EXPECT_EQ(m_record.Numbers(stays), UpTo(40));
    // Nothing to do: the loop is not woken over and over.
    m_loop.restart();
    const std::size_t handlers = m_loop.run_for(std::chrono::milliseconds(300));
    EXPECT_LT(handlers, 10U);
    const capture::Counts counts = m_source->Remove(goes);
    EXPECT_EQ(counts.pool, 40U);
    EXPECT_EQ(counts.drops, 0U);
    SendNumbered("far2", 40, 10);
    EXPECT_TRUE(Settles(stays, 50));
}

TEST_P(SourceSuite, GoesOnWhenAnInterfaceComesUpAgain)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    constexpr std::uint64_t kEach = 10;
    support::Network::Ip("link set near down");
    Add(port, {.rate = 1, .headerSize = 64});
    const std::uint64_t before = Received("near");
    for (std::uint64_t round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        support::Network::Ip("link set near down\nlink set near up");
        // The other end sends again only some time after that, and drops what it is given until then. The
        // interface's own counter, not the source, says when.
        const std::uint64_t silent = Received("near");
        ASSERT_TRUE(Becomes([&] {
            SendNumbered("far", kProbe, 1);
            return Received("near") > silent;
        }));
        m_record.all.clear();
        SendNumbered("far", round * kEach, kEach);
        EXPECT_TRUE(Settles(port, Received("near") - before));
        std::vector<std::uint64_t> numbers = m_record.Numbers(port);
        std::erase(numbers, kProbe);
        std::vector<std::uint64_t> expected(kEach);
        std::iota(expected.begin(), expected.end(), round * kEach);
        EXPECT_EQ(numbers, expected);
    }
}

TEST_P(SourceSuite, RefusesAnInterfaceThatIsNotThere)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    EXPECT_THROW(Add(987654, {.rate = 1, .headerSize = 64}), capture::Unavailable);
    Add(port, {.rate = 1, .headerSize = 64});
    SendNumbered("far", 0, 10);
    EXPECT_TRUE(Settles(port, 10));
}

}  // namespace source_suite
