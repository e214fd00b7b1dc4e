// SPDX-License-Identifier: Apache-2.0
// What is sent to try the way to a collector, and what is said of what the network answers.

#include "manager/export/collector_test.h"

#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>

#include "manager/export/world.h"
#include "support/run_until.h"
#include "support/sflow_decoder.h"

namespace exporter_test {
namespace {

using manager::CollectorTested;
using manager::CollectorTests;
using testing::HasSubstr;
using Outcome = CollectorTested::Outcome;

class TestOfCollector : public ExporterTest {
protected:
    CollectorTested Try(const std::string& address, const manager::SendSettings& send = {})
    {
        std::optional<CollectorTested> result;
        EXPECT_TRUE(m_tests.Start("c1", Settings(address, 6343, 1400), send, Export().Head(),
                                  [&](const CollectorTested& tested) { result = tested; }));
        EXPECT_TRUE(support::RunUntil(m_loop, [&] { return result.has_value(); }));
        return result.value_or(CollectorTested{});
    }

    boost::asio::io_context m_loop;
    const std::unique_ptr<base::Timers> m_timers = base::MakeTimers(m_loop);
    CollectorTests m_tests{*m_timers, 0};
};

TEST_F(TestOfCollector, ArrivesAsADatagramOfASubAgentOfItsOwn)
{
    RawCollector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    SendOne(stream);
    ASSERT_EQ(collector.Read(5000).size(), 1U);
    for (std::uint32_t sequence = 1; sequence <= 2; ++sequence) {
        const CollectorTested tested = Try("127.0.0.2");
        EXPECT_EQ(tested.outcome, Outcome::kSilent);
        EXPECT_THAT(tested.Text(), HasSubstr("sent to 127.0.0.2:6343"));
        EXPECT_EQ(tested.Command(),
                  "tshark -i any -f 'udp port 6343' -Y 'sflow_245.sub_agent_id == 4294967295'");
        const std::vector<Bytes> datagrams = collector.Read(5000);
        ASSERT_EQ(datagrams.size(), 1U);
        EXPECT_EQ(datagrams[0].size(), tested.size);
        const auto decoded = support::DecodeDatagram(datagrams[0]);
        EXPECT_EQ(decoded.subAgent, CollectorTests::kSubAgent);
        EXPECT_EQ(decoded.sequence, sequence);
        EXPECT_EQ(decoded.samples.size(), 1U);
    }
    EXPECT_EQ(stream.Status().datagrams, 1U) << "the stream knows nothing of it";
}

TEST_F(TestOfCollector, WithTheSubAgentsNumberTakenUsesAnother)
{
    Export().Restart(CollectorTests::kSubAgent);
    EXPECT_EQ(Try("127.0.0.2").datagram.subAgent, CollectorTests::kOtherSubAgent);
}

TEST_F(TestOfCollector, SaysThatNoProgramListens)
{
    const CollectorTested tested = Try("127.0.0.2");
    EXPECT_EQ(tested.outcome, Outcome::kRefused);
    EXPECT_THAT(tested.Text(), HasSubstr("no program listens"));
}

TEST_F(TestOfCollector, TheLineOfAnotherPortSaysHowToDecodeIt)
{
    CollectorTested tested;
    tested.to.port = 9999;
    tested.datagram.subAgent = 7;
    EXPECT_EQ(tested.Command(),
              "tshark -i any -f 'udp port 9999' -d udp.port==9999,sflow -Y 'sflow_245.sub_agent_id == 7'");
}

TEST_F(TestOfCollector, SaysThatThereIsNoRoute)
{
    const CollectorTested tested = Try("203.0.113.1");
    EXPECT_EQ(tested.outcome, Outcome::kNotSent);
    EXPECT_EQ(tested.error, Code(ENETUNREACH));
    EXPECT_THAT(tested.Text(), HasSubstr("ip route get 203.0.113.1"));
    EXPECT_EQ(Try("127.0.0.2", {.device = "gone"}).outcome, Outcome::kNotSent);
}

TEST_F(TestOfCollector, ManyAtATimeAreRefused)
{
    RawCollector collector("127.0.0.2", 6343);
    std::size_t done = 0;
    const auto start = [&] {
        return m_tests.Start("c1", Settings("127.0.0.2", 6343, 1400), {}, Export().Head(),
                             [&](const CollectorTested&) { ++done; });
    };
    for (std::size_t n = 0; n < CollectorTests::kMost; ++n) EXPECT_TRUE(start());
    EXPECT_FALSE(start());
    EXPECT_TRUE(support::RunUntil(m_loop, [&] { return done == CollectorTests::kMost; }));
    EXPECT_TRUE(start());
}

}  // namespace
}  // namespace exporter_test
