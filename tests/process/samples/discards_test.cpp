// SPDX-License-Identifier: Apache-2.0
// What collectors of other people's make of discarded packets, a sample that they do not know: which of them
// loses other samples of the same datagram, and that none loses any where discarded packets have datagrams of
// their own. The table at the end of docs/drops.md says the same. tests/unit/wire/tshark_test.cpp asks
// tshark; tests/process/system/drops_peers_test.cpp has a real manager. Needs sfcapd and nfdump
// (nfdump-sflow), and sfacctd (pmacct).

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <span>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "base/unique_fd.h"
#include "samples/frame_sizes.h"
#include "samples/peer.h"
#include "samples/samples_test.h"
#include "wire/discard.h"
#include "wire/encode.h"

namespace samples_tests {
namespace {

/// The samples of a datagram: a flow sample of a packet to this port, or a discarded packet.
constexpr std::uint16_t kDiscard = 0;
using SamplesOfDatagram = std::vector<std::uint16_t>;

std::size_t EncodeFlow(std::uint32_t sequence, const Bytes& frame, std::span<std::byte> room)
{
    wire::FlowSample flow;
    flow.sequence = sequence;
    flow.source = 3;
    flow.rate = 1;
    flow.pool = sequence;
    flow.input = {wire::Port::Format::kSingle, 3};
    flow.output = {wire::Port::Format::kSingle, 4};
    flow.frameLength = static_cast<std::uint32_t>(frame.size()) + kFcs;
    flow.stripped = kFcs;
    flow.header = frame;
    flow.maxHeader = 128;
    return wire::Encode(flow, wire::Encoding::kCompact, room);
}

std::size_t EncodeDiscard(std::uint32_t sequence, const Bytes& frame, std::span<std::byte> room)
{
    wire::DiscardSample discard;
    discard.sequence = sequence;
    discard.source = 3;
    discard.input = 3;
    discard.reason = wire::DropReason::kPortUnreachable;
    discard.frameLength = static_cast<std::uint32_t>(frame.size()) + kFcs;
    discard.stripped = kFcs;
    discard.header = frame;
    discard.maxHeader = 128;
    discard.function = "udp_rcv";
    discard.linuxReason = "NO_SOCKET";
    return wire::Encode(discard, room);
}

/// Each sample has a packet of its own: collectors add up what has the same addresses and ports.
class Sender {
public:
    Sender() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(Peer::kPort);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0)
            throw std::system_error(errno, std::generic_category(), "connect to the peer");
    }

    void Send(const SamplesOfDatagram& samples)
    {
        Bytes bytes(1400);
        std::size_t size = wire::kDatagramHeaderSize;
        wire::Encode(wire::DatagramHeader{::inet_addr("192.0.2.9"), 0, ++m_datagrams, 1000 * m_datagrams,
                                          static_cast<std::uint32_t>(samples.size())},
                     bytes);
        for (const std::uint16_t port : samples) {
            const std::span room = std::span(bytes).subspan(size);
            if (port == kDiscard)
                size += EncodeDiscard(++m_discards, support::UdpFrame({.destinationPort = 9}), room);
            else
                size += EncodeFlow(++m_flows, support::UdpFrame({.destinationPort = port}), room);
        }
        if (::send(m_socket.Get(), bytes.data(), size, 0) != static_cast<ssize_t>(size))
            throw std::system_error(errno, std::generic_category(), "send to the peer");
    }

private:
    base::UniqueFd m_socket;
    std::uint32_t m_datagrams = 0, m_flows = 0, m_discards = 0;
};

/// The ports of the flow samples that it has stored, sorted, and what it has logged.
struct Stored {
    std::vector<unsigned> ports;
    std::string log;
};

std::vector<unsigned> PortsAt(const Sfcapd& peer)
{
    std::vector<unsigned> ports;
    std::istringstream lines(peer.Flows("%dp"));
    for (unsigned port = 0; lines >> port;) ports.push_back(port);
    return ports;
}

std::vector<unsigned> PortsAt(const Sfacctd& peer)
{
    std::vector<unsigned> ports;
    for (const nlohmann::json& one : peer.Totals()) {
        EXPECT_EQ(one.at("packets"), 1) << one;
        ports.push_back(one.at("port_dst"));
    }
    return ports;
}

template <typename SomePeer>
Stored StoredBy(SomePeer&& peer, const std::vector<SamplesOfDatagram>& datagrams)
{
    Sender sender;
    for (const SamplesOfDatagram& samples : datagrams) sender.Send(samples);
    EXPECT_EQ(peer.End(), 0U);
    Stored stored{PortsAt(peer), peer.Log()};
    std::ranges::sort(stored.ports);
    return stored;
}

/// A discarded packet between others, before them, behind them; and a datagram without one.
const std::vector<SamplesOfDatagram> kMixed = {
    {4001, kDiscard, 4002, 4003}, {kDiscard, 4004}, {4005, kDiscard}, {4006}};
/// The same samples, none of them in one datagram with a discarded packet.
const std::vector<SamplesOfDatagram> kApart = {{4001, 4002, 4003},   {kDiscard}, {4004},
                                               {kDiscard, kDiscard}, {4005},     {4006}};

constexpr const char* kDocument = "docs/drops.md says what this collector does with them\n";

using DiscardsTest = SamplesTest;

TEST_F(DiscardsTest, SfcapdStepsOverThem)
{
    if (const std::string why = Peer::WhyNot(Sfcapd::kProgram); !why.empty()) GTEST_SKIP() << why;
    const Stored stored = StoredBy(Sfcapd(), kMixed);
    EXPECT_THAT(stored.ports, testing::ElementsAre(4001, 4002, 4003, 4004, 4005, 4006)) << kDocument;
    EXPECT_THAT(stored.log, testing::HasSubstr("Sequence Errors: 0, Bad Packets: 0")) << kDocument;
}

TEST_F(DiscardsTest, SfacctdLosesWhatIsBehindThemInTheDatagram)
{
    if (const std::string why = Peer::WhyNot(Sfacctd::kProgram); !why.empty()) GTEST_SKIP() << why;
    const Stored stored = StoredBy(Sfacctd("dst_port"), kMixed);
    EXPECT_THAT(stored.ports, testing::ElementsAre(4001, 4005, 4006)) << kDocument << stored.log;
    EXPECT_THAT(stored.log, testing::HasSubstr("discarding unknown v5 sample")) << kDocument;
}

TEST_F(DiscardsTest, SfcapdLosesNothingWhereTheyHaveDatagramsOfTheirOwn)
{
    if (const std::string why = Peer::WhyNot(Sfcapd::kProgram); !why.empty()) GTEST_SKIP() << why;
    const Stored stored = StoredBy(Sfcapd(), kApart);
    EXPECT_THAT(stored.ports, testing::ElementsAre(4001, 4002, 4003, 4004, 4005, 4006)) << stored.log;
    EXPECT_THAT(stored.log, testing::HasSubstr("Sequence Errors: 0, Bad Packets: 0"));
}

TEST_F(DiscardsTest, SfacctdLosesNothingWhereTheyHaveDatagramsOfTheirOwn)
{
    if (const std::string why = Peer::WhyNot(Sfacctd::kProgram); !why.empty()) GTEST_SKIP() << why;
    const Stored stored = StoredBy(Sfacctd("dst_port"), kApart);
    EXPECT_THAT(stored.ports, testing::ElementsAre(4001, 4002, 4003, 4004, 4005, 4006)) << stored.log;
}

}  // namespace
}  // namespace samples_tests
