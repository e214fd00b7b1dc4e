// SPDX-License-Identifier: Apache-2.0
// The reasons' names: those of the running kernel, and those of kernels that a test makes up.

#include <bpf/btf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <boost/asio/io_context.hpp>

#include "capture/drop_source.h"
#include "capture/drops/reasons.h"
#include "capture/drops_world.h"
#include "support/manual_timers.h"

namespace {

using capture::DropReasons;
using capture::Unavailable;
using Values = std::vector<std::pair<const char*, int>>;

struct FreeMadeTypes {
    void operator()(btf* types) const { btf__free(types); }
};
using MadeTypes = std::unique_ptr<btf, FreeMadeTypes>;

void AddEnumeration(btf* types, const char* name, const Values& values)
{
    ASSERT_GT(btf__add_enum(types, name, 4), 0);
    for (const auto& [each, value] : values) ASSERT_EQ(btf__add_enum_value(types, each, value), 0);
}

/// The kernel's types in a folder of the test's own.
class DropReasonsTest : public testing::Test {
protected:
    void SetUp() override
    {
        m_folder = std::filesystem::temp_directory_path() / ("drop_reasons_" + std::to_string(::getpid()));
        std::filesystem::create_directory(m_folder);
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    void Save(const btf* types, const std::string& name) const
    {
        std::uint32_t size = 0;
        const void* bytes = btf__raw_data(types, &size);
        std::ofstream(m_folder / name, std::ios::binary).write(static_cast<const char*>(bytes), size);
    }

    // A kernel with this tracepoint and these reasons.
    MadeTypes Kernel(int arguments, const Values& reasons) const
    {
        MadeTypes types(btf__new_empty());
        const int word = btf__add_int(types.get(), "int", 4, BTF_INT_SIGNED);
        if (!reasons.empty()) AddEnumeration(types.get(), "skb_drop_reason", reasons);
        AddEnumeration(types.get(), "skb_drop_reason_subsys",
                       {{"SKB_DROP_REASON_SUBSYS_CORE", 0},
                        {"SKB_DROP_REASON_SUBSYS_MAC80211_UNUSABLE", 1},
                        {"SKB_DROP_REASON_SUBSYS_OPENVSWITCH", 2},
                        {"SKB_DROP_REASON_SUBSYS_NUM", 3}});
        AddEnumeration(types.get(), "mac80211_drop_reason",
                       {{"RX_DROP_U_REPLAY", 0x10003}, {"RX_CONTINUE", 1}});
        const int function = btf__add_func_proto(types.get(), 0);
        for (int i = 0; i < arguments + 1; ++i) btf__add_func_param(types.get(), "", word);
        btf__add_typedef(types.get(), "btf_trace_kfree_skb", btf__add_ptr(types.get(), function));
        return types;
    }

    [[nodiscard]] std::string Refusal() const
    {
        try {
            const DropReasons reasons(m_folder);
            return "";
        } catch (const Unavailable& reason) {
            EXPECT_EQ(reason.Why(), Unavailable::Cause::kKernel);
            return reason.what();
        }
    }

    std::filesystem::path m_folder;
};

const Values kReasons{{"SKB_NOT_DROPPED_YET", 0},
                      {"SKB_DROP_REASON_NOT_SPECIFIED", 9},
                      {"SKB_DROP_REASON_NO_SOCKET", 4},
                      {"SKB_DROP_REASON_MAX", 10},
                      {"SKB_DROP_REASON_SUBSYS_MASK", static_cast<int>(0xffff0000)}};

TEST_F(DropReasonsTest, NamesAreThoseOfTheKernel)
{
    Save(Kernel(3, kReasons).get(), "vmlinux");
    DropReasons reasons(m_folder);
    EXPECT_FALSE(reasons.HasSocket());
    EXPECT_EQ(reasons.All(), (std::map<std::uint32_t, std::string>{{0, "SKB_NOT_DROPPED_YET"},
                                                                   {4, "NO_SOCKET"},
                                                                   {9, "NOT_SPECIFIED"},
                                                                   {0x10003, "RX_DROP_U_REPLAY"}}));
    EXPECT_EQ(reasons.NameOf(4), "NO_SOCKET");
    EXPECT_EQ(reasons.NameOf(10), "10");
    EXPECT_EQ(reasons.NameOf(0x10003), "RX_DROP_U_REPLAY");
    EXPECT_EQ(reasons.NameOf(0x10004), "MAC80211_UNUSABLE_4");
    EXPECT_EQ(reasons.NameOf(0x70004), "458756");
}

TEST_F(DropReasonsTest, TheSocketIsTheFourthArgument)
{
    Save(Kernel(4, kReasons).get(), "vmlinux");
    EXPECT_TRUE(DropReasons(m_folder).HasSocket());
}

TEST_F(DropReasonsTest, AModuleThatComesLaterHasItsNames)
{
    const MadeTypes kernel = Kernel(4, kReasons);
    Save(kernel.get(), "vmlinux");
    DropReasons reasons(m_folder);
    const std::string_view early = reasons.NameOf(0x20001);
    EXPECT_EQ(early, "OPENVSWITCH_1");
    const MadeTypes module(btf__new_empty_split(kernel.get()));
    AddEnumeration(
        module.get(), "ovs_drop_reason",
        {{"__OVS_DROP_REASON", 0x20000}, {"OVS_DROP_LAST_ACTION", 0x20001}, {"OVS_DROP_METER", 0x20005}});
    Save(module.get(), "openvswitch");
    EXPECT_EQ(reasons.NameOf(0x20005), "OVS_DROP_METER");
    EXPECT_EQ(reasons.NameOf(0x20001), "OPENVSWITCH_1") << "a name that was told stays";
    EXPECT_EQ(early, "OPENVSWITCH_1");
    EXPECT_EQ(reasons.NameOf(0x20000), "OPENVSWITCH_0");
}

TEST_F(DropReasonsTest, KernelsThatDoNotSayAreNamed)
{
    EXPECT_EQ(Refusal(), "the kernel's types can't be read from " + (m_folder / "vmlinux").string() +
                             ": No such file or directory; needs a kernel with CONFIG_DEBUG_INFO_BTF");
    std::ofstream(m_folder / "vmlinux") << "no types";
    EXPECT_NE(Refusal(), "");
    const std::string none = "the kernel does not tell why it drops packets; Linux 5.17 and later do";
    Save(Kernel(2, kReasons).get(), "vmlinux");
    EXPECT_EQ(Refusal(), none);
    Save(Kernel(3, {}).get(), "vmlinux");
    EXPECT_EQ(Refusal(), none);
}

TEST_F(DropReasonsTest, WhatSocketsHaveIsNoDrop)
{
    for (const char* name :
         {"SKB_CONSUMED", "SKB_NOT_DROPPED_YET", "SOCKET_CLOSE", "TCP_OLD_DATA", "PACKET_SOCK_ERROR"})
        EXPECT_EQ(capture::MeaningOf(name), kNeverDrop) << name;
    for (const char* name : {"NOT_SPECIFIED", "QUEUE_PURGE"})
        EXPECT_EQ(capture::MeaningOf(name), kDropAtDevice) << name;
    for (const char* name : {"NO_SOCKET", "TCP_OFO_DROP", "SOCKET_RCVBUFF", "a reason to come"})
        EXPECT_EQ(capture::MeaningOf(name), kAlwaysDrop) << name;
}

TEST(DropReasonsOfThisKernel, HaveNames)
{
    if (::access("/sys/kernel/btf/vmlinux", R_OK) != 0)
        GTEST_SKIP() << "the kernel does not describe its types";
    DropReasons reasons("/sys/kernel/btf");
    std::vector<std::string> names;
    for (const auto& [reason, name] : reasons.All()) names.push_back(name);
    EXPECT_EQ(std::ranges::count(names, "NO_SOCKET"), 1);
    EXPECT_EQ(std::ranges::count(names, "NOT_SPECIFIED"), 1);
    EXPECT_EQ(std::ranges::count(names, "MAX"), 0);
    EXPECT_GT(names.size(), 50U);
}

class NoDrops final : public capture::DropSink {
public:
    void OnDrops(std::span<const capture::Drop>) noexcept override {}
    void OnDrained() noexcept override {}
};

// What a source says that is made by a process with these capabilities only, by their bits.
std::string MadeWith(std::uint64_t capabilities)
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return "no pipe";
    const pid_t child = ::fork();
    if (child == 0) {
        std::string text = "it works";
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        std::array<__user_cap_data_struct, 2> words{};
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i].effective = words[i].permitted = static_cast<std::uint32_t>(capabilities >> 32 * i);
        if (::syscall(SYS_capset, &header, words.data()) != 0) text = "not as many";
        try {
            boost::asio::io_context loop;
            support::ManualTimers timers;
            NoDrops sink;
            const auto source = capture::MakeDropSource(loop, timers, sink, {});
        } catch (const Unavailable& reason) {
            text = std::string(reason.Why() == Unavailable::Cause::kPermission ? "permission: " : "other: ") +
                   reason.what();
        }
        (void)!::write(ends[1], text.data(), text.size());
        ::_exit(0);
    }
    ::close(ends[1]);
    std::array<char, 400> text{};
    if (::read(ends[0], text.data(), text.size() - 1) < 0) text = {};
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return text.data();
}

