// SPDX-License-Identifier: Apache-2.0
// What goes wrong at one collector: which datagrams it costs, what the status says, and that it costs no
// other collector.

#include <cerrno>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/log.h"
#include "log/log_fixture.h"
#include "manager/export/world.h"

namespace exporter_test {
namespace {

using support::Network;
using testing::ElementsAre;
using testing::HasSubstr;

/// Two interfaces that end in each other: what is sent on `out` arrives at no socket.
void MakeWire(const std::string& qdisc)
{
    Network::Veth("out", "in");
    Network::Ip(
        "address add 10.1.0.1/24 dev out\n"
        "neighbour add 10.1.0.2 lladdr 02:00:00:00:00:02 dev out\n");
    if (!qdisc.empty()) {
        std::vector<std::string> arguments{"tc", "qdisc", "add", "dev", "out", "root"};
        std::istringstream words(qdisc);
        for (std::string word; words >> word;) arguments.push_back(word);
        Network::Run(arguments);
    }
}

TEST_F(ExporterTest, LosesNothingToTheErrorOfAnEarlierDatagram)
{
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    for (int n = 0; n < 10; ++n) SendOne(stream);
    const StreamStatus& status = stream.Status();
    // The first is sent before there is any error; each later one finds that of the one before.
    EXPECT_EQ(status.datagrams, 10U);
    EXPECT_EQ(status.lostDatagrams, 0U);
    EXPECT_EQ(status.errors, 9U);
    EXPECT_EQ(status.lastError, Code(ECONNREFUSED));
    EXPECT_EQ(status.lastErrorText, "send to 127.0.0.2:6343: Connection refused");
    EXPECT_EQ(status.lastErrorTime, m_time);
    EXPECT_FALSE(status.sending);

    Collector collector("127.0.0.2", 6343);
    Advance(milliseconds(100));
    SendOne(stream);
    SendOne(stream);
    EXPECT_THAT(Sequences(collector.Take(2)), ElementsAre(11, 12));
    EXPECT_EQ(status.errors, 10U);
    Advance(milliseconds(1800));
    SendOne(stream);
    EXPECT_FALSE(status.sending);  // some hosts report once a second only
    Advance(milliseconds(100));
    SendOne(stream);
    EXPECT_TRUE(status.sending);
    EXPECT_EQ(status.errors, 10U);
}

TEST_F(ExporterTest, SaysWhatHasBecomeOfTheLastDatagramWithoutAFurtherOne)
{
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    const StreamStatus& status = stream.Status();
    SendOne(stream);
    const auto sent = m_time;
    EXPECT_TRUE(status.sending);
    Advance(milliseconds(3000));
    Export().TakeErrors();
    EXPECT_FALSE(status.sending);
    EXPECT_EQ(status.errors, 1U);
    EXPECT_EQ(status.lastError, Code(ECONNREFUSED));
    EXPECT_EQ(status.lastErrorText, "send to 127.0.0.2:6343: Connection refused");
    EXPECT_EQ(status.lastErrorTime, sent) << "it is of that datagram, whenever it is asked for";
    Export().TakeErrors();
    EXPECT_FALSE(status.sending) << "nothing has been sent since";
    EXPECT_EQ(status.errors, 1U);
    Collector collector("127.0.0.2", 6343);
    SendOne(stream);
    Export().TakeErrors();
    EXPECT_TRUE(status.sending);
    EXPECT_EQ(status.errors, 1U);
}

TEST_F(ExporterTest, AnErrorThatHasWaitedForTheNextDatagramIsOfTheOneBefore)
{
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    const StreamStatus& status = stream.Status();
    SendOne(stream);
    const auto sent = m_time;
    Collector collector("127.0.0.2", 6343);
    Advance(milliseconds(12'000));
    SendOne(stream);
    EXPECT_EQ(status.errors, 1U);
    EXPECT_EQ(status.lastErrorTime, sent);
    EXPECT_TRUE(status.sending) << "nobody has refused this one";
    EXPECT_THAT(Sequences(collector.Take(1)), ElementsAre(2));
}

TEST_F(ExporterTest, SendsManyDatagramsToACollectorThatRefusesThem)
{
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    // Of many sizes, so that each is a message of its own, and the errors come in between.
    for (int n = 0; n < 3; ++n) {
        for (std::size_t size = 12; size <= 1360; size += 4) Put(stream, 1, size);
        Export().Flush();
    }
    const std::uint64_t refused = stream.Status().datagrams;
    EXPECT_EQ(stream.Status().lostDatagrams, 0U);
    EXPECT_GT(stream.Status().errors, 0U);
    Collector collector("127.0.0.2", 6343);
    SendOne(stream);
    EXPECT_THAT(Sequences(collector.Take(1)), ElementsAre(refused + 1));
}

TEST_F(ExporterTest, CountsWhatAFullSocketBufferCosts)
{
    // A byte a millisecond: what is sent stays in the device's queue.
    MakeWire("tbf rate 8kbit burst 2000 limit 100000000");
    Collector collector("127.0.0.2", 6343);
    Stream& bad = Export().Set("bad", Settings("10.1.0.2", 6343, 1400));
    Stream& good = Export().Set("good", Settings("127.0.0.2", 6343, 1400));
    // 1.4 MB, more than the buffer takes.
    constexpr std::size_t kDatagrams = 1000;
    for (std::size_t n = 0; n < kDatagrams; ++n) {
        Put(bad, 6, 220);
        Put(good, 1, 220);
        if (n % 50 == 49) Export().Flush();
    }
    const StreamStatus& status = bad.Status();
    EXPECT_EQ(status.datagrams + status.lostDatagrams, kDatagrams);
    EXPECT_GT(status.datagrams, 100U);
    EXPECT_GT(status.lostDatagrams, 100U);
    EXPECT_EQ(status.flowSamples, status.datagrams * 6);
    EXPECT_EQ(status.lostSamples, status.lostDatagrams * 6);
    EXPECT_EQ(status.lastError, Code(EAGAIN));
    EXPECT_THAT(status.lastErrorText, HasSubstr("(the socket's buffer is full)"));
    EXPECT_FALSE(status.sending);
    EXPECT_EQ(good.Status().lostDatagrams + good.Status().errors, 0U);
    EXPECT_TRUE(good.Status().sending);
    EXPECT_EQ(Samples(collector.Take(good.Status().datagrams)).size(), kDatagrams);

    Network::Run({"tc", "qdisc", "del", "dev", "out", "root"});
    Collector moved("10.1.0.1", 6343);
    const std::uint64_t lost = status.lostDatagrams;
    SendOne(bad);
    EXPECT_EQ(status.lostDatagrams, lost);
    EXPECT_TRUE(status.sending);
    Export().Set("bad", Settings("10.1.0.1", 6343, 1400));
    SendOne(bad);
    // What was lost has left its gap.
    EXPECT_THAT(Sequences(moved.Take(1)), ElementsAre(kDatagrams + 2));
}

TEST_F(ExporterTest, CountsWhatTheDevicesQueueThrowsAway)
{
    MakeWire("tbf rate 8kbit burst 2000 limit 3000");
    Stream& stream = Export().Set("c1", Settings("10.1.0.2", 6343, 1400));
    for (int n = 0; n < 50; ++n) {
        Put(stream, 6, 220);
        Export().Flush();
    }
    const StreamStatus& status = stream.Status();
    EXPECT_EQ(status.lastError, Code(ENOBUFS));
    EXPECT_EQ(status.lastErrorText,
              "send to 10.1.0.2:6343: No buffer space available (the device's queue is full)");
    EXPECT_EQ(status.datagrams + status.lostDatagrams, 50U);
    EXPECT_GE(status.lostDatagrams, 40U);
    EXPECT_EQ(status.errors, status.lostDatagrams);
    EXPECT_FALSE(status.sending);
}

TEST_F(ExporterTest, WaitsForARouteAndLooksOnceASecond)
{
    Stream& stream = Export().Set("c1", Settings("10.9.9.9", 6343, 1400));
    const StreamStatus& status = stream.Status();
    EXPECT_EQ(status.lastError, Code(ENETUNREACH));
    EXPECT_EQ(status.lastErrorText, "connect to 10.9.9.9:6343: Network is unreachable");
    EXPECT_EQ(status.errors, 1U);
    SendOne(stream);
    Network::Ip("address add 10.9.9.9/32 dev lo\n");
    Collector collector("10.9.9.9", 6343);
    Advance(milliseconds(999));
    SendOne(stream);
    EXPECT_EQ(status.errors, 1U);
    EXPECT_EQ(status.lostDatagrams, 2U);
    EXPECT_EQ(status.lostSamples, 2U);
    EXPECT_FALSE(status.sending);
    Advance(milliseconds(1));
    SendOne(stream);
    EXPECT_TRUE(status.sending);
    EXPECT_EQ(status.lostDatagrams, 2U);
    const auto received = collector.Take(1);
    EXPECT_THAT(Sequences(received), ElementsAre(3));
    EXPECT_EQ(Samples(received), Last(1));
}

struct Gone {
    std::string name;
    std::string lines;  // for ip
    int error;
};
class ExporterRoutes : public ExporterTest, public testing::WithParamInterface<Gone> {};

TEST_P(ExporterRoutes, GoesOnWhenTheRouteIsBack)
{
    MakeWire("");
    Network::Ip("address add 10.1.0.77/24 dev out\nroute add 10.5.0.0/16 via 10.1.0.2 src 10.1.0.77\n");
    Stream& stream = Export().Set("c1", Settings("10.5.0.1", 6343, 1400));
    const StreamStatus& status = stream.Status();
    Advance(milliseconds(1000));
    SendOne(stream);
    ASSERT_EQ(status.datagrams, 1U);
    Network::Ip(GetParam().lines);
    SendOne(stream);
    SendOne(stream);
    EXPECT_EQ(status.lastError, Code(GetParam().error)) << status.lastError.message();
    EXPECT_EQ(status.lostDatagrams, 2U);
    EXPECT_EQ(status.datagrams, 1U);
    EXPECT_FALSE(status.sending);
    Network::Ip("link set out up\nroute replace 10.5.0.0/16 via 10.1.0.2 src 10.1.0.1\n");
    Advance(milliseconds(1000));
    SendOne(stream);
    EXPECT_EQ(status.datagrams, 2U);
    EXPECT_EQ(status.lostDatagrams, 2U);
    EXPECT_TRUE(status.sending);
}

INSTANTIATE_TEST_SUITE_P(All, ExporterRoutes,
                         testing::Values(Gone{"NoRoute", "route delete 10.5.0.0/16\n", ENETUNREACH},
                                         Gone{"Unreachable", "route replace unreachable 10.5.0.0/16\n",
                                              EHOSTUNREACH},
                                         Gone{"Prohibited", "route replace prohibit 10.5.0.0/16\n", EACCES},
                                         Gone{"Blackhole", "route replace blackhole 10.5.0.0/16\n", EINVAL},
                                         Gone{"InterfaceDown", "link set out down\n", ENETUNREACH}),
                         [](const auto& test) { return test.param.name; });

TEST_F(ExporterTest, TakesAnotherSourceAddressWhenItsOwnIsGone)
{
    MakeWire("");
    Network::Ip(
        "address add 10.1.0.77/24 dev out\n"
        "route add 10.5.0.0/16 via 10.1.0.2 src 10.1.0.77\n");
    Stream& stream = Export().Set("c1", Settings("10.5.0.1", 6343, 1400));
    SendOne(stream);
    ASSERT_EQ(stream.Status().datagrams, 1U);
    // The route goes with its source; another one is there.
    Network::Ip("address delete 10.1.0.77/24 dev out\nroute replace 10.5.0.0/16 via 10.1.0.2\n");
    for (int n = 0; n < 3; ++n) {
        Advance(milliseconds(1000));
        SendOne(stream);
    }
    EXPECT_GE(stream.Status().datagrams, 3U);
    EXPECT_LE(stream.Status().lostDatagrams, 1U);
    EXPECT_TRUE(stream.Status().sending);
}

TEST_F(ExporterTest, SeesAHostThatDoesNotAnswer)
{
    Network::Veth("out", "in");
    Network::Ip("address add 10.1.0.1/24 dev out\n");
    Network::Run({"sysctl", "-q", "-w", "net.ipv4.neigh.out.retrans_time_ms=10"});
    Stream& stream = Export().Set("c1", Settings("10.1.0.2", 6343, 1400));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (stream.Status().errors == 0 && std::chrono::steady_clock::now() < deadline) SendOne(stream);
    const StreamStatus& status = stream.Status();
    EXPECT_EQ(status.lastError, Code(EHOSTUNREACH));
    EXPECT_FALSE(status.sending);

    // It is reported late: a datagram shows that the host is there only when it has had time to fail.
    Network::Ip("neighbour replace 10.1.0.2 lladdr 02:00:00:00:00:02 dev out\n");
    Export().TakeErrors();
    SendOne(stream);
    Export().TakeErrors();
    const std::uint64_t errors = status.errors;
    Advance(milliseconds(4999));
    Export().TakeErrors();
    EXPECT_FALSE(status.sending);
    Advance(milliseconds(1));
    Export().TakeErrors();
    EXPECT_TRUE(status.sending);
    EXPECT_EQ(status.errors, errors);
}

TEST_F(ExporterTest, SendsNothingToPortZeroAndSaysSo)
{
    Collector collector("127.0.0.2", 6343);
    Stream& good = Export().Set("good", Settings("127.0.0.2", 6343, 1400));
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 0, 1400));
    const StreamStatus& status = stream.Status();
    SendOne(stream);
    SendOne(good);
    EXPECT_EQ(status.datagrams, 0U);
    EXPECT_EQ(status.lostDatagrams, 1U);
    EXPECT_FALSE(status.sending);
    EXPECT_EQ(status.lastErrorText,
              "connect to 127.0.0.2:0: Destination address required (there is no port 0)");
    EXPECT_EQ(good.Status().errors, 0U);
    EXPECT_EQ(collector.Take(1).size(), 1U);
    Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    SendOne(stream);
    EXPECT_TRUE(status.sending);
    EXPECT_THAT(Sequences(collector.Take(1)), ElementsAre(2));
}

class ExporterMtu : public ExporterTest, public testing::WithParamInterface<std::uint16_t> {};

TEST_P(ExporterMtu, SendsDatagramsLargerThanTheMtu)
{
    Network::Ip("link set lo mtu 1300\n");
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, GetParam()));
    Put(stream, 2000, 220);
    Export().Flush();
    const auto received = collector.Take(stream.Status().datagrams);
    EXPECT_EQ(Samples(received), m_put);
    EXPECT_EQ(Sequences(received), FromTo(1, static_cast<std::uint32_t>(received.size())));
    EXPECT_EQ(stream.Status().lostDatagrams + stream.Status().errors, 0U);
    EXPECT_TRUE(stream.Status().sending);
    // The other way round, it is tried again after a minute; the datagrams are the same.
    Network::Ip("link set lo mtu 65536\n");
    Advance(milliseconds(60'000));
    Put(stream, 2000, 220);
    Export().Flush();
    EXPECT_EQ(Samples(collector.Take(received.size())), Last(2000));
    EXPECT_EQ(stream.Status().lostDatagrams + stream.Status().errors, 0U);
}
INSTANTIATE_TEST_SUITE_P(All, ExporterMtu, testing::Values(1400, 9000, 65507));

TEST_F(ExporterTest, GoesOnWithTheOthersWhenOneIsBad)
{
    std::vector<std::unique_ptr<Collector>> collectors;
    std::vector<Stream*> good;
    for (int n = 2; n < 10; ++n) {
        const std::string address = "127.0.0." + std::to_string(n);
        collectors.push_back(std::make_unique<Collector>(address, 6343));
        good.push_back(&Export().Set(address, Settings(address, 6343, 1400)));
        Export().Set("bad" + address,
                     Settings(n % 2 == 0 ? "10.9.9.9" : address, n % 2 == 0 ? 6343 : 9, 1400));
    }
    for (int round = 0; round < 20; ++round) {
        for (int n = 2; n < 10; ++n) {
            const std::string address = "127.0.0." + std::to_string(n);
            Put(*Export().Find("bad" + address), 10, 220);
            Put(*Export().Find(address), 10, 220);
        }
        Export().Flush();
        Advance(milliseconds(100));
    }
    for (std::size_t n = 0; n < good.size(); ++n) {
        EXPECT_EQ(Sequences(collectors[n]->Take(40)), FromTo(1, 40));
        EXPECT_EQ(good[n]->Status().flowSamples, 200U);
        EXPECT_EQ(good[n]->Status().errors, 0U);
    }
    const StreamStatus& unreachable = Export().Find("bad127.0.0.2")->Status();
    EXPECT_EQ(unreachable.lostSamples, 200U);
    // At the beginning and after a second.
    EXPECT_EQ(unreachable.errors, 2U);
}

class ExporterLog : public LogFixture {};

TEST_F(ExporterLog, HasOneLineForARowOfErrorsAndOneForItsEnd)
{
    if (const std::string why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
    const Network network;
    slog::Open("sflow-mgr");
    milliseconds uptime{0};
    Exporter exporter([] { return std::chrono::system_clock::time_point{}; }, [&] { return uptime; }, 0);
    Stream& stream = exporter.Set("c1", Settings("127.0.0.2", 6343, 1400));
    const auto send = [&](int times) {
        for (; times > 0; --times, uptime += milliseconds(100)) {
            stream.Put(MakeSample({1, Kind::kFlow}, 100), Kind::kFlow);
            exporter.Flush();
        }
    };
    send(100);
    EXPECT_THAT(Lines(), ElementsAre(HasSubstr("collector c1: send to 127.0.0.2:6343: Connection refused")));
    {
        const Collector collector("127.0.0.2", 6343);
        send(100);
        EXPECT_THAT(Lines(), ElementsAre(HasSubstr("refused"),
                                         HasSubstr("collector c1: sends to 127.0.0.2:6343 again")));
    }
    send(100);
    EXPECT_THAT(Lines(), ElementsAre(HasSubstr("refused"), HasSubstr("again"), HasSubstr("refused")));
    // Also where what is sent seldom is always refused, and the state is read.
    for (int n = 0; n < 5; ++n) {
        exporter.TakeErrors();
        uptime += milliseconds(20'000);
        send(1);
    }
    EXPECT_EQ(Lines().size(), 3U);
}

}  // namespace
}  // namespace exporter_test
