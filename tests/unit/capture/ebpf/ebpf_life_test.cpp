// SPDX-License-Identifier: Apache-2.0
// Attachments of the eBPF source: made, unmade, gone with their interface, their process or its heart.

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <linux/bpf.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "capture/ebpf_other_process.h"
#include "capture/ebpf_world.h"
#include "support/few_files.h"

namespace {

using capture::EbpfHook;
using capture::Unavailable;
using support::Network;

class EbpfLifeTest : public EbpfWorld {
protected:
    // Programs at the interface's tcx ingress.
    static std::uint32_t Attached(std::uint32_t ifIndex)
    {
        bpf_attr attributes;
        std::memset(&attributes, 0, sizeof(attributes));
        attributes.query.target_fd = ifIndex;
        attributes.query.attach_type = 46;
        EXPECT_EQ(::syscall(SYS_bpf, BPF_PROG_QUERY, &attributes, sizeof(attributes)), 0);
        return attributes.query.prog_cnt;
    }
};

TEST_F(EbpfLifeTest, RemovesWithTheLastCountsAndStartsAgainAtZero)
{
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(30);
    const auto last = source->Remove(right);
    EXPECT_EQ(last.pool, 30U);
    EXPECT_EQ(sink.samples.size(), 30U) << "handed over before";
    EXPECT_EQ(source->Read(right).pool, 0U);
    EXPECT_TRUE(source->ReadAll().empty());
    EXPECT_FALSE(source->Sampled(right));
    EXPECT_TRUE(Comes([] { return Attached(support::Network::Index("right")) == 0; }));
    support::Injector("left").Send(Frames(10));

    Add(right, {.rate = 1, .headerSize = 128});
    EXPECT_EQ(source->Read(right).pool, 0U);
    Cross(5);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 35U);
    EXPECT_EQ(sink.samples[30].pool, 1U);
    EXPECT_EQ(sink.samples[34].pool, 5U);
}

TEST_F(EbpfLifeTest, RemovesOneOfTwoWithoutDisturbingTheOther)
{
    Add(right, {.rate = 1, .headerSize = 128});
    Add(left, {.rate = 1, .headerSize = 128, .ingress = false, .egress = true});
    Cross(10);
    source->Remove(left);
    Cross(10);
    source->Drain();
    std::uint64_t pool = 0;
    for (const auto& sample : sink.samples) {
        if (sample.ifIndex == right) {
            EXPECT_EQ(sample.pool, ++pool);
        }
    }
    EXPECT_EQ(pool, 20U);
    EXPECT_EQ(sink.samples.size(), 30U);
}

TEST_F(EbpfLifeTest, RefusesAnInterfaceThatIsNotThereAndForgetsIt)
{
    try {
        Add(9999, {.rate = 1, .headerSize = 128});
        FAIL() << "accepted";
    } catch (const Unavailable& reason) {
        EXPECT_EQ(reason.Why(), Unavailable::Cause::kOther);
        EXPECT_NE(std::string(reason.what()).find("No such device"), std::string::npos) << reason.what();
    }
    EXPECT_TRUE(source->ReadAll().empty());
    EXPECT_EQ(source->Remove(9999).pool, 0U);
}

TEST_F(EbpfLifeTest, SaysWhichPrivilegesAreMissing)
{
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            if (::setresuid(65534, 65534, 65534) != 0) ::_exit(1);
            (void)capture::MakeEbpfSource(loop, timers, sink, {}, EbpfHook::kBest);
            ::_exit(2);
        } catch (const Unavailable& reason) {
            const bool named = std::string(reason.what()).find("CAP_BPF") != std::string::npos;
            ::_exit(reason.Why() == Unavailable::Cause::kPermission && named ? 0 : 3);
        }
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: the user stays, 2: accepted, 3: another cause";
}

TEST_F(EbpfLifeTest, KeepsTheCountsOfAnInterfaceThatIsDeleted)
{
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(12);
    Network::Ip("link delete right\n");
    EXPECT_EQ(source->Read(right).pool, 12U);
    EXPECT_EQ(source->Remove(right).pool, 12U);
    EXPECT_EQ(sink.samples.size(), 12U);
}

TEST_F(EbpfLifeTest, LeavesAnInterfaceThatHasMovedToAnotherNamespaceWhenRemoved)
{
    const Network::Host host;
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(12);
    Network::Ip("link set right netns " + std::to_string(host.Pid()) + "\n");
    const auto last = source->Remove(right);  // the link goes with the interface until it is closed
    EXPECT_EQ(last.pool, 12U);
    EXPECT_TRUE(Comes([&] {
        bool detached = false;
        host.Within([&] { detached = Attached(Network::Index("right")) == 0; });
        return detached;
    }));
    EXPECT_EQ(sink.samples.size(), 12U);
}

