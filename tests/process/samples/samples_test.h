// SPDX-License-Identifier: Apache-2.0
// What the suites of this folder share: a network of the test's own with a bridge, agents and collectors in
// it, and both sources of packets as rows. Each test is skipped if the kernel does not allow its source.

#ifndef SAMPLES_SAMPLES_TEST_H
#define SAMPLES_SAMPLES_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "samples/agent.h"
#include "samples/collector.h"
#include "support/kernel.h"
#include "support/network.h"

namespace samples_tests {

using support::Bytes;
using support::CountersOf;
using support::DecodedCounters;
using support::DecodedFlow;
using support::DecodedPort;
using support::Injector;
using support::KernelCounters;
using support::Network;
using support::Received;
using support::WallTime;

/// Sets /proc/sys/net/NAME of this namespace. Throws std::runtime_error.
void SetSwitch(const std::string& name, const std::string& value);

/// A frame for the router that MakeRouter makes, to an address of IPv4 or IPv6.
support::FrameOptions ToRouter(const std::string& destination);

/// Delivered on this machine, or made here.
inline constexpr DecodedPort kInternal{0, 0x3FFFFFFF};

class SamplesTest : public testing::Test {
protected:
    ~SamplesTest() override;
    void SetUp() override;
    /// Ends the manager, which must end normally.
    void TearDown() override;

    /// A bridge br0 with the ports p1 to pN; what h1 to hN send enters there. The address Mac(i) is behind
    /// port i and nowhere else: nothing is learned.
    static void MakeBridge(int ports, int mtu = 1500);
    /// No host has an address of that number: the bridge floods what is sent there.
    static constexpr std::uint8_t kNobody = 0xEE;

    /// Gives the bridge a router's address, and a network in the host's namespace behind r0 (of Mac(0x31)),
    /// whose far end there is r1. Frames of ToRouter come from a neighbour of the bridge's; 203.0.113.2 and
    /// .3 and 2001:db8:b::2 are neighbours behind r0; 192.0.2.0/25 and 2001:db8:c::/48 are behind the first
    /// and the last of them; 192.0.2.192/26 is a black hole.
    static void MakeRouter(const Network::Host& host);

    /// Starts the manager. Once in a test.
    Agent& Start(const std::string& source = "packet-socket", const std::vector<std::string>& arguments = {});
    [[nodiscard]] Agent& TheAgent() { return *m_agent; }

    /// From now on this thread sends from one CPU: eBPF counts on each CPU by itself, and the pool of a
    /// sample lacks what another one has counted since it drew something.
    static void SendFromOneCpu();

private:
    std::optional<Network> m_network;
    std::unique_ptr<Agent> m_agent;
};

/// A source of packets that a test runs with.
struct SourceRow {
    const char* name;
    const char* option;  // of --source
};

class SourceTest : public SamplesTest, public testing::WithParamInterface<SourceRow> {
protected:
    void SetUp() override;
    Agent& StartSource(const std::vector<std::string>& arguments = {})
    {
        return Start(GetParam().option, arguments);
    }
    [[nodiscard]] static bool IsEbpf() { return std::string_view(GetParam().option).starts_with("ebpf"); }
};

/// `INSTANTIATE_TEST_SUITE_P(, Suite, BothSources(), NameOfSource)`.
inline auto BothSources()
{
    return testing::Values(SourceRow{"Ebpf", "ebpf"}, SourceRow{"PacketSocket", "packet-socket"});
}
/// With both hooks of eBPF.
inline auto AllSources()
{
    return testing::Values(SourceRow{"Ebpf", "ebpf"}, SourceRow{"EbpfClsact", "ebpf-clsact"},
                           SourceRow{"PacketSocket", "packet-socket"});
}
std::string NameOfSource(const testing::TestParamInfo<SourceRow>& row);
void PrintTo(const SourceRow& row, std::ostream* out);

/// "0:5" and so on, for messages.
std::string Text(const DecodedPort& port);

}  // namespace samples_tests

namespace support {
void PrintTo(const DecodedPort& port, std::ostream* out);
void PrintTo(const DecodedSwitch& tags, std::ostream* out);
void PrintTo(const DecodedRouter& router, std::ostream* out);
}  // namespace support

#endif
