// SPDX-License-Identifier: Apache-2.0
// Nothing waits: not a lone sample for others to come, not a datagram to be filled. And no datagram is
// larger than its collector wants it.

#include <algorithm>

#include "samples/samples_test.h"
#include "samples/shapes.h"

namespace samples_tests {

namespace {

using std::chrono::milliseconds;

/// What is promised; the aim is a tenth of it.
constexpr milliseconds kLongest{1000};

class PromptTest : public SourceTest {
protected:
    void SetUp() override
    {
        SourceTest::SetUp();
        if (!IsSkipped()) MakeBridge(2);
    }
};

INSTANTIATE_TEST_SUITE_P(, PromptTest, BothSources(), NameOfSource);

// sFlow v5, sFlow datagrams: a sample waits for others for a second at most.
TEST_P(PromptTest, ALoneFramesSampleComesWithinASecond)
{
    constexpr std::size_t kTimes = 8;
    Collector collector, large(9000);
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.AddCollector("c2", large.Port(), 9000);
    agent.Update("p1", {.flows = "c1"});
    agent.AddFlows("p1", "c2");
    Injector injector("h1");
    for (std::size_t i = 1; i <= kTimes; ++i) {
        const WallTime sent = std::chrono::system_clock::now();
        injector.Send(support::UdpFrame({.number = i}));
        collector.AwaitFlows(i);
        large.AwaitFlows(i);
        for (Collector* one : {&collector, &large}) {
            ASSERT_EQ(one->Arrivals().size(), i) << "one datagram each";
            EXPECT_LE(one->Arrivals().back().time - sent, kLongest);
        }
    }
}

TEST_P(PromptTest, AfterABurstTheLastSampleComesWithinASecondToo)
{
    constexpr std::size_t kFrames = 3000;
    Collector collector(9000);
    Agent& agent = StartSource({"--ring-size", "4M"});  // room for all of it
    agent.AddCollector("c1", collector.Port(), 9000);
    agent.Update("p1", {.flows = "c1"});
    Injector injector("h1");
    const std::vector<Bytes> frames(100, support::UdpFrame({}));
    for (std::size_t sent = 0; sent < kFrames; sent += frames.size()) injector.Send(frames);
    const WallTime sent = std::chrono::system_clock::now();
    collector.AwaitFlows(kFrames);
    EXPECT_LE(collector.Arrivals().back().time - sent, kLongest);
}

// sFlow v5, sampled_header: frame_length is that of the packet, however much of its header is sent.
TEST_P(PromptTest, NoDatagramIsLargerThanItsCollectorWantsAndASampleThatDoesNotFitIsCutAtTheHeader)
{
    constexpr std::size_t kFrames = 40;
    constexpr std::size_t kHeader = 512;
    struct Row {
        std::uint16_t size;
        bool cut;
    };
    const std::vector<Row> rows{{200, true},   {256, true},   {500, true},  {700, false},
                                {1400, false}, {1472, false}, {9000, false}};
    std::vector<std::unique_ptr<Collector>> collectors;
    Agent& agent = StartSource();
    agent.Update("p1", {.header = kHeader});
    for (const Row& row : rows) {
        // The collector complains about each datagram that is larger.
        collectors.push_back(std::make_unique<Collector>(row.size));
        const std::string name = "c" + std::to_string(row.size);
        agent.AddCollector(name, collectors.back()->Port(), row.size);
        agent.AddFlows("p1", name);
    }
    agent.AwaitMetric("sflow_interface_sampled{interface=\"p1\"}", 1);
    const std::vector<Bytes> frames{support::UdpFrame({.size = 1000}),
                                    support::UdpFrame({.tags = {0x81000005}, .size = 1000})};
    Injector injector("h1");
    SendFromOneCpu();
    for (std::size_t i = 0; i < kFrames; ++i) injector.Send(frames[i % 2]);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].size);
        const auto flows = collectors[i]->AwaitFlows(kFrames);
        ASSERT_EQ(flows.size(), kFrames);
        for (std::size_t at = 0; at < flows.size(); ++at) {
            const Bytes& bytes = flows[at].header->bytes;
            if (rows[i].cut) {
                ASSERT_LT(bytes.size(), kHeader);
                // All that is left beside a sample's other fields is used, but for its alignment.
                ASSERT_GE(bytes.size() + 140, rows[i].size);
            } else {
                ASSERT_EQ(bytes.size(), kHeader);
            }
            ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), frames[at % 2].begin()));
            ASSERT_EQ(flows[at].header->frameLength, 1004U) << "of the frame, not of what is left of it";
        }
    }
}

}  // namespace

}  // namespace samples_tests
