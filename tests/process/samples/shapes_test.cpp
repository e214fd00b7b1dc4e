// SPDX-License-Identifier: Apache-2.0
// Each frame, whatever its shape, becomes one sample that says what it was.

#include <algorithm>

#include "samples/frame_sizes.h"
#include "samples/samples_test.h"
#include "samples/shapes.h"

namespace samples_tests {

namespace {

constexpr std::size_t kHeader = 128;  // bytes of a frame that are wanted
constexpr int kJumbo = 9000;

class ShapesTest : public SourceTest {
protected:
    void SetUp() override
    {
        SourceTest::SetUp();
        if (!IsSkipped()) MakeBridge(3, kJumbo);
    }

    /// Sends all shapes into p1, in their order.
    static void SendAll()
    {
        SendFromOneCpu();
        Injector injector("h1");
        for (const Shape& shape : Shapes()) injector.Send(shape.frame);
    }

    /// What is expected of every sample of the shape, wherever it is taken.
    static void ExpectFrame(const Shape& shape, const DecodedFlow& flow)
    {
        Bytes beginning = shape.frame;
        beginning.resize(std::min(beginning.size(), kHeader));
        ASSERT_TRUE(flow.header);
        EXPECT_EQ(flow.header->protocol, 1U);
        EXPECT_EQ(flow.header->frameLength, std::max(shape.frame.size(), kLeast) + kFcs);
        EXPECT_EQ(flow.header->stripped, kFcs);
        EXPECT_EQ(flow.header->bytes, beginning);
        EXPECT_EQ(flow.rate, 1U);
        EXPECT_EQ(flow.drops, 0U);
        EXPECT_FALSE(flow.expanded);
        EXPECT_FALSE(flow.extendedRouter) << "nothing is routed";
        EXPECT_EQ(flow.extendedSwitch,
                  (support::DecodedSwitch{shape.vlan, shape.priority,
                                          shape.goes == Goes::kHere ? std::uint16_t{0} : shape.vlan,
                                          shape.priority}));
    }

    /// Exact with eBPF. Packet sockets count what is between two looks as a whole, which may be some frames
    /// more.
    static void ExpectPool(const DecodedFlow& flow, std::size_t frames, std::size_t all)
    {
        EXPECT_GE(flow.pool, frames);
        EXPECT_LE(flow.pool, IsEbpf() ? frames : all);
    }

    static DecodedPort OutputOf(const Shape& shape)
    {
        switch (shape.goes) {
        case Goes::kToP2:
            return {0, Network::Index("p2")};
        case Goes::kToBoth:
            return {2, 2};
        case Goes::kHere:
            break;
        }
        return kInternal;
    }
};

INSTANTIATE_TEST_SUITE_P(, ShapesTest, AllSources(), NameOfSource);

// sFlow v5, sampled_header: header_protocol 1 (Ethernet), frame_length with the FCS, stripped; IEEE 802.3,
// 3.2.8: an Ethernet frame has at least 64 octets with it. flow_sample: sample_pool; extended_switch: the
// tag.
TEST_P(ShapesTest, EachFrameBecomesOneSampleThatSaysWhatItWas)
{
    Collector collector, second;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.AddCollector("c2", second.Port());
    agent.Update("p1", {.flows = "c1", .header = kHeader});
    agent.AddFlows("p1", "c2");
    const auto shapes = Shapes();
    SendAll();
    const auto flows = collector.AwaitFlows(shapes.size());
    ASSERT_EQ(flows.size(), shapes.size());
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        SCOPED_TRACE(shapes[i].name);
        const DecodedFlow& flow = flows[i];
        ExpectFrame(shapes[i], flow);
        EXPECT_EQ(flow.sourceIndex, Network::Index("p1"));
        EXPECT_EQ(flow.input, (DecodedPort{0, Network::Index("p1")}));
        EXPECT_EQ(flow.output, OutputOf(shapes[i]));
        ExpectPool(flow, i + 1, shapes.size());
        EXPECT_EQ(flow.sequence, i + 1);
    }
    EXPECT_EQ(second.AwaitFlows(shapes.size()), flows) << "every collector gets the same";
    EXPECT_EQ(agent.OfInterface("p1", "samples_total"), shapes.size());
    EXPECT_EQ(agent.OfInterface("p1", "packets_seen_total"), shapes.size());
    EXPECT_EQ(Received("p1"), shapes.size());
}

// sFlow v5, section 5, flow_sample: input and output, of which one is the data source.
TEST_P(ShapesTest, ALeavingFrameIsSampledTooWithTheInterfaceByWhichItEntered)
{
    Collector collector;
    Agent& agent = StartSource({"--direction", "both"});
    agent.AddCollector("c1", collector.Port());
    for (const char* port : {"p1", "p2"}) agent.Update(port, {.flows = "c1", .header = kHeader});
    const auto shapes = Shapes();
    const std::uint32_t p1 = Network::Index("p1");
    const std::uint32_t p2 = Network::Index("p2");
    std::vector<Shape> leaving;
    for (const Shape& shape : shapes)
        if (shape.goes != Goes::kHere) leaving.push_back(shape);
    SendAll();
    collector.AwaitFlows(shapes.size() + leaving.size());
    EXPECT_EQ(collector.Flows(p1).size(), shapes.size());
    const auto flows = collector.Flows(p2);
    ASSERT_EQ(flows.size(), leaving.size());
    for (std::size_t i = 0; i < leaving.size(); ++i) {
        SCOPED_TRACE(leaving[i].name);
        ExpectFrame(leaving[i], flows[i]);
        EXPECT_EQ(flows[i].input, (DecodedPort{0, p1}));
        EXPECT_EQ(flows[i].output, (DecodedPort{0, p2}));
        ExpectPool(flows[i], i + 1, leaving.size());
    }
    EXPECT_EQ(agent.OfInterface("p2", "packets_seen_total"), leaving.size());
}

}  // namespace

}  // namespace samples_tests
