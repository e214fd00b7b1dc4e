// SPDX-License-Identifier: Apache-2.0
// What only the clsact hooks of the eBPF source have: filters that the kernel keeps when the process is gone,
// at a qdisc that others use too, and that are told from others' without privileges.

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "capture/ebpf/clsact_claim.h"
#include "capture/ebpf_other_process.h"
#include "capture/ebpf_world.h"
#include "support/few_files.h"

namespace {

using capture::EbpfHook;
using capture::Unavailable;
using support::Network;
using testing::HasSubstr;
using testing::Not;

/// What a running manager has at most, and what it needs to detach.
constexpr std::array kKept{CAP_NET_RAW, CAP_NET_ADMIN, CAP_BPF, CAP_PERFMON};

/// For its lifetime, only these capabilities are in effect.
class Effective {
public:
    template <typename Range>
    explicit Effective(const Range& wanted)
    {
        ::syscall(SYS_capget, &m_header, m_before.data());
        auto now = m_before;
        for (auto& word : now) word.effective = 0;
        for (const auto each : wanted) {
            const auto capability = static_cast<std::uint32_t>(each);
            now[CAP_TO_INDEX(capability)].effective |= CAP_TO_MASK(capability);
        }
        EXPECT_EQ(::syscall(SYS_capset, &m_header, now.data()), 0);
    }
    Effective(const Effective&) = delete;
    Effective& operator=(const Effective&) = delete;
    ~Effective() { ::syscall(SYS_capset, &m_header, m_before.data()); }

private:
    __user_cap_header_struct m_header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    std::array<__user_cap_data_struct, 2> m_before{};
};

class EbpfClsactTest : public EbpfWorld {
protected:
    void SetUp() override
    {
        EbpfWorld::SetUp();
        if (!IsSkipped()) Start({}, EbpfHook::kClsact);
    }

