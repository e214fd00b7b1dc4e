// SPDX-License-Identifier: Apache-2.0
// What the suites of this folder share (see the header).

#include "samples/samples_test.h"

#include <sched.h>

#include <algorithm>
#include <fstream>
#include <ostream>
#include <stdexcept>

#include "support/traffic.h"

namespace samples_tests {

namespace {

constexpr std::uint8_t kRouter = 0x30;  // the MAC address of the bridge itself

}  // namespace

void SetSwitch(const std::string& name, const std::string& value)
{
    std::ofstream file("/proc/sys/net/" + name);
    file << value;
    file.close();
    if (!file) throw std::runtime_error("can't set " + name);
}

support::FrameOptions ToRouter(const std::string& destination)
{
    const bool six = destination.find(':') != std::string::npos;
    return {.to = kRouter, .source = six ? "2001:db8:a::1" : "10.0.0.1", .destination = destination};
}

SamplesTest::~SamplesTest()
{
    if (HasFailure() && m_agent) GTEST_LOG_(INFO) << "sflow-mgr said:\n" << m_agent->Log();
}

void SamplesTest::SetUp()
{
    if (const std::string why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
    m_network.emplace();
}

void SamplesTest::TearDown()
{
    if (m_agent) {
        EXPECT_EQ(m_agent->Manager().Terminate(), 0) << "sflow-mgr's exit status";
    }
}

void SamplesTest::MakeBridge(int ports, int mtu)
{
    std::vector<std::string> names;
    std::string lines;
    std::string bridge;
    for (int i = 1; i <= ports; ++i) {
        const std::string number = std::to_string(i);
        names.push_back("p" + number);
        Network::Veth("p" + number, "h" + number);
        for (const char* end : {"p", "h"})
            lines += "link set " + (end + number) + " mtu " + std::to_string(mtu) + "\n";
        bridge += "link set dev p" + number + " learning off\nfdb add 02:00:00:00:00:0" + number + " dev p" +
                  number + " master static\n";
    }
    Network::Ip(lines);
    Network::MakeBridge("br0", names);
    Network::Bridge(bridge);
}

void SamplesTest::MakeRouter(const Network::Host& host)
{
    SetSwitch("ipv6/conf/br0/disable_ipv6", "0");
    SetSwitch("ipv6/conf/default/disable_ipv6", "0");
    Network::Ip(
        "link set br0 address 02:00:00:00:00:30\n"
        "addr add 10.0.0.254/24 dev br0\n"
        "addr add 2001:db8:a::254/64 dev br0 nodad\n"
        "link add r0 address 02:00:00:00:00:31 type veth peer name r1 netns " +
        std::to_string(host.Pid()) +
        "\nlink set r0 up\n"
        "addr add 203.0.113.1/28 dev r0\n"
        "addr add 2001:db8:b::1/96 dev r0 nodad\n"
        "neigh add 10.0.0.1 lladdr 02:00:00:00:00:01 nud permanent dev br0\n"
        "neigh add 203.0.113.2 lladdr 02:00:00:00:00:42 nud permanent dev r0\n"
        "neigh add 203.0.113.3 lladdr 02:00:00:00:00:43 nud permanent dev r0\n"
        "neigh add 2001:db8:b::2 lladdr 02:00:00:00:00:42 nud permanent dev r0");
    host.Within([] { Network::Ip("link set r1 up"); });
    support::Await("r0 to have a carrier", [] {
        return Network::Run({"ip", "-o", "link", "show", "r0"}).find("LOWER_UP") != std::string::npos;
    });
    Network::Ip(
        "route add 192.0.2.0/25 via 203.0.113.2\n"
        "route add blackhole 192.0.2.192/26\n"
        "route add 2001:db8:c::/48 via 2001:db8:b::2");
    SetSwitch("ipv4/ip_forward", "1");
    SetSwitch("ipv6/conf/all/forwarding", "1");
}

Agent& SamplesTest::Start(const std::string& source, const std::vector<std::string>& arguments)
{
    m_agent = std::make_unique<Agent>(source, arguments);
    return *m_agent;
}

void SamplesTest::SendFromOneCpu() { support::Pin(0, std::max(0, ::sched_getcpu())); }

void SourceTest::SetUp()
{
    SamplesTest::SetUp();
    if (IsSkipped()) return;
    if (const std::string why = support::WhyNotSource(GetParam().option); !why.empty()) GTEST_SKIP() << why;
}

std::string NameOfSource(const testing::TestParamInfo<SourceRow>& row) { return row.param.name; }

// NOLINTNEXTLINE(readability-identifier-naming): GoogleTest's name
void PrintTo(const SourceRow& row, std::ostream* out) { *out << row.option; }

std::string Text(const DecodedPort& port)
{
    return std::to_string(port.format) + ":" + std::to_string(port.value);
}

}  // namespace samples_tests

namespace support {

// NOLINTBEGIN(readability-identifier-naming): GoogleTest's name
void PrintTo(const DecodedPort& port, std::ostream* out) { *out << port.format << ":" << port.value; }

void PrintTo(const DecodedSwitch& tags, std::ostream* out)
{
    *out << "VLAN " << tags.inputVlan << " priority " << tags.inputPriority << " to " << tags.outputVlan
         << ", " << tags.outputPriority;
}

void PrintTo(const DecodedRouter& router, std::ostream* out)
{
    *out << "by " << router.nextHop << " /" << router.sourceBits << " /" << router.destinationBits;
}
// NOLINTEND(readability-identifier-naming)

}  // namespace support
