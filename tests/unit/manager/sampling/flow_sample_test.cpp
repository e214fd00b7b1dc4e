// SPDX-License-Identifier: Apache-2.0
// What a sampled packet is in the terms of sFlow.

#include "manager/sampling/flow_sample.h"

#include <net/ethernet.h>
#include <net/if_arp.h>

#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/network.h"

namespace manager {

namespace {

using Bytes = std::vector<std::byte>;

/// Ethernet, then the bytes of the given EtherType.
Bytes Header(std::initializer_list<int> behindAddresses)
{
    Bytes bytes(12, std::byte{2});
    for (const int byte : behindAddresses) bytes.push_back(static_cast<std::byte>(byte));
    return bytes;
}

struct TagCase {
    const char* name;
    std::uint16_t protocol, control;
    Bytes header;
    std::uint16_t vlan;
    std::uint8_t priority;
};

class TagTest : public testing::TestWithParam<TagCase> {};

// sFlow v5, extended_switch: src_vlan and src_priority are those of the frame's 802.1Q tag.
TEST_P(TagTest, TheOutermostTagIsFound)
{
    capture::Sample sample;
    sample.tagProtocol = GetParam().protocol;
    sample.tagControl = GetParam().control;
    sample.header = GetParam().header;
    const Tag tag = OuterTag(sample);
    EXPECT_EQ(tag.vlan, GetParam().vlan);
    EXPECT_EQ(tag.priority, GetParam().priority);
}

INSTANTIATE_TEST_SUITE_P(
    , TagTest,
    testing::Values(TagCase{"None", 0, 0, Header({8, 0, 0x45, 0}), 0, 0},
                    TagCase{"TakenByTheKernel", ETHERTYPE_VLAN, 0x6123, Header({8, 0, 0x45, 0}), 0x123, 3},
                    TagCase{"InTheHeader", 0, 0, Header({0x81, 0, 0xE0, 0x07}), 7, 7},
                    TagCase{"TheOuterOfTwo", 0x88A8, 0x0064, Header({0x81, 0, 0xE0, 0x07}), 100, 0},
                    TagCase{"PriorityOnly", ETHERTYPE_VLAN, 0xA000, Header({8, 0, 0x45, 0}), 0, 5},
                    TagCase{"CutOff", 0, 0, Header({0x81, 0, 0xE0}), 0, 0},
                    TagCase{"NoHeaderAtAll", 0, 0, {}, 0, 0}),
    [](const auto& row) { return row.param.name; });

// sFlow v5, sampled_header: frame_length has all octets on the network, the FCS included; stripped has
// those that are missing from the header's packet.
TEST(FlowSampleTest, TheFrameLengthCountsTagAndFcs)
{
    capture::Sample sample;
    const Bytes header = Header({8, 0, 0x45, 0});
    sample.header = header;
    sample.length = 196;
    sample.rate = 77;
    sample.etherType = ETHERTYPE_IP;
    wire::FlowSample flow;
    DescribePacket(sample, ARPHRD_ETHER, flow);
    EXPECT_EQ(flow.frameLength, 200U);
    EXPECT_EQ(flow.stripped, 4U);
    EXPECT_EQ(flow.rate, 77U);
    EXPECT_EQ(flow.tagProtocol, 0U);

    sample.tagProtocol = ETHERTYPE_VLAN;
    sample.tagControl = 0x2005;
    DescribePacket(sample, ARPHRD_ETHER, flow);
    EXPECT_EQ(flow.frameLength, 204U);
    EXPECT_EQ(flow.stripped, 4U);
    EXPECT_EQ(flow.tagProtocol, ETHERTYPE_VLAN);
    EXPECT_EQ(flow.tagControl, 0x2005U);
}

// sFlow v5, enum header_protocol: IPv4 is 11, IPv6 is 12; sampled_header: what has no FCS has nothing
// stripped.
TEST(FlowSampleTest, APacketWithoutALinkHeaderIsIpWithoutFcs)
{
    capture::Sample sample;
    sample.length = 100;
    sample.etherType = ETHERTYPE_IPV6;
    wire::FlowSample flow;
    DescribePacket(sample, ARPHRD_NONE, flow);
    EXPECT_EQ(flow.protocol, wire::HeaderProtocol::kIpv6);
    EXPECT_EQ(flow.frameLength, 100U);
    EXPECT_EQ(flow.stripped, 0U);
    sample.etherType = ETHERTYPE_IP;
    DescribePacket(sample, ARPHRD_NONE, flow);
    EXPECT_EQ(flow.protocol, wire::HeaderProtocol::kIpv4);
}

struct DestinationCase {
    const char* name;
    net::Destination destination;
    wire::Port output;
};

class OutputTest : public testing::TestWithParam<DestinationCase> {};

// sFlow v5, section 5, struct interface (format, value): 0 a single interface, 0 unknown, 0x3FFFFFFF the
// agent itself; 1 discarded, a code of ICMP below 256 (RFC 1812, 5.2.7.1), else sFlow's own, of which
// sFlow.org's sflow_drops.txt has those above 262; 2 several interfaces, 0 of an unknown number.
TEST_P(OutputTest, WhereAPacketGoesIsWrittenAsTheFormatSays)
{
    wire::FlowSample flow;
    DescribeIngress(3, {.vlan = 5, .priority = 6}, GetParam().destination, flow);
    EXPECT_EQ(flow.input, (wire::Port{wire::Port::Format::kSingle, 3}));
    EXPECT_EQ(flow.output, GetParam().output);
    EXPECT_EQ(flow.inputVlan, 5U);
    EXPECT_EQ(flow.inputPriority, 6U);
    EXPECT_EQ(flow.outputPriority, 6U);
    EXPECT_EQ(flow.outputVlan, GetParam().destination.outputVlan);
    EXPECT_FALSE(flow.router);
}

net::Destination To(net::Destination::Kind kind, std::uint32_t ifIndex = 0, std::uint32_t interfaces = 0)
{
    net::Destination destination;
    destination.kind = kind;
    destination.ifIndex = ifIndex;
    destination.interfaces = interfaces;
    destination.outputVlan = 9;
    return destination;
}

net::Destination Dropped(net::Discard reason)
{
    net::Destination destination = To(net::Destination::Kind::kDiscarded);
    destination.reason = reason;
    return destination;
}

wire::Port Discarded(std::uint32_t code) { return {wire::Port::Format::kDiscarded, code}; }

INSTANTIATE_TEST_SUITE_P(
    , OutputTest,
    testing::Values(
        DestinationCase{"Unknown", To(net::Destination::Kind::kUnknown), {wire::Port::Format::kSingle, 0}},
        DestinationCase{
            "Interface", To(net::Destination::Kind::kInterface, 44), {wire::Port::Format::kSingle, 44}},
        DestinationCase{
            "Local", To(net::Destination::Kind::kLocal), {wire::Port::Format::kSingle, 0x3FFFFFFF}},
        DestinationCase{
            "Several", To(net::Destination::Kind::kSeveral, 0, 3), {wire::Port::Format::kMultiple, 3}},
        DestinationCase{
            "SomeNumberOf", To(net::Destination::Kind::kSeveral), {wire::Port::Format::kMultiple, 0}},
        DestinationCase{"Discarded", To(net::Destination::Kind::kDiscarded), Discarded(256)},
        DestinationCase{"WithoutRoute", Dropped(net::Discard::kNoRoute), Discarded(0)},
        DestinationCase{"Unreachable", Dropped(net::Discard::kUnreachable), Discarded(1)},
        DestinationCase{"Prohibited", Dropped(net::Discard::kProhibited), Discarded(13)},
        DestinationCase{"TooLargeWithoutFragments", Dropped(net::Discard::kFragmentation), Discarded(4)},
        DestinationCase{"TooBig", Dropped(net::Discard::kTooBig), Discarded(262)},
        DestinationCase{"AtItsEnd", Dropped(net::Discard::kTimeToLive), Discarded(257)},
        DestinationCase{"IntoABlackHole", Dropped(net::Discard::kBlackHole), Discarded(269)}),
    [](const auto& row) { return row.param.name; });

struct OriginCase {
    const char* name;
    net::Origin origin;
    wire::Port input;
};

class InputTest : public testing::TestWithParam<OriginCase> {};

// sFlow v5, section 5, struct interface: 0 is not known, 0x3FFFFFFF the agent itself. extended_switch: an
// untagged packet has the VLAN of its port.
TEST_P(InputTest, WhereAPacketHasComeFromIsWrittenAsTheFormatSays)
{
    wire::FlowSample flow;
    DescribeEgress(3, {.vlan = 0, .priority = 6}, 30, GetParam().origin, flow);
    EXPECT_EQ(flow.input, GetParam().input);
    EXPECT_EQ(flow.output, (wire::Port{wire::Port::Format::kSingle, 3}));
    EXPECT_EQ(flow.inputVlan, 30U) << "that of the port, for want of a tag";
    EXPECT_EQ(flow.outputVlan, 30U);
    EXPECT_EQ(flow.inputPriority, 6U);
    EXPECT_EQ(flow.outputPriority, 6U);
    EXPECT_FALSE(flow.router);
    DescribeEgress(3, {.vlan = 5, .priority = 6}, 30, GetParam().origin, flow);
    EXPECT_EQ(flow.inputVlan, 5U);
    EXPECT_EQ(flow.outputVlan, 5U);
}

INSTANTIATE_TEST_SUITE_P(, InputTest,
                         testing::Values(OriginCase{"Unknown", {}, {wire::Port::Format::kSingle, 0}},
                                         OriginCase{"Interface",
                                                    {net::Destination::Kind::kInterface, 44, {}},
                                                    {wire::Port::Format::kSingle, 44}},
                                         OriginCase{"Here",
                                                    {net::Destination::Kind::kLocal, 0, {}},
                                                    {wire::Port::Format::kSingle, 0x3FFFFFFF}}),
                         [](const auto& row) { return row.param.name; });

// sFlow v5, extended_router: next hop, and the prefix lengths of source and destination.
TEST(FlowSampleTest, ARoutedPacketHasItsRouteAlsoWhereItLeaves)
{
    net::Origin origin{net::Destination::Kind::kInterface, 4, {}};
    origin.route = net::Destination::Route{{4, {192, 0, 2, 1}}, 24, 16};
    wire::FlowSample flow;
    DescribeEgress(3, {}, 0, origin, flow);
    ASSERT_TRUE(flow.router);
    EXPECT_EQ(flow.router->nextHop, (wire::Address{4, {192, 0, 2, 1}}));
    EXPECT_EQ(flow.router->sourceBits, 24U);
    EXPECT_EQ(flow.router->destinationBits, 16U);
    DescribeEgress(3, {}, 0, {}, flow);
    EXPECT_FALSE(flow.router) << "of the packet before";
}

// sFlow v5, extended_router; extended_switch: an untagged packet has the VLAN of its port.
TEST(FlowSampleTest, ARoutedPacketHasItsNextHopAndAnUntaggedOneThePortsVlan)
{
    net::Destination destination = To(net::Destination::Kind::kInterface, 4);
    destination.inputVlan = 30;
    net::Destination::Route route;
    route.nextHop = {4, {192, 0, 2, 1}};
    route.sourceBits = 24;
    route.destinationBits = 16;
    destination.route = route;
    wire::FlowSample flow;
    DescribeIngress(3, {}, destination, flow);
    EXPECT_EQ(flow.inputVlan, 30U);
    ASSERT_TRUE(flow.router);
    EXPECT_EQ(flow.router->nextHop, (wire::Address{4, {192, 0, 2, 1}}));
    EXPECT_EQ(flow.router->sourceBits, 24U);
    EXPECT_EQ(flow.router->destinationBits, 16U);

    DescribeIngress(3, {}, To(net::Destination::Kind::kUnknown), flow);
    EXPECT_FALSE(flow.router) << "of the packet before";
}

}  // namespace
}  // namespace manager
