// SPDX-License-Identifier: Apache-2.0
// Datagrams of the whole manager as a dissector of other people's reads them: it has nothing to complain
// about, and finds the same in them as the tests' own decoder. Needs tshark.

#include <sstream>
#include <system_error>

#include "samples/samples_test.h"
#include "samples/shapes.h"
#include "support/pcap.h"

namespace samples_tests {

namespace {

/// A field of tshark's, and what it should say of one datagram: its values in their order, by commas.
struct Field {
    const char* name;
    std::string (*expected)(const support::Datagram&);
};

template <typename Things, typename Value>
std::string Joined(const Things& things, Value value)
{
    std::string text;
    for (const auto& thing : things) text += (text.empty() ? "" : ",") + std::to_string(value(thing));
    return text;
}

const Field kFields[] = {
    {"sflow_245.version", [](const support::Datagram&) { return std::string("5"); }},
    {"sflow_245.agent", [](const support::Datagram& of) { return of.agent; }},
    {"sflow_245.sequence_number", [](const support::Datagram& of) { return std::to_string(of.sequence); }},
    {"sflow_245.sysuptime", [](const support::Datagram& of) { return std::to_string(of.uptime); }},
    {"sflow_245.numsamples", [](const support::Datagram& of) { return std::to_string(of.samples.size()); }},
    {"sflow.flow_sample.sequence_number",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.sequence; });
     }},
    {"sflow.flow_sample.index",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.sourceIndex; });
     }},
    {"sflow.flow_sample.sampling_rate",
     [](const support::Datagram& of) { return Joined(of.Flows(), [](const auto& f) { return f.rate; }); }},
    {"sflow.flow_sample.sample_pool",
     [](const support::Datagram& of) { return Joined(of.Flows(), [](const auto& f) { return f.pool; }); }},
    {"sflow.flow_sample.dropped_packets",
     [](const support::Datagram& of) { return Joined(of.Flows(), [](const auto& f) { return f.drops; }); }},
    {"sflow.flow_sample.input_interface",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.input.value; });
     }},
    {"sflow.flow_sample.output_interface_format",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.output.format; });
     }},
    {"sflow.flow_sample.output_interface_value",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.output.value; });
     }},
    {"sflow_245.header_protocol",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.header->protocol; });
     }},
    {"sflow_245.header.frame_length",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.header->frameLength; });
     }},
    {"sflow_245.header.payload_stripped",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.header->stripped; });
     }},
    {"sflow_245.header.sampled_header_length",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.header->bytes.size(); });
     }},
    {"sflow_245.vlan.in",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.extendedSwitch->inputVlan; });
     }},
    {"sflow_245.pri.in",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.extendedSwitch->inputPriority; });
     }},
    {"sflow_245.vlan.out",
     [](const support::Datagram& of) {
         return Joined(of.Flows(), [](const auto& f) { return f.extendedSwitch->outputVlan; });
     }},
    {"sflow.counters_sample.sequence_number",
     [](const support::Datagram& of) {
         return Joined(of.Counters(), [](const auto& c) { return c.sequence; });
     }},
    {"sflow_245.ifindex",
     [](const support::Datagram& of) {
         return Joined(of.Counters(), [](const auto& c) { return c.generic->ifIndex; });
     }},
    {"sflow_245.ifspeed",
     [](const support::Datagram& of) {
         return Joined(of.Counters(), [](const auto& c) { return c.generic->speed; });
     }},
    {"sflow_245.ifinoct",
     [](const support::Datagram& of) {
         return Joined(of.Counters(), [](const auto& c) { return c.generic->inOctets; });
     }},
    {"sflow_245.ifinpkt",
     [](const support::Datagram& of) {
         return Joined(of.Counters(), [](const auto& c) { return c.generic->inUnicast; });
     }},
    {"sflow_245.ifoutoct",
     [](const support::Datagram& of) {
         return Joined(of.Counters(), [](const auto& c) { return c.generic->outOctets; });
     }},
};

class TsharkTest : public SourceTest {
protected:
    void SetUp() override
    {
        try {
            support::Run(m_dir.Path(), {"tshark", "--version"});
        } catch (const std::system_error& error) {
            GTEST_SKIP() << "no tshark: " << error.what();
        }
        SourceTest::SetUp();
    }

    void Write(const std::vector<support::Arrival>& arrivals)
    {
        Pcap pcap;
        for (const auto& arrival : arrivals) pcap.AddDatagram(arrival.bytes);
        support::WriteFile(m_dir.Path() / "pcap", pcap.Text());
    }

    /// It is given no configuration of a user's.
    [[nodiscard]] std::string Dissected(const std::vector<std::string>& options) const
    {
        std::vector<std::string> argv{
            "tshark", "-n", "-d", "udp.port==6343,sflow", "-r", m_dir.Path() / "pcap"};
        argv.insert(argv.end(), options.begin(), options.end());
        const auto result = support::Run(m_dir.Path(), argv, {{"HOME", m_dir.Path()}});
        EXPECT_EQ(result.status, 0) << result.errors;
        return result.output;
    }

private:
    support::TempDir m_dir;
};

INSTANTIATE_TEST_SUITE_P(, TsharkTest, BothSources(), NameOfSource);

TEST_P(TsharkTest, FindsNothingMalformedAndTheSameFieldsInEachDatagram)
{
    MakeBridge(3, 9000);
    Collector collector;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.Update("p1", {.flows = "c1", .counters = "c1", .interval = 1});
    const auto shapes = IpShapes();
    Injector injector("h1");
    for (int round = 0; round < 3; ++round)
        for (const Shape& shape : shapes) injector.Send(shape.frame);
    collector.AwaitFlows(3 * shapes.size());
    collector.AwaitCounters(1);
    const auto& arrivals = collector.Arrivals();
    ASSERT_GE(arrivals.size(), 4U);
    Write(arrivals);
    EXPECT_EQ(Dissected({"-V", "-Y",
                         "_ws.malformed || _ws.expert.severity == \"Error\" || "
                         "_ws.expert.severity == \"Warning\" || !sflow"}),
              "");
    std::vector<std::string> options{"-T", "fields"};
    for (const Field& field : kFields) options.insert(options.end(), {"-e", field.name});
    std::istringstream lines(Dissected(options));
    for (const auto& arrival : arrivals) {
        SCOPED_TRACE("datagram " + std::to_string(arrival.datagram.sequence));
        std::string line;
        ASSERT_TRUE(std::getline(lines, line));
        std::istringstream values(line);
        for (const Field& field : kFields) {
            std::string value;
            std::getline(values, value, '\t');
            EXPECT_EQ(value, field.expected(arrival.datagram)) << field.name;
        }
    }
    std::string rest;
    EXPECT_FALSE(std::getline(lines, rest)) << rest;
}

}  // namespace

}  // namespace samples_tests