    static std::string Filters(const std::string& device, const std::string& hook = "ingress")
    {
        return Network::Run({"tc", "filter", "show", "dev", device, hook});
    }
    static bool HasClsact(const std::string& device)
    {
        return Network::Run({"tc", "qdisc", "show", "dev", device}).find("clsact") != std::string::npos;
    }
    // Another process's program, of the old kind; throws where the kernel has none.
    static void AddForeign(const std::string& device, const std::string& hook,
                           const std::vector<std::string>& place)
    {
        std::vector<std::string> words{"tc", "filter", "replace", "dev", device, hook};
        words.insert(words.end(), place.begin(), place.end());
        words.insert(words.end(), {"bpf", "bytecode", "1,6 0 0 0,"});
        Network::Run(words);
    }
    static const std::vector<std::string>& OurPlace()
    {
        static const std::vector<std::string> place{"prio", "1", "handle", "0x5f10", "protocol", "all"};
        return place;
    }
    /// Whom another manager would see here.
    static pid_t OtherManager() { return capture::ClsactClaim().Other().value_or(0); }
    // Adds the interface to the source, and says why that could not be.
    std::string WhyNotAdd(std::uint32_t ifIndex)
    {
        source->Remove(ifIndex);
        return WhyNot(ifIndex, {.rate = 1, .headerSize = 128});
    }
    // The filter goes beside the loop, and then the qdisc.
    void ExpectNoFilter(const std::string& device, const std::string& hook = "ingress")
    {
        EXPECT_TRUE(Comes([&] { return Filters(device, hook).empty(); })) << Filters(device, hook);
    }
    void ExpectNoClsact(const std::string& device)
    {
        EXPECT_TRUE(Comes([&] { return !HasClsact(device); }));
    }
    // Removes the interface, and returns when nothing of ours is left to be done there: what is asked for
    // later is done later.
    void RemoveAndAwait(std::uint32_t ifIndex)
    {
        source->Remove(ifIndex);
        if (ifIndex == left) return;
        Add(left, {.rate = 1, .headerSize = 128});
        source->Remove(left);
        ExpectNoFilter("left");
        ExpectNoClsact("left");
    }
};

TEST_F(EbpfClsactTest, SamplesAlike)
{
    EXPECT_EQ(source->Kind(), "ebpf-clsact");
    Add(right, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    Cross(20);
    support::Injector("right").Send(Frames(5));
    EXPECT_TRUE(support::Becomes([&] { return source->Read(right).pool == 25; }));
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 25U);
    EXPECT_EQ(sink.samples[19].pool, 20U);
    EXPECT_TRUE(sink.samples[24].egress);
    source->Remove(right);
    ExpectNoClsact("right");
}

TEST_F(EbpfClsactTest, LeavesAQdiscThatWasThereBefore)
{
    Network::Run({"tc", "qdisc", "add", "dev", "right", "clsact"});
    Add(right, {.rate = 1, .headerSize = 128});
    EXPECT_NE(Filters("right").find("sflow_ingress"), std::string::npos);
    RemoveAndAwait(right);
    EXPECT_EQ(Filters("right"), "");
    EXPECT_TRUE(HasClsact("right")) << "it was there before";
}

TEST_F(EbpfClsactTest, KeepsAQdiscThatSomebodyElseHasComeToUse)
{
    Add(right, {.rate = 1, .headerSize = 128});
    AddForeign("right", "egress", {"prio", "7", "protocol", "all"});
    RemoveAndAwait(right);
    EXPECT_EQ(Filters("right"), "");
    EXPECT_TRUE(HasClsact("right"));
}

TEST_F(EbpfClsactTest, KeepsAQdiscThatSomebodyElseHasMadeAnew)
{
    Add(right, {.rate = 1, .headerSize = 128});
    Network::Run({"tc", "qdisc", "del", "dev", "right", "clsact"});
    Network::Run({"tc", "qdisc", "add", "dev", "right", "clsact"});
    RemoveAndAwait(right);
    EXPECT_TRUE(HasClsact("right"));
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(3);
    RemoveAndAwait(right);
    EXPECT_TRUE(HasClsact("right"));
}

TEST_F(EbpfClsactTest, RestsWithoutAHeartbeatAndWakesWithIt)
{
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(3);
    support::Injector injector("left");
    // The test's time stands still, so no heartbeat comes: some two seconds on nothing is counted.
    const auto rests = [&] {
        const auto before = source->Read(right).pool;
        injector.Send(Frames(1));
        return source->Read(right).pool == before;
    };
    EXPECT_TRUE(support::Becomes(rests));
    timers.Advance(std::chrono::milliseconds(500));
    Cross(3);
}

TEST_F(EbpfClsactTest, LeavesNothingWhenDestroyed)
{
    Add(right, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    source.reset();
    EXPECT_FALSE(HasClsact("right"));
}

TEST_F(EbpfClsactTest, DetachesWithThePrivilegesOfARunningManager)
{
    const Effective kept(kKept);
    Add(right, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    EXPECT_THAT(Filters("right", "egress"), HasSubstr("sflow_egress"));
    Change(right, {.rate = 1, .headerSize = 128, .ingress = true, .egress = false});
    ExpectNoFilter("right", "egress");
    EXPECT_THAT(Filters("right"), HasSubstr("sflow_ingress"));
    Cross(3);
    support::Injector("right").Send(Frames(5));
    Cross(3);
    EXPECT_EQ(source->Remove(right).pool, 6U) << "nothing that left";
    ExpectNoFilter("right");
    ExpectNoClsact("right");
}

TEST_F(EbpfClsactTest, SaysOnceThatAFilterStaysAndDetachesItAsSoonAsItMay)
{
    if (const char* why = support::WhyNotWithoutFiles(); *why != 0) GTEST_SKIP() << why;
    Add(right, {.rate = 1, .headerSize = 128});
    testing::internal::CaptureStderr();
    {
        const support::FewFiles none(0);  // so no filter can be asked for
        source->Remove(right);
        for (int beat = 0; beat < 3; ++beat) {
            timers.Advance(std::chrono::milliseconds(500));
            EXPECT_NE(WhyNotAdd(left), "")
                << "asked for after the end at the other one, and so done after it";
        }
    }
    const std::string said = testing::internal::GetCapturedStderr();
    const std::string fault = "our filter stays at interface " + std::to_string(right) +
                              ", ingress, and is tried again: Too many open files";
    EXPECT_THAT(said, HasSubstr(fault));
    EXPECT_THAT(said.substr(said.find(fault) + 1), Not(HasSubstr("our filter")));
    EXPECT_THAT(Filters("right"), HasSubstr("sflow_ingress"));
    EXPECT_TRUE(Comes([&] {
        timers.Advance(std::chrono::milliseconds(500));
        return Filters("right").empty() && !HasClsact("right");
    }));
}

TEST_F(EbpfClsactTest, TakesUpAFilterThatStayedWhenTheInterfaceComesBack)
{
    if (const char* why = support::WhyNotWithoutFiles(); *why != 0) GTEST_SKIP() << why;
    Add(right, {.rate = 1, .headerSize = 128});
    {
        const support::FewFiles none(0);
        source->Remove(right);
        EXPECT_NE(WhyNotAdd(left), "") << "asked for after it, and so done after it";
    }
    Add(right, {.rate = 1, .headerSize = 128});
    timers.Advance(std::chrono::milliseconds(500));
    Cross(3);
    source->Remove(right);
    ExpectNoClsact("right");
}

TEST_F(EbpfClsactTest, LeavesWhatSomebodyElseHasPutInItsPlace)
{
    Add(right, {.rate = 1, .headerSize = 128});
    AddForeign("right", "ingress", OurPlace());
    EXPECT_THAT(Filters("right"), Not(HasSubstr("sflow_")));
    const std::string foreign = Filters("right");
    RemoveAndAwait(right);
    EXPECT_EQ(Filters("right"), foreign);
    EXPECT_THAT(WhyNotAdd(right), HasSubstr("File exists"));
    Start({}, EbpfHook::kClsact);
    EXPECT_EQ(Filters("right"), foreign);
}

TEST_F(EbpfClsactTest, RefusesWhatLeavesWhereTheQdiscSeesOnlyWhatEnters)
{
    Network::Run({"tc", "qdisc", "add", "dev", "right", "ingress"});
    Add(right, {.rate = 1, .headerSize = 128});
    EXPECT_THAT(WhyNot(right, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true}),
                HasSubstr("sees nothing that leaves"));
    Cross(3);
    RemoveAndAwait(right);
    EXPECT_EQ(Network::Run({"tc", "filter", "show", "dev", "right", "parent", "ffff:"}), "");
}

TEST_F(EbpfClsactTest, RemovesWhatAKilledProcessLeft)
{
    for (const char* qdisc : {"clsact", "ingress"}) {
        source.reset();
        Network::Run({"tc", "qdisc", "add", "dev", "right", qdisc});
        OtherProcess other(EbpfHook::kClsact, right);
        other.Kill();
        ASSERT_THAT(Filters("right"), HasSubstr("sflow_ingress"));
        const Effective kept(kKept);
        Start({}, EbpfHook::kBest);
        EXPECT_EQ(Filters("right"), "") << qdisc;
        Network::Run({"tc", "qdisc", "del", "dev", "right", qdisc});
    }
}

TEST_F(EbpfClsactTest, LeavesTheFiltersOfAnotherManagerThatLives)
{
    source.reset();
    OtherProcess other(EbpfHook::kClsact, right);
    for (const auto hook : {EbpfHook::kTcx, EbpfHook::kClsact}) {
        Start({}, hook);
        EXPECT_THAT(Filters("right"), HasSubstr("sflow_ingress"));
    }
    EXPECT_THAT(WhyNotAdd(right), HasSubstr("process " + std::to_string(other.Pid())));
    EXPECT_EQ(WhyNotAdd(left), "") << "nobody samples there";
    other.Kill();
    EXPECT_EQ(WhyNotAdd(right), "");
    Cross(3);
    EXPECT_EQ(OtherManager(), ::getpid()) << "its claim is ours now";
}

TEST_F(EbpfClsactTest, IsFoundAliveHoweverOftenSomebodyAsks)
{
    constexpr int kAtOnce = 100, kBeats = 5;
    int known = 0;
    for (int beat = 0; beat < kBeats; ++beat) {
        for (int asked = 0; asked < kAtOnce; ++asked) known += OtherManager() == ::getpid() ? 1 : 0;
        timers.Advance(std::chrono::milliseconds(500));
    }
    EXPECT_EQ(known, kAtOnce * kBeats);
}

TEST_F(EbpfClsactTest, TakesNoStrangersWordForALivingManager)
{
    source.reset();
    OtherProcess killed(EbpfHook::kClsact, right);
    killed.Kill();
    const OtherProcess stranger([] {
        if (::setresuid(65534, 65534, 65534) != 0) throw std::runtime_error("the user stays");
        const capture::ClsactClaim& claim = *new capture::ClsactClaim;
        if (claim.Other()) throw std::runtime_error("somebody has it");
    });
    Start({}, EbpfHook::kClsact);
    EXPECT_EQ(Filters("right"), "");
    EXPECT_EQ(WhyNotAdd(right), "");
}

}  // namespace
