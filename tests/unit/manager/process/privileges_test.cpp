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
    const char* text;
};
void PrintTo(const Missing& missing, std::ostream* out) { *out << missing.name; }

// clang-format off
const Missing kMissing[] = {
    {"NoProgramAtAQueueingDiscipline", "CAP_NET_ADMIN", "ebpf-clsact",
     "without CAP_NET_ADMIN no sampling program can be put at an interface, so no packets are sampled; start "
     "sflow-mgr as root, or grant it CAP_NET_ADMIN"},
    {"SmallBuffers", "CAP_NET_ADMIN", "packet-socket",
     "without CAP_NET_ADMIN the buffers for datagrams and for news of the kernel's tables are no larger than "
     "net.core.wmem_max and rmem_max, so datagrams are lost earlier in a burst, and tables are read anew more "
     "often; start sflow-mgr as root, or grant it CAP_NET_ADMIN"},
    {"OldKernels", "CAP_BPF", "ebpf-clsact",
     "without CAP_BPF kernels before Linux 5.19 take no sampling program at an interface, so no packets are "
     "sampled there; start sflow-mgr as root, or grant it CAP_BPF"},
    {"NoPacketSockets", "CAP_NET_RAW", "packet-socket",
     "without CAP_NET_RAW packet sockets can't be opened, so no packets are sampled; start sflow-mgr as root, or "
     "grant it CAP_NET_RAW"},
};
// clang-format on

class WithoutACapability : public testing::TestWithParam<Missing> {};

TEST_P(WithoutACapability, WhatCannotBeDoneIsSaidAndWhatHelps)
{
    EXPECT_EQ(GetParam().text, WithoutCapability(GetParam().capability, GetParam().source));
}

INSTANTIATE_TEST_SUITE_P(, WithoutACapability, testing::ValuesIn(kMissing),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace manager
