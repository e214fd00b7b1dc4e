// SPDX-License-Identifier: Apache-2.0
// Datagrams as a dissector of other people's reads them: nothing malformed, nothing unknown, and the
// numbers that were put in. Needs tshark.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <span>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "support/hex.h"
#include "support/pcap.h"
#include "support/process.h"
#include "wire/discard.h"
#include "wire/encode.h"

namespace {

using wire::Encoding;
using Format = wire::Port::Format;

/// An Ethernet frame with an IPv4 UDP packet of two bytes from port 1000 to port 2000, without FCS.
const Bytes kFrame = FromHex(
    "0200000000bb 0200000000aa 0800 4500001e 00004000 401166ac 0a000001 0a000002 03e807d0 000a0000 6162");

wire::FlowSample Flow(std::uint32_t ifIndex)
{
    wire::FlowSample sample;
    sample.sequence = 101;
    sample.source = ifIndex;
    sample.rate = 1024;
    sample.pool = 4'000'000'000;
    sample.drops = 5;
    sample.input = {Format::kSingle, ifIndex};
    sample.output = {Format::kSingle, ifIndex + 1};
    sample.frameLength = static_cast<std::uint32_t>(kFrame.size()) + 4 + 4;
    sample.stripped = 4;
    sample.header = kFrame;
    sample.maxHeader = 128;
    sample.tagProtocol = 0x8100;
    sample.tagControl = 0x6064;
    sample.inputVlan = 100;
    sample.inputPriority = 3;
    sample.outputVlan = 200;
    sample.outputPriority = 4;
    return sample;
}

wire::CountersSample Counters(std::uint32_t ifIndex)
{
    wire::CountersSample sample;
    sample.sequence = 102;
    sample.source = ifIndex;
    sample.generic = {.ifIndex = ifIndex,
                      .ifType = 6,
                      .speed = 10'000'000'000,
                      .direction = 1,
                      .adminUp = true,
                      .operUp = false,
                      .inOctets = 5'000'000'001,
                      .inUnicast = 2,
                      .inMulticast = 3,
                      .inBroadcast = 4,
                      .inDiscards = 5,
                      .inErrors = 6,
                      .inUnknownProtocols = 7,
                      .outOctets = 5'000'000'008,
                      .outUnicast = 9,
                      .outMulticast = 10,
                      .outBroadcast = 11,
                      .outDiscards = 12,
                      .outErrors = 13,
                      .promiscuous = 1};
    sample.ethernet = wire::EthernetCounters{14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26};
    sample.lag = wire::LagCounters{.actorSystem = {2, 0, 0, 0, 0, 27},
                                   .partnerSystem = {2, 0, 0, 0, 0, 28},
                                   .aggregate = 29,
                                   .actorAdminState = 0x3d,
                                   .actorState = 0x3e,
                                   .partnerAdminState = 0x3f,
                                   .partnerState = 0x40,
                                   .lacpdusIn = 30,
                                   .markersIn = 31,
                                   .markerResponsesIn = 32,
                                   .unknownIn = 33,
                                   .illegalIn = 34,
                                   .lacpdusOut = 35,
                                   .markersOut = 36,
                                   .markerResponsesOut = 37};
    sample.portName = "gigabit-ethernet-1/1/1";
    return sample;
}

/// Three flow samples and one of counters in one datagram: a frame from port to port, a routed one, one
/// that was discarded; ports with a high or a low index.
Bytes DatagramOf(Encoding encoding, std::uint32_t ifIndex)
{
    wire::FlowSample routed = Flow(ifIndex);
    routed.router = wire::ExtendedRouter{{4, {192, 0, 2, 9}}, 24, 16};
    wire::FlowSample discarded = Flow(ifIndex);
    discarded.tagProtocol = 0;
    discarded.output = wire::Discarded(wire::DropReason::kUnknown);
    discarded.router = wire::ExtendedRouter{{16, {0x20, 0x01, 0x0d, 0xb8}}, 64, 48};
    discarded.router->nextHop.bytes[15] = 9;

    Bytes bytes(9000);
    std::size_t size = wire::kDatagramHeaderSize;
    wire::Encode(wire::DatagramHeader{::inet_addr("192.0.2.1"), 7, 11, 3'000'000'000, 4}, bytes);
    for (const auto& sample : {Flow(ifIndex), routed, discarded}) {
        size += wire::Encode(sample, encoding, std::span(bytes).subspan(size));
    }
    size += wire::Encode(Counters(ifIndex), encoding, std::span(bytes).subspan(size));
    bytes.resize(size);
    return bytes;
}

struct Field {
    const char* name;
    std::string compact;
    std::string expanded;
};

/// One value for each time that the field is in the datagram.
const Field kTsharkFields[] = {
    {"sflow_245.version", "5", "5"},
    {"sflow_245.agent", "192.0.2.1", "192.0.2.1"},
    {"sflow_245.sub_agent_id", "7", "7"},
    {"sflow_245.sequence_number", "11", "11"},
    {"sflow_245.sysuptime", "3000000000", "3000000000"},
    {"sflow_245.numsamples", "4", "4"},
    {"sflow_245.sampletype", "1,1,1,2", "3,3,3,4"},
    {"sflow_5.sample_length", "128,152,160,268", "140,164,172,272"},
    {"sflow_5.flow_data_length", "64,16,64,16,16,60,16,28,88,52,56,28",
     "64,16,64,16,16,60,16,28,88,52,56,28"},

    {"sflow.flow_sample.sequence_number", "101,101,101", "101,101,101"},
    {"sflow.flow_sample.source_id_class", "0,0,0", ""},
    {"sflow.flow_sample.index", "3,3,3", ""},
    {"sflow.flow_sample.source_id_type", "", "0,0,0"},
    {"sflow.flow_sample.source_id_index", "", "33554435,33554435,33554435"},
    {"sflow.flow_sample.sampling_rate", "1024,1024,1024", "1024,1024,1024"},
    {"sflow.flow_sample.sample_pool", "4000000000,4000000000,4000000000", "4000000000,4000000000,4000000000"},
    {"sflow.flow_sample.dropped_packets", "5,5,5", "5,5,5"},
    {"sflow.flow_sample.input_interface", "3,3,3", ""},
    {"sflow.flow_sample.input_interface_format", "", "0,0,0"},
    {"sflow.flow_sample.input_interface_value", "", "33554435,33554435,33554435"},
    {"sflow.flow_sample.output_interface_format", "0,0,1", ""},
    {"sflow.flow_sample.output_interface.format", "", "0,0,1"},
    {"sflow.flow_sample.output_interface_value", "4,4,256", "33554436,33554436,256"},
    {"sflow.flow_sample.flow_record", "2,3,3", "2,3,3"},
    {"sflow_245.flow_record_format", "1,1001,1,1001,1002,1,1001,1002", "1,1001,1,1001,1002,1,1001,1002"},

    {"sflow_245.header_protocol", "1,1,1", "1,1,1"},
    {"sflow_245.header.frame_length", "52,52,52", "52,52,52"},
    {"sflow_245.header.payload_stripped", "4,4,4", "4,4,4"},
    {"sflow_245.header.sampled_header_length", "48,48,44", "48,48,44"},
    // The datagram's own headers, then those of the sampled frames.
    {"eth.type", "0x0800,0x8100,0x8100,0x0800", "0x0800,0x8100,0x8100,0x0800"},
    {"vlan.id", "100,100", "100,100"},
    {"vlan.priority", "3,3", "3,3"},
    {"ip.src", "192.0.2.1,10.0.0.1,10.0.0.1,10.0.0.1", "192.0.2.1,10.0.0.1,10.0.0.1,10.0.0.1"},
    {"udp.dstport", "6343,2000,2000,2000", "6343,2000,2000,2000"},
    {"data.data", "6162,6162,6162", "6162,6162,6162"},

    {"sflow_245.vlan.in", "100,100,100", "100,100,100"},
    {"sflow_245.pri.in", "3,3,3", "3,3,3"},
    {"sflow_245.vlan.out", "200,200,200", "200,200,200"},
    {"sflow_245.pri.out", "4,4,4", "4,4,4"},
    {"sflow_245.nexthop", "192.0.2.9", "192.0.2.9"},
    {"sflow_245.nexthop.v6", "2001:db8::9", "2001:db8::9"},
    {"sflow_245.nexthop.src_mask", "24,64", "24,64"},
    {"sflow_245.nexthop.dst_mask", "16,48", "16,48"},

    {"sflow.counters_sample.sequence_number", "102", "102"},
    {"sflow.counters_sample.source_id_type", "0", "0"},
    {"sflow.counters_sample.source_id_index", "3", "33554435"},
    {"sflow.counters_sample.counters_records", "4", "4"},
    // The dissector names the port name's format and passes the record over.
    {"sflow_245.counters_record_format", "1,2,7,1005", "1,2,7,1005"},
    {"sflow_245.ifindex", "3", "33554435"},
    {"sflow_245.iftype", "6", "6"},
    {"sflow_245.ifspeed", "10000000000", "10000000000"},
    {"sflow_245.ifdirection", "1", "1"},
    {"sflow_245.ifadmin_status", "1", "1"},
    {"sflow_245.ifoper_status", "0", "0"},
    {"sflow_245.ifinoct", "5000000001", "5000000001"},
    {"sflow_245.ifinpkt", "2", "2"},
    {"sflow_245.ifinmcast", "3", "3"},
    {"sflow_245.ifinbcast", "4", "4"},
    {"sflow_245.ifindisc", "5", "5"},
    {"sflow_245.ifinerr", "6", "6"},
    {"sflow_245.ifinunk", "7", "7"},
    {"sflow_245.ifoutoct", "5000000008", "5000000008"},
    {"sflow_245.ifoutpkt", "9", "9"},
    {"sflow_245.ifoutmcast", "10", "10"},
    {"sflow_245.ifoutbcast", "11", "11"},
    {"sflow_245.ifoutdisc", "12", "12"},
    {"sflow_245.ifouterr", "13", "13"},
    {"sflow_245.ifpromisc", "1", "1"},
    {"sflow_245.dot3StatsAlignmentErrors", "14", "14"},
    {"sflow_245.dot3StatsFCSErrors", "15", "15"},
    {"sflow_245.dot3StatsSingleCollisionFrames", "16", "16"},
    {"sflow_245.dot3StatsMultipleCollisionFrames", "17", "17"},
    {"sflow_245.dot3StatsSQETestErrors", "18", "18"},
    {"sflow_245.dot3StatsDeferredTransmissions", "19", "19"},
    {"sflow_245.dot3StatsLateCollisions", "20", "20"},
    {"sflow_245.dot3StatsExcessiveCollisions", "21", "21"},
    {"sflow_245.dot3StatsInternalMacTransmitErrors", "22", "22"},
    {"sflow_245.dot3StatsCarrierSenseErrors", "23", "23"},
    {"sflow_245.dot3StatsFrameTooLongs", "24", "24"},
    {"sflow_245.dot3StatsInternalMacReceiveErrors", "25", "25"},
    {"sflow_245.dot3StatsSymbolErrors", "26", "26"},
    {"sflow.lag_port.actor_system_id", "02:00:00:00:00:1b", "02:00:00:00:00:1b"},
    {"sflow.lag_port.partner_oper_system_id", "02:00:00:00:00:1c", "02:00:00:00:00:1c"},
    {"sflow.lag_port.padding", "0000,0000", "0000,0000"},
    {"sflow.lag_port.attached_agg_id", "29", "29"},
    // Four octets, one for each state; the dissector names single bits of the whole.
    {"sflow.lag_port.state", "0x3d3e3f40", "0x3d3e3f40"},
    {"sflow.lag_port.lacpdus.rx", "30", "30"},
    {"sflow.lag_port.marker_pdus.rx", "31", "31"},
    {"sflow.lag_port.marker_response_pdus.rx", "32", "32"},
    {"sflow.lag_port.unknown.rx", "33", "33"},
    {"sflow.lag_port.illegal.rx", "34", "34"},
    {"sflow.lag_port.lacpdus.tx", "35", "35"},
    {"sflow.lag_port.marker_pdus.tx", "36", "36"},
    {"sflow.lag_port.marker_response_pdus.tx", "37", "37"},
};

class TsharkTest : public testing::Test {
protected:
    void SetUp() override
    {
        try {
            support::Run(m_directory.Path(), {"tshark", "--version"});
        } catch (const std::system_error& error) {
            GTEST_SKIP() << "no tshark: " << error.what();
        }
    }

    /// What tshark prints of the datagram. It is given no configuration of a user's.
    std::string Dissected(const Bytes& datagram, const std::vector<std::string>& options) const
    {
        Pcap pcap;
        pcap.AddDatagram(datagram);
        const auto file = m_directory.Path() / "sflow.pcap";
        support::WriteFile(file, pcap.Text());
        std::vector<std::string> argv{"tshark", "-n", "-d", "udp.port==6343,sflow", "-r", file.string()};
        argv.insert(argv.end(), options.begin(), options.end());
        const auto result = support::Run(m_directory.Path(), argv, {{"HOME", m_directory.Path().string()}});
        EXPECT_EQ(result.status, 0) << result.errors;
        return result.output;
    }

    /// What it has to complain about.
    std::string Complaints(const Bytes& datagram) const
    {
        return Dissected(datagram, {"-Y", "_ws.malformed || _ws.expert", "-V"});
    }

    void ExpectFields(const Bytes& datagram, std::string Field::*expected) const
    {
        std::vector<std::string> options{"-T", "fields"};
        for (const Field& field : kTsharkFields) options.insert(options.end(), {"-e", field.name});
        std::istringstream line(Dissected(datagram, options));
        for (const Field& field : kTsharkFields) {
            std::string value;
            std::getline(line, value, &field == std::end(kTsharkFields) - 1 ? '\n' : '\t');
            EXPECT_EQ(value, field.*expected) << field.name;
        }
        std::string rest;
        EXPECT_FALSE(std::getline(line, rest)) << rest;
    }

    support::TempDir m_directory;
};

TEST_F(TsharkTest, ReadsTheCompactEncoding)
{
    const Bytes datagram = DatagramOf(Encoding::kCompact, 3);
    EXPECT_EQ(Complaints(datagram), "");
    ExpectFields(datagram, &Field::compact);
}

TEST_F(TsharkTest, ReadsTheExpandedEncoding)
{
    const Bytes datagram = DatagramOf(Encoding::kExpanded, 0x2000003);
    EXPECT_EQ(Complaints(datagram), "");
    ExpectFields(datagram, &Field::expanded);
}

wire::DiscardSample NoSocketDiscard()
{
    wire::DiscardSample discard;
    discard.sequence = 103;
    discard.source = 3;
    discard.header = kFrame;
    discard.maxHeader = 128;
    discard.frameLength = static_cast<std::uint32_t>(kFrame.size()) + 4;
    discard.stripped = 4;
    discard.function = "ip_forward";
    discard.linuxReason = "IP_INHDR";
    return discard;
}

/// A flow sample, discarded packets, and another flow sample, of the same source.
Bytes DatagramWithDiscards(Encoding encoding, std::uint32_t discards)
{
    Bytes datagram(9000);
    std::size_t size = wire::kDatagramHeaderSize;
    wire::Encode(wire::DatagramHeader{::inet_addr("192.0.2.1"), 7, 11, 3'000'000'000, 2 + discards},
                 datagram);
    size += wire::Encode(Flow(3), encoding, std::span(datagram).subspan(size));
    for (std::uint32_t i = 0; i < discards; ++i)
        size += wire::Encode(NoSocketDiscard(), std::span(datagram).subspan(size));
    size += wire::Encode(Flow(3), encoding, std::span(datagram).subspan(size));
    datagram.resize(size);
    return datagram;
}

const std::vector<std::string> kTypesAndFlows = {"-T", "fields",
                                                 "-e", "sflow_245.sampletype",
                                                 "-e", "sflow.flow_sample.sequence_number",
                                                 "-e", "sflow_245.vlan.out"};

// The dissector of Debian 12 names the sample's format and steps over it by its length. docs/drops.md says
// so.
TEST_F(TsharkTest, ReadsWhatStandsBesideADiscardedPacket)
{
    const Bytes compact = DatagramWithDiscards(Encoding::kCompact, 1);
    EXPECT_EQ(Complaints(compact), "");
    EXPECT_EQ(Dissected(compact, kTypesAndFlows), "1,5,1\t101,101\t200,200\n");
    EXPECT_THAT(Dissected(compact, {"-V"}), testing::HasSubstr("Unknown (5)"));
    const Bytes expanded = DatagramWithDiscards(Encoding::kExpanded, 3);
    EXPECT_EQ(Complaints(expanded), "");
    EXPECT_EQ(Dissected(expanded, kTypesAndFlows), "3,5,5,5,3\t101,101\t200,200\n");
}

TEST_F(TsharkTest, ReadsADatagramOfDiscardedPacketsAlone)
{
    Bytes datagram(9000);
    std::size_t size = wire::kDatagramHeaderSize;
    wire::Encode(wire::DatagramHeader{::inet_addr("192.0.2.1"), 7, 11, 3'000'000'000, 2}, datagram);
    for (int i = 0; i < 2; ++i) size += wire::Encode(NoSocketDiscard(), std::span(datagram).subspan(size));
    datagram.resize(size);
    EXPECT_EQ(Complaints(datagram), "");
    EXPECT_EQ(Dissected(datagram, kTypesAndFlows), "5,5\t\t\n");
}

TEST_F(TsharkTest, WouldComplain)
{
    Bytes datagram = DatagramOf(Encoding::kCompact, 3);
    datagram.resize(datagram.size() - 60);
    EXPECT_THAT(Complaints(datagram), testing::HasSubstr("Malformed"));
}

}  // namespace
