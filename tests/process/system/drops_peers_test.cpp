// SPDX-License-Identifier: Apache-2.0
// Collectors of other people's that are told of dropped packets by a real manager: they lose no flow sample
// of the same time, even one that would drop the rest of a datagram with a sample that it does not know
// (tests/process/samples/discards_test.cpp). Needs sfcapd and nfdump (nfdump-sflow), and sfacctd (pmacct).

#include <cstdint>
#include <set>
#include <sstream>
#include <string>

#include "samples/peer.h"
#include "system/drops.h"

namespace system_tests {
namespace {

using samples_tests::Sfacctd;
using samples_tests::Sfcapd;

constexpr std::uint16_t kFirstPort = 4001, kPackets = 60;

std::multiset<unsigned> AllPorts()
{
    std::multiset<unsigned> ports;
    for (std::uint16_t i = 0; i < kPackets; ++i) ports.insert(kFirstPort + i);
    return ports;
}

class DropsAtPeers : public Drops {
protected:
    /// The peer gets a flow sample and a notification of each of kPackets packets, which differ in their
    /// port.
    void TellThePeer()
    {
        Start("127.0.0.1",
              R"(,{"name":"peer","ip":"127.0.0.1","port":)" + std::to_string(Sfcapd::kPort) + "}");
        Watch(
            "set oam sflow-manager collector peer discards true; "
            "set oam sflow interface busy flow-sampling-collector peer");
        for (std::uint16_t i = 0; i < kPackets; ++i) {
            Send({support::UdpFrame({.destinationPort = static_cast<std::uint16_t>(kFirstPort + i)})});
            // Some in a datagram of each kind, others in one of many.
            if (i % 10 == 0) AwaitSent(i + 1);
        }
        AwaitSent(kPackets);
        EXPECT_EQ(0U, CountIn(CollectorShown("peer"), "samples-lost"));
    }

    void AwaitSent(std::uint64_t packets)
    {
        support::Await("the peer to be sent all", [&] {
            const nlohmann::json peer = CollectorShown("peer");
            return CountIn(peer, "flow-samples-sent") == packets && CountIn(peer, "discards-sent") == packets;
        });
    }
};

TEST_F(DropsAtPeers, SfcapdStoresEachFlowSample)
{
    if (const std::string why = Sfcapd::WhyNot(Sfcapd::kProgram); !why.empty()) GTEST_SKIP() << why;
    Sfcapd peer;
    TellThePeer();
    EXPECT_EQ(0U, peer.End());
    std::multiset<unsigned> ports;
    std::istringstream lines(peer.Flows("%dp"));
    for (unsigned port = 0; lines >> port;) ports.insert(port);
    EXPECT_EQ(AllPorts(), ports);
    EXPECT_THAT(peer.Log(), HasSubstr("Sequence Errors: 0, Bad Packets: 0"));
}

TEST_F(DropsAtPeers, SfacctdStoresEachFlowSample)
{
    if (const std::string why = Sfacctd::WhyNot(Sfacctd::kProgram); !why.empty()) GTEST_SKIP() << why;
    Sfacctd peer("dst_port");
    TellThePeer();
    EXPECT_EQ(0U, peer.End());
    std::multiset<unsigned> ports;
    for (const nlohmann::json& one : peer.Totals())
        for (unsigned packet = 0; packet < one.at("packets").get<unsigned>(); ++packet)
            ports.insert(one.at("port_dst").get<unsigned>());
    EXPECT_EQ(AllPorts(), ports);
}

}  // namespace
}  // namespace system_tests
