// What the suites of this folder share (see the header).

#include "samples/samples_test.h"

#include <sched.h>

#include <algorithm>
#include <ostream>

#include "support/traffic.h"

namespace samples_tests {

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
