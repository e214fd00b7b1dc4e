// SPDX-License-Identifier: Apache-2.0
// When the eBPF source looks into its ring: a packet after silence wakes it, a stream does so by time and
// by fill, and silence does not at all.

#include <chrono>
#include <cstddef>

#include <gtest/gtest.h>

#include "capture/ebpf/waker.h"
#include "capture/ebpf_world.h"

namespace {

using std::chrono::milliseconds;
constexpr milliseconds kSeldom = capture::EbpfWaker::kSeldom;
constexpr milliseconds kOften = capture::EbpfWaker::kOften;

class EbpfWakerTest : public EbpfWorld {
protected:
    void SetUp() override
    {
        EbpfWorld::SetUp();
        if (!IsSkipped()) Add(right, {.rate = 1, .headerSize = 128});
    }
    // Lets the loop run until the sink has so many.
    void Await(std::size_t samples)
    {
        EXPECT_TRUE(support::Becomes([&] {
            loop.poll();
            return sink.samples.size() >= samples;
        }));
        EXPECT_EQ(sink.samples.size(), samples);
    }
    std::size_t Handlers() { return loop.poll(); }
    // As long as it takes to fall asleep.
    void Rest()
    {
        Handlers();
        for (int i = 0; i < 3; ++i) timers.Advance(kSeldom);
    }
};

TEST_F(EbpfWakerTest, HandsALonePacketOverAtOnce)
{
    Handlers();
    Cross(1);
    Await(1);
    EXPECT_EQ(sink.drained, 1);
}

TEST_F(EbpfWakerTest, LooksByTimeWhileAStreamLasts)
{
    Cross(1);
    Await(1);
    Cross(10);
    EXPECT_EQ(Handlers(), 0U) << "no wake-up for what follows the first";
    EXPECT_EQ(sink.samples.size(), 1U);
    timers.Advance(kSeldom - milliseconds(1));
    EXPECT_EQ(sink.samples.size(), 1U);
    timers.Advance(milliseconds(1));
    EXPECT_EQ(sink.samples.size(), 11U);
    EXPECT_EQ(sink.drained, 2);
}

TEST_F(EbpfWakerTest, LooksMoreOftenWhileMuchComes)
{
    Start({.bufferSize = 4 << 20});
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(1);
    Await(1);
    Cross(600);  // 192 bytes each: more than kFew
    EXPECT_EQ(Handlers(), 0U) << "no reason to be woken yet";
    timers.Advance(kOften);
    EXPECT_EQ(sink.samples.size(), 1U) << "that much is to come is not known before the next look";
    timers.Advance(kSeldom - kOften);
    EXPECT_EQ(sink.samples.size(), 601U);
    Cross(10);
    timers.Advance(kOften);
    EXPECT_EQ(sink.samples.size(), 611U);
    Cross(1);
    timers.Advance(kOften);
    EXPECT_EQ(sink.samples.size(), 611U) << "few again";
    timers.Advance(kSeldom - kOften);
    EXPECT_EQ(sink.samples.size(), 612U);
}

TEST_F(EbpfWakerTest, SleepsAfterSilenceAndIsWokenAgain)
{
    Cross(1);
    Await(1);
    EXPECT_TRUE(timers.Advance(kSeldom)) << "nothing there: one more look is to come";
    EXPECT_TRUE(timers.Advance(kSeldom));
    EXPECT_FALSE(timers.Advance(milliseconds(1000))) << "asleep";
    EXPECT_EQ(Handlers(), 0U);
    EXPECT_EQ(sink.drained, 1) << "nothing to say of an empty ring";
    Cross(1);
    Await(2);
}

TEST_F(EbpfWakerTest, IsWokenBetweenItsLastLooks)
{
    Cross(1);
    Await(1);
    timers.Advance(kSeldom);
    Cross(2);
    Await(3);
    timers.Advance(kSeldom);
    Cross(1);
    Await(4);
}

// The loop does not hear of the wake-up: what it was for is taken before it comes to it.
TEST_F(EbpfWakerTest, IsWokenAfterADrainBeforeTheWakeUpIsHeardOf)
{
    Handlers();
    Cross(1);
    EXPECT_TRUE(support::Becomes([&] {
        source->Drain();
        return sink.samples.size() == 1;
    }));
    Rest();
    Cross(1);
    Await(2);
}

TEST_F(EbpfWakerTest, IsWokenAfterAnInterfaceEndedBeforeTheWakeUpIsHeardOf)
{
    Add(left, {.rate = 1, .headerSize = 128});
    Handlers();
    Cross(1);
    EXPECT_TRUE(support::Becomes([&] { return source->Read(right).pool == 1; }));
    source->Remove(left);
    EXPECT_EQ(sink.samples.size(), 1U);
    Rest();
    Cross(1);
    Await(2);
}

TEST_F(EbpfWakerTest, IsWokenAfterADrainBetweenItsLastLooks)
{
    Cross(1);
    Await(1);
    timers.Advance(kSeldom);
    Cross(1);
    EXPECT_TRUE(support::Becomes([&] {
        source->Drain();
        return sink.samples.size() == 2;
    }));
    Rest();
    Cross(1);
    Await(3);
}

TEST_F(EbpfWakerTest, IsWokenWhenTheRingFills)
{
    Start({.bufferSize = 1 << 20});
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(1);
    Await(1);
    // A quarter of the ring is 1,365 records of 192 bytes.
    Cross(1200);
    EXPECT_EQ(Handlers(), 0U);
    Cross(400);
    Await(1601);
    Cross(10);
    EXPECT_EQ(Handlers(), 0U) << "once, not again for each that follows";
    Cross(3000);
    Await(1601 + 3010);
    EXPECT_EQ(source->Read(right).drops, 0U);
}

}  // namespace