constexpr std::uint64_t kBpf = 1ULL << CAP_BPF, kPerfmon = 1ULL << CAP_PERFMON;

TEST(DropSourceWithFewPrivileges, SaysWhichItNeeds)
{
    if (::access("/sys/kernel/btf/vmlinux", R_OK) != 0)
        GTEST_SKIP() << "the kernel does not describe its types";
    const std::string said = MadeWith(0);
    EXPECT_TRUE(said.starts_with("permission: ")) << said;
    EXPECT_NE(said.find("CAP_BPF and CAP_PERFMON"), std::string::npos) << said;
}

TEST(DropSourceWithFewPrivileges, NeedsTwo)
{
    if (::geteuid() != 0 || ::access("/sys/kernel/btf/vmlinux", R_OK) != 0)
        GTEST_SKIP() << "needs root, and a kernel that describes its types";
    if (MadeWith(kBpf | kPerfmon) == "not as many") GTEST_SKIP() << "this root has not all capabilities";
    EXPECT_EQ(MadeWith(kBpf | kPerfmon), "it works");
    EXPECT_TRUE(MadeWith(kBpf).starts_with("permission: ")) << MadeWith(kBpf);
    EXPECT_TRUE(MadeWith(kPerfmon).starts_with("permission: ")) << MadeWith(kPerfmon);
}

TEST(DropSourceWithoutTypes, IsUnavailable)
{
    boost::asio::io_context loop;
    support::ManualTimers timers;
    NoDrops sink;
    EXPECT_THROW((void)capture::MakeDropSource(loop, timers, sink, {.kernelTypes = "/nonexistent"}),
                 Unavailable);
}

}  // namespace
