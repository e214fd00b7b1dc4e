// SPDX-License-Identifier: Apache-2.0
// What is said where a capability is missing: what can't be done, and what helps.

#include "manager/process/privileges.h"

#include <string>

#include <gtest/gtest.h>

namespace manager {
namespace {

struct Missing {
    const char* name;
    const char* capability;
    const char* source;
    Machine machine;
    const char* text;
};
void PrintTo(const Missing& missing, std::ostream* out) { *out << missing.name; }

constexpr Machine kNew{6, 18, 2 << 20, 512 << 10};  // with buffers as large as can be asked for

// clang-format off
const Missing kMissing[] = {
    {"NoProgramAtAQueueingDiscipline", "CAP_NET_ADMIN", "ebpf-clsact", kNew,
     "without CAP_NET_ADMIN no sampling program can be put at an interface, so no packets are sampled; start "
     "sflow-mgr as root, or grant it CAP_NET_ADMIN"},
    {"SmallBuffers", "CAP_NET_ADMIN", "packet-socket", {6, 1, 212992, 212992},
     "without CAP_NET_ADMIN the buffers for datagrams and for news of the kernel's tables are no larger than "
     "net.core.wmem_max and rmem_max, so datagrams are lost earlier in a burst, and tables are read anew more "
     "often; start sflow-mgr as root, or grant it CAP_NET_ADMIN"},
    {"OldKernels", "CAP_BPF", "ebpf-clsact", {5, 18, 4 << 20, 4 << 20},
     "without CAP_BPF kernels before Linux 5.19 take no sampling program at an interface, so no packets are "
     "sampled there; start sflow-mgr as root, or grant it CAP_BPF"},
    {"NoPacketSockets", "CAP_NET_RAW", "packet-socket", kNew,
     "without CAP_NET_RAW packet sockets can't be opened, so no packets are sampled; start sflow-mgr as root, or "
     "grant it CAP_NET_RAW"},
    {"NothingWithLargeBuffers", "CAP_NET_ADMIN", "packet-socket", kNew, ""},
    {"NothingOnNewKernels", "CAP_BPF", "ebpf-tcx", kNew, ""},
    {"NothingFromTheFirstThatNeedsItNot", "CAP_BPF", "ebpf-clsact", {5, 19, 0, 0}, ""},
};
// clang-format on

class WithoutACapability : public testing::TestWithParam<Missing> {};

TEST_P(WithoutACapability, WhatCannotBeDoneIsSaidAndWhatHelps)
{
    EXPECT_EQ(GetParam().text,
              WithoutCapability(GetParam().capability, GetParam().source, GetParam().machine));
}

TEST(ThisMachineTest, IsRead)
{
    const Machine machine = ThisMachine();
    EXPECT_GE(machine.kernelMajor, 4);
    EXPECT_GT(machine.receiveLimit, 0U);
    EXPECT_GT(machine.sendLimit, 0U);
}

INSTANTIATE_TEST_SUITE_P(, WithoutACapability, testing::ValuesIn(kMissing),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace manager