TEST_F(EbpfLifeTest, LeavesNothingWhenDestroyed)
{
    Add(right, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    source.reset();
    EXPECT_EQ(Attached(right), 0U);
}

TEST_F(EbpfLifeTest, LeavesNoLinkBehindWhenTheProcessIsKilled)
{
    OtherProcess other(EbpfHook::kTcx, right);
    EXPECT_EQ(Attached(right), 1U);
    other.Kill();
    EXPECT_TRUE(support::Becomes([&] { return Attached(right) == 0; }));
}

TEST_F(EbpfLifeTest, WorksBesideAnotherSource)
{
    const OtherProcess other(EbpfHook::kTcx, right);
    Add(right, {.rate = 1, .headerSize = 128});
    KeepingSink secondSink;
    const auto second = capture::MakeEbpfSource(loop, timers, secondSink, {}, EbpfHook::kTcx);
    second->Add(right, {.rate = 1, .headerSize = 256});
    EXPECT_TRUE(Comes([&] { return second->Sampled(right); }));
    EXPECT_EQ(Attached(right), 3U);
    Cross(40);
    source->Drain();
    second->Drain();
    EXPECT_EQ(sink.samples.size(), 40U);
    EXPECT_EQ(secondSink.samples.size(), 40U);
    EXPECT_EQ(second->Read(right).pool, 40U);
    second->Remove(right);
    Cross(1);
}

TEST_F(EbpfLifeTest, AttachesAndDetachesBesideTheLoop)
{
    source->Add(right, {.rate = 1, .headerSize = 128});
    EXPECT_FALSE(source->Sampled(right)) << "the loop has not run";
    EXPECT_EQ(Attached(right), 0U);
    AwaitSampled(right);
    EXPECT_EQ(Attached(right), 1U);
    source->Remove(right);
    EXPECT_TRUE(Comes([&] { return Attached(right) == 0; }));
}

TEST_F(EbpfLifeTest, CountsNothingBetweenRemovalAndDetachment)
{
    Add(right, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    Cross(10);
    EXPECT_EQ(source->Remove(right).pool, 10U);
    support::Injector("left").Send(Frames(10));
    source->Drain();
    EXPECT_EQ(sink.samples.size(), 10U);
    // Again, before it has been detached: with counts of its own.
    source->Add(right, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    EXPECT_EQ(source->Read(right).pool, 0U);
    AwaitSampled(right);
    Cross(5);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 15U);
    EXPECT_EQ(sink.samples.back().pool, 5U);
    EXPECT_EQ(Attached(right), 1U);
    EXPECT_EQ(source->Remove(right).pool, 5U);
}

TEST_F(EbpfLifeTest, TellsTheSinkWhatTheKernelRefusesLaterAndTriesItAgainWithAChange)
{
    if (const std::string why = support::WhyNotWithoutFiles(); !why.empty()) GTEST_SKIP() << why;
    Add(left, {.rate = 1, .headerSize = 128});  // the thread is there
    const capture::Settings settings{.rate = 1, .headerSize = 128, .ingress = true, .egress = true};
    {
        const support::FewFiles few(1);
        source->Add(right, settings);
        EXPECT_TRUE(Comes([&] { return sink.refused == 1; })) << "one file is not enough for two directions";
        EXPECT_TRUE(source->Sampled(right)) << "in the direction that could be had";
        source->Change(right, settings);
        EXPECT_FALSE(source->Sampled(right)) << "it is tried again";
        EXPECT_TRUE(Comes([&] { return sink.refused == 2; }));
    }
    Cross(3);
    Change(right, settings);
    Cross(3);
    support::Injector("right").Send(Frames(2));
    AwaitPool(right, 8);
    EXPECT_EQ(sink.refused, 2);
    EXPECT_EQ(source->Remove(right).pool, 8U);
}

TEST_F(EbpfLifeTest, ConfiguresAndEndsManyInterfaces)
{
    constexpr int kInterfaces = 300;
    std::string lines;
    for (int i = 0; i < kInterfaces; ++i) lines += "link add d" + std::to_string(i) + " type bridge\n";
    Network::Ip(lines);
    std::vector<std::uint32_t> all;
    for (int i = 0; i < kInterfaces; ++i) all.push_back(Network::Index("d" + std::to_string(i)));
    for (const auto ifIndex : all) source->Add(ifIndex, {.rate = 1000, .ingress = true, .egress = true});
    for (const auto ifIndex : all) AwaitSampled(ifIndex);
    for (const auto ifIndex : all) EXPECT_EQ(Attached(ifIndex), 1U);
    for (const auto ifIndex : all) source->Remove(ifIndex);
    for (const auto ifIndex : all) EXPECT_TRUE(Comes([&] { return Attached(ifIndex) == 0; }));
}

}  // namespace
