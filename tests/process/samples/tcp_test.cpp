// SPDX-License-Identifier: Apache-2.0
// A real stream of TCP between two hosts, whose packets the kernel holds as segments together: what is
// counted and sampled is what is on the wire. What was on the wire is what the sender's own TCP counted.

#include <arpa/inet.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <numeric>
#include <system_error>

#include "samples/frame_sizes.h"
#include "samples/samples_test.h"

namespace samples_tests {

namespace {

constexpr std::uint32_t kLargest = 1514 + kFcs;
constexpr std::size_t kStream = 3'000'000;

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

class Socket {
public:
    Socket(const Network::Host& host, int type)
    {
        host.Within([&] { m_descriptor = ::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
        if (m_descriptor < 0) Fail("socket");
    }
    explicit Socket(int descriptor) : m_descriptor(descriptor)
    {
        if (m_descriptor < 0) Fail("connection");
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() { ::close(m_descriptor); }
    [[nodiscard]] int Get() const { return m_descriptor; }
    [[nodiscard]] bool Ready(short what) const
    {
        pollfd one{m_descriptor, what, 0};
        return ::poll(&one, 1, 10) == 1;
    }

private:
    int m_descriptor = -1;
};

sockaddr_in Address(const char* text, std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    ::inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

/// Bytes of a sampled frame that TCP carries: by the lengths in its headers.
std::size_t PayloadOf(const DecodedFlow& flow)
{
    const auto& bytes = flow.header->bytes;
    const auto words = [&](std::size_t at, unsigned mask, unsigned shift) {
        return std::size_t{(std::to_integer<unsigned>(bytes.at(at)) & mask) >> shift} * 4;
    };
    const std::size_t ip = words(kEthernet, 0x0F, 0);
    const std::size_t tcp = words(kEthernet + ip + 12, 0xF0, 4);
    return flow.header->frameLength - kFcs - kEthernet - ip - tcp;
}

/// Two hosts behind p1 and p2 that know each other's MAC addresses, so that there is nothing but TCP.
class TcpTest : public SourceTest {
protected:
    void SetUp() override
    {
        SourceTest::SetUp();
        if (IsSkipped()) return;
        MakeBridge(2);
        m_sender = std::make_unique<Network::Host>();
        m_receiver = std::make_unique<Network::Host>();
        Place(*m_sender, "1", "2");
        Place(*m_receiver, "2", "1");
    }

    static void Place(const Network::Host& host, const std::string& own, const std::string& other)
    {
        const std::string device = "h" + own;
        Network::Ip("link set " + device + " netns " + std::to_string(host.Pid()));
        host.Within([&] {
            Network::Ip("link set " + device + " address 02:00:00:00:00:0" + own + " up\naddr add 10.0.0." +
                        own + "/24 dev " + device + "\nneigh add 10.0.0." + other +
                        " lladdr 02:00:00:00:00:0" + other + " nud permanent dev " + device);
        });
    }

    /// Sends the stream from 10.0.0.1 to 10.0.0.2 and returns what the sender's TCP counted. The connection
    /// stays: its end would be counted too.
    [[nodiscard]] tcp_info Stream()
    {
        const Socket listener(*m_receiver, SOCK_STREAM);
        const Socket& sender = *m_sockets.emplace_back(std::make_unique<Socket>(*m_sender, SOCK_STREAM));
        const auto there = Address("10.0.0.2", 5001);
        const auto* address = reinterpret_cast<const sockaddr*>(&there);
        if (::bind(listener.Get(), address, sizeof there) != 0 || ::listen(listener.Get(), 1) != 0)
            Fail("listen");
        if (::connect(sender.Get(), address, sizeof there) != 0 && errno != EINPROGRESS) Fail("connect");
        support::Await("a connection", [&] { return listener.Ready(POLLIN); });
        const Socket& receiver = *m_sockets.emplace_back(std::make_unique<Socket>(
            ::accept4(listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)));
        const std::vector<char> block(256 << 10, 'x');
        std::vector<char> into(1 << 20);
        std::size_t sent = 0, received = 0;
        support::Await("the stream to pass", [&] {
            const std::size_t size = std::min(block.size(), kStream - sent);
            const ssize_t taken = size > 0 ? ::send(sender.Get(), block.data(), size, MSG_NOSIGNAL) : 0;
            if (taken > 0) sent += static_cast<std::size_t>(taken);
            if (taken < 0 && errno != EAGAIN) Fail("send");
            const ssize_t got = ::recv(receiver.Get(), into.data(), into.size(), 0);
            if (got > 0) received += static_cast<std::size_t>(got);
            return received == kStream;
        });
        tcp_info info{};
        const auto counted = [&] {
            socklen_t size = sizeof info;
            if (::getsockopt(sender.Get(), IPPROTO_TCP, TCP_INFO, &info, &size) != 0) Fail("TCP_INFO");
            return info.tcpi_bytes_acked >= kStream && info.tcpi_unacked == 0;
        };
        support::Await("the last acknowledgement", counted);
        return info;
    }

    std::unique_ptr<Network::Host> m_sender, m_receiver;
    std::vector<std::unique_ptr<Socket>> m_sockets;
};

/// Packet sockets count what the kernel holds together once.
class TcpBothWaysTest : public TcpTest {};

INSTANTIATE_TEST_SUITE_P(, TcpTest, AllSources(), NameOfSource);
INSTANTIATE_TEST_SUITE_P(, TcpBothWaysTest,
                         testing::Values(SourceRow{"Ebpf", "ebpf"}, SourceRow{"EbpfClsact", "ebpf-clsact"}),
                         NameOfSource);

// sFlow v5, flow_sample: sample_pool counts packets of the network; sampled_header: frame_length is that of
// one.
TEST_P(TcpTest, AStreamIsCountedAsTheFramesThatItIsOnTheWire)
{
    Collector collector;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    agent.Update("p1", {.flows = "c1"});
    const tcp_info counted = Stream();
    ASSERT_GT(counted.tcpi_segs_out, Received("p1")) << "the stream was not sent in segments held together";
    const std::uint64_t expected = IsEbpf() ? counted.tcpi_segs_out : Received("p1");
    const auto flows = collector.AwaitFlows(expected);
    EXPECT_EQ(flows.size(), expected);
    agent.AwaitMetric("sflow_interface_packets_seen_total{interface=\"p1\"}", expected);
    EXPECT_EQ(agent.OfInterface("p1", "samples_total"), expected);
    for (const DecodedFlow& flow : flows) ASSERT_LE(flow.header->frameLength, kLargest);
    if (!IsEbpf()) return;
    const std::size_t payload =
        std::transform_reduce(flows.begin(), flows.end(), std::size_t{0}, std::plus<>(), PayloadOf);
    EXPECT_EQ(payload, counted.tcpi_bytes_sent);
    const auto last = std::ranges::max(flows, {}, &DecodedFlow::pool).pool;
    EXPECT_EQ(last, expected);
}

// sFlow v5, section 5, flow_sample: input and output of each frame, at both data sources.
TEST_P(TcpBothWaysTest, FramesAreCountedAsTheyAreOnTheWire)
{
    Collector collector;
    Agent& agent = StartSource({"--direction", "both"});
    agent.AddCollector("c1", collector.Port());
    for (const char* port : {"p1", "p2"}) agent.Update(port, {.flows = "c1"});
    const tcp_info counted = Stream();
    const std::uint64_t there = counted.tcpi_segs_out, back = counted.tcpi_segs_in;
    const auto flows = collector.AwaitFlows(2 * (there + back));
    EXPECT_EQ(flows.size(), 2 * (there + back)) << "each frame where it enters and where it leaves";
    const DecodedPort p1{0, Network::Index("p1")}, p2{0, Network::Index("p2")};
    for (const DecodedPort& port : {p1, p2}) {
        SCOPED_TRACE(Text(port));
        std::uint64_t forward = 0, backward = 0;
        for (const DecodedFlow& flow : collector.Flows(port.value)) {
            ASSERT_LE(flow.header->frameLength, kLargest);
            forward += flow.input == p1 && flow.output == p2 ? 1 : 0;
            backward += flow.input == p2 && flow.output == p1 ? 1 : 0;
        }
        EXPECT_EQ(forward, there);
        EXPECT_EQ(backward, back);
    }
}

}  // namespace

}  // namespace samples_tests
