// SPDX-License-Identifier: Apache-2.0
// The suites' own collector: that it complains, since the others rely on that.

#include <gtest/gtest-spi.h>

#include <optional>

#include "samples/samples_test.h"

namespace samples_tests {
namespace {

class CollectorTest : public SamplesTest {
protected:
    void SetUp() override
    {
        SamplesTest::SetUp();
        if (IsSkipped()) return;
        if (const std::string why = support::WhyNotSource("packet-socket"); !why.empty()) GTEST_SKIP() << why;
        MakeBridge(2);
    }
    /// A frame's sample in a datagram of its own.
    static void Sample(Collector& collector)
    {
        const std::size_t before = collector.Flows().size();
        Injector("h1").Send(support::UdpFrame({}));
        collector.AwaitFlows(before + 1);
    }
    /// Samples p1 for a collector at the port.
    void StartAt(std::uint16_t port)
    {
        Start();
        TheAgent().AddCollector("c1", port);
        TheAgent().Update("p1", {.flows = "c1"});
    }
};

TEST_F(CollectorTest, ComplainsAboutADatagramThatIsTooLarge)
{
    std::optional<Collector> collector(std::in_place, 100);
    StartAt(collector->Port());
    Sample(*collector);
    EXPECT_NONFATAL_FAILURE(collector.reset(), "m_size");
}

TEST_F(CollectorTest, ComplainsAboutAnotherAgent)
{
    std::optional<Collector> collector(std::in_place);
    StartAt(collector->Port());
    TheAgent().SetAddress("192.0.2.10");
    Sample(*collector);
    EXPECT_NONFATAL_FAILURE(collector.reset(), "kAgentAddress");
}

TEST_F(CollectorTest, ComplainsAboutSequencesThatBeginAgainUnaskedOfDatagramsAndOfSamples)
{
    std::optional<Collector> collector(std::in_place);
    StartAt(collector->Port());
    TheAgent().Update("wide", {.flows = "c1"});
    Sample(*collector);
    // An index of more than 24 bits makes all samples expanded, and all sequences new.
    Network::Ip("link add wide index 16777217 type veth peer name far\nlink set wide up");
    TheAgent().AwaitMetric("sflow_interface_sampled{interface=\"wide\"}", 1);
    Sample(*collector);
    testing::TestPartResultArray complaints;
    {
        const testing::ScopedFakeTestPartResultReporter reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &complaints);
        collector.reset();
    }
    ASSERT_EQ(complaints.size(), 2);
    EXPECT_THAT(complaints.GetTestPartResult(0).message(), testing::HasSubstr("now.sequence"));
    EXPECT_THAT(complaints.GetTestPartResult(1).message(), testing::HasSubstr("of interface"));
}

}  // namespace
}  // namespace samples_tests
