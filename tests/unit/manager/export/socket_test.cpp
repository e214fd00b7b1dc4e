// SPDX-License-Identifier: Apache-2.0
// Which datagrams go as one message, what the socket does where the kernel refuses that, and the mark.

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/export/stream_socket.h"
#include "manager/export/world.h"
#include "support/few_files.h"

namespace exporter_test {
namespace {

using manager::Datagram;
using manager::FirstRun;
using manager::SendResult;
using manager::StreamSocket;
using testing::ElementsAre;

struct RunRow {
    std::string name;
    std::vector<std::uint16_t> sizes;
    std::size_t datagrams, bytes;
};
class Runs : public testing::TestWithParam<RunRow> {};

TEST_P(Runs, AreEqualDatagramsAndAShorterLast)
{
    std::vector<Datagram> datagrams;
    for (const std::uint16_t size : GetParam().sizes) datagrams.push_back({size, 1, 0});
    const manager::Run run = FirstRun(datagrams);
    EXPECT_EQ(run.datagrams, GetParam().datagrams);
    EXPECT_EQ(run.bytes, GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    All, Runs,
    testing::Values(RunRow{"One", {1400}, 1, 1400}, RunRow{"Equal", {1400, 1400, 1400}, 3, 4200},
                    RunRow{"ShorterLast", {1400, 1400, 200}, 3, 3000},
                    RunRow{"ShorterEnds", {1400, 200, 200}, 2, 1600},
                    RunRow{"LargerEnds", {200, 1400, 200}, 1, 200},
                    RunRow{"LargerAfterEqual", {200, 200, 201}, 2, 400},
                    RunRow{"SixtyFour", std::vector<std::uint16_t>(70, 200), 64, 12800},
                    RunRow{"LargestMessage", std::vector<std::uint16_t>(50, 1400), 46, 64400},
                    RunRow{"LargestMessageExactly", {32754, 32753, 1}, 2, 65507},
                    RunRow{"OneTooMany", {32754, 32754}, 1, 32754}, RunRow{"Largest", {65507, 1}, 1, 65507}),
    [](const auto& test) { return test.param.name; });

/// A network, and datagrams of samples of this suite's for StreamSocket::Send.
class StreamSocketTest : public ExporterTest {
protected:
    void Add(std::size_t size)
    {
        const std::size_t at = m_bytes.size();
        m_bytes.resize(at + size, std::byte{static_cast<unsigned char>(m_datagrams.size())});
        m_datagrams.push_back({static_cast<std::uint16_t>(size), 1, 0});
    }
    SendResult Send(StreamSocket& socket) { return socket.Send(m_bytes.data(), m_datagrams); }

    Bytes m_bytes;
    std::vector<Datagram> m_datagrams;
};

TEST_F(StreamSocketTest, SendsOneByOneWhereTheKernelCutsNoMessages)
{
    support::Network::Ip("link set lo mtu 1300\n");
    RawCollector collector("127.0.0.2", 6343);
    StreamSocket socket({});
    ASSERT_EQ(socket.Connect(Address("127.0.0.2"), 6343, {}).error, std::error_code());
    ASSERT_TRUE(socket.Segments()) << "no kernel for this test";
    // The first message passes, the second is refused.
    Add(600), Add(600), Add(200);
    for (int n = 0; n < 61; ++n) Add(1400);
    const SendResult result = Send(socket);
    EXPECT_EQ(result.taken, ~std::uint64_t{0});
    EXPECT_EQ(result.errors, 0U);
    EXPECT_FALSE(socket.Segments());
    for (std::size_t n = 0; n < m_datagrams.size(); ++n) {
        const std::vector<Bytes> one = collector.Read(5000);
        ASSERT_EQ(one.size(), 1U);
        EXPECT_EQ(one[0], Bytes(m_datagrams[n].size, std::byte{static_cast<unsigned char>(n)}));
    }
    EXPECT_TRUE(collector.Read(0).empty());
    socket.TrySegments();
    EXPECT_TRUE(socket.Segments());
}

TEST_F(StreamSocketTest, CarriesTheDatagramsThatItsBufferHasRoomFor)
{
    // Plenty of messages for a buffer that holds a few: the result says exactly which were taken.
    support::Network::Veth("out", "in");
    support::Network::Ip(
        "address add 10.1.0.1/24 dev out\n"
        "neighbour add 10.1.0.2 lladdr 02:00:00:00:00:02 dev out\n");
    support::Network::Run({"tc", "qdisc", "add", "dev", "out", "root", "tbf", "rate", "8kbit", "burst",
                           "2000", "limit", "100000000"});
    StreamSocket socket({.mark = 0, .sendBuffer = 4096});
    ASSERT_EQ(socket.Connect(Address("10.1.0.2"), 6343, {}).error, std::error_code());
    for (std::size_t n = 0; n < 64; ++n) Add(1000 + n);
    const SendResult result = Send(socket);
    EXPECT_EQ(result.error, std::error_code(EAGAIN, std::generic_category()));
    EXPECT_EQ(result.errors, 1U);
    EXPECT_FALSE(result.renew);
    // From the first on, without a hole.
    EXPECT_GT(result.taken, 0U);
    EXPECT_LT(result.taken, std::uint64_t{1} << 32);
    EXPECT_EQ(result.taken & (result.taken + 1), 0U);
    EXPECT_EQ(Send(socket).taken, 0U);
}

TEST_F(ExporterTest, MarksItsDatagrams)
{
    constexpr std::uint32_t kMark = 0x5F10;
    // Only what is marked has a route.
    support::Network::Ip(
        "address add 10.9.9.9/32 dev lo\nroute delete table local local 10.9.9.9 dev lo\n"
        "rule add fwmark 0x5f10 lookup 77\nroute add local 10.9.9.9/32 dev lo table 77\n");
    SendOne(Export().Set("c1", Settings("10.9.9.9", 6343, 1400)));
    EXPECT_EQ(Export().Find("c1")->Status().lostDatagrams, 1U);
    MakeExporter(kMark);
    EXPECT_EQ(Export().Limitation(), "");
    SendOne(Export().Set("c1", Settings("10.9.9.9", 6343, 1400)));
    EXPECT_EQ(Export().Find("c1")->Status().datagrams, 1U);
}

TEST_F(ExporterTest, SaysThatItMayNotMarkAndSendsAllTheSame)
{
    if (const std::string why = support::WhyNotWithoutFiles(); !why.empty()) GTEST_SKIP() << why;
    Collector collector("127.0.0.2", 6343);
    std::string atOnce, later, withoutSocket, unmarked;
    // Capabilities are those of a thread.
    std::thread([&] {
        __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
        __user_cap_data_struct none[2]{};
        if (::syscall(SYS_capset, &header, none) != 0) return;
        MakeExporter(0);
        unmarked = Export().Limitation();
        MakeExporter(7);
        atOnce = Export().Limitation();
        SendOne(Export().Set("c1", Settings("127.0.0.2", 6343, 1400)));
        later = Export().Limitation();
        const support::FewFiles noneLeft(0);
        Export().Set("c2", Settings("127.0.0.2", 6343, 1400));
        withoutSocket = Export().Limitation();
    }).join();
    EXPECT_EQ(unmarked, "");
    EXPECT_EQ(
        atOnce,
        "the manager's own datagrams are not marked (Operation not permitted), so they are sampled like "
        "others at the interfaces they pass; start sflow-mgr as root, or grant it CAP_NET_ADMIN or, from "
        "Linux 5.17 on, CAP_NET_RAW");
    EXPECT_EQ(later, atOnce);
    EXPECT_EQ(Export().Find("c2")->Status().lastError.value(), EMFILE);
    EXPECT_EQ(withoutSocket, atOnce);
    EXPECT_THAT(Sequences(collector.Take(1)), ElementsAre(1));
}

}  // namespace
}  // namespace exporter_test
