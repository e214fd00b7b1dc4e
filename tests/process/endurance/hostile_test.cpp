// SPDX-License-Identifier: Apache-2.0
// What strangers may send while the manager samples: nonsense on the sampled wire, on the service's socket
// and at the metrics' address. Each frame is sampled as it was, each datagram decodes strictly, and nothing
// that is sent to one place disturbs another.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>

#include "endurance/endurance_test.h"
#include "endurance/hostile_frames.h"
#include "ipc/manager.pb.h"

namespace endurance {
namespace {

class HostileFrames : public EnduranceTest, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
        if (!IsSkipped()) Start(GetParam(), {.arguments = {"--ring-size", "4M"}});
    }
};

TEST_P(HostileFrames, EachIsSampledAsItWas)
{
    const auto p1 = Network::Index("p1");
    DecodingCollector collector;
    Service().SetAgentAddress("192.0.2.1");
    World().AddCollector("a", collector);
    Service().UpdateInterface({.name = "p1", .flowCollector = "a", .headerSize = 512});
    World().AwaitApplied();
    support::Injector host("h1");
    std::vector<Bytes> expected;
    for (const auto& frames : {RandomFrames(), CutFrames(), LyingFrames(), ChainedFrames()}) {
        // In parts that the buffer holds.
        constexpr std::size_t kPart = 1024;
        for (std::size_t at = 0; at < frames.size(); at += kPart) {
            const auto end = std::min(frames.size(), at + kPart);
            for (std::size_t i = at; i < end; ++i) {
                host.Send(frames[i]);
                if (!KernelDrops(frames[i])) expected.push_back(frames[i]);
            }
            Await("samples of hostile frames", [&] { return collector.LastSequence(p1) >= expected.size(); });
        }
    }
    DecodingCollector::AwaitQuiet({&collector});

    const Flows flows = collector.Flows();  // decodes, strictly
    EXPECT_EQ(FaultInSequence(flows), "");
    EXPECT_EQ(FaultInDatagrams(collector.Arrivals()), "");
    ASSERT_EQ(flows.size(), expected.size());
    EXPECT_EQ(flows.back().pool, expected.size());
    constexpr std::size_t kFcs = 4, kLeast = 60;  // shorter ones are padded by the device
    for (std::size_t i = 0; i < flows.size(); ++i) {
        ASSERT_TRUE(flows[i].header) << "frame " << i;
        Bytes beginning = expected[i];
        beginning.resize(std::min<std::size_t>(beginning.size(), flows[i].header->bytes.size()));
        ASSERT_EQ(flows[i].header->bytes, beginning) << "frame " << i;
        ASSERT_GE(flows[i].header->bytes.size(), std::min<std::size_t>(expected[i].size(), 512))
            << "frame " << i;
        ASSERT_EQ(flows[i].header->frameLength, std::max(expected[i].size(), kLeast) + kFcs) << "frame " << i;
    }
    EXPECT_EQ(World().Manager().Terminate(), 0);
}

INSTANTIATE_TEST_SUITE_P(, HostileFrames, testing::Values(kTcx, kClsact, kPacketSocket),
                         [](const auto& row) { return TestName(row.param); });

/// p1 sampled at 1:1 under steady traffic, all of which must have been sampled in the end.
class Hostile : public EnduranceTest {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
        if (!IsSkipped()) Start(AnySource());
        if (IsSkipped() || HasFatalFailure()) return;
        collector.emplace();
        Configure(*collector, {"p1"});
        m_before = Received("p1");
        m_traffic.emplace("h1", NumberedFrames(1, 2), 2000, 0);
        AwaitMore();
    }
    void AwaitMore() { AwaitSamples(*collector, Network::Index("p1"), 200); }
    void ExpectAllSampled()
    {
        AwaitMore();
        m_traffic->Stop();
        DecodingCollector::AwaitQuiet({&*collector});
        EXPECT_EQ(FaultInWhole(collector->Flows(), Received("p1") - m_before, CountsPool()), "");
        EXPECT_EQ(World().Manager().Terminate(), 0);
    }

    std::optional<DecodingCollector> collector;

private:
    std::uint64_t m_before = 0;
    std::optional<BackgroundTraffic> m_traffic;
};

TEST_F(Hostile, BytesOnTheServiceSocketDisturbNeitherSamplingNorTheSession)
{
    const auto descriptors = Descriptors();
    std::mt19937 random(20260102);
    std::vector<std::unique_ptr<support::FrameClient>> open;
    ipc::manager::ClientMessage hello;
    hello.mutable_hello()->set_protocol(1);
    hello.mutable_hello()->set_process(std::string(5000, '\x01'));
    for (int round = 0; round < 200; ++round) {
        auto client = std::make_unique<support::FrameClient>(World().Socket());
        std::string bytes(random() % 600, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        const auto size = static_cast<std::uint32_t>(bytes.size());
        switch (round % 6) {
        case 0:  // no frame at all, most likely
            client->SendBytes(bytes);
            break;
        case 1:  // a frame that is no message
            client->SendBytes(support::FrameLength(size) + bytes);
            break;
        case 2:  // a frame that never ends
            client->SendBytes(support::FrameLength(size + 1000) + bytes);
            break;
        case 3:  // a frame larger than any
            client->SendBytes(support::FrameLength(0xFFFFFFFF) + bytes);
            break;
        case 4:  // a second session
            client->Send(hello);
            client->SendBytes(bytes);
            break;
        default:  // nothing
            break;
        }
        if (round % 2 == 0) open.push_back(std::move(client));
    }
    World().Service().UpdateInterface({.name = "p2", .flowCollector = "a"});
    World().AwaitApplied();
    AwaitMore();
    EXPECT_LE(Descriptors(), descriptors + 66) << "strangers have a bound";
    open.clear();
    EXPECT_TRUE(Becomes([&] { return Descriptors() <= descriptors + 2; })) << Descriptors();
    ExpectAllSampled();
}

TEST_F(Hostile, BytesInTheSessionEndItAndSamplingGoesOn)
{
    std::mt19937 random(20260103);
    for (int round = 0; round < 20; ++round) {
        std::string bytes(100 + random() % 400, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        bytes[0] = '\xff';  // no field has that number
        auto& connection = Service().Connection();
        connection.SendBytes(support::FrameLength(static_cast<std::uint32_t>(bytes.size())) + bytes);
        EXPECT_TRUE(connection.AwaitEnd());
        World().OpenSession();
    }
    ExpectAllSampled();
}

TEST_F(Hostile, OperationsThatMakeNoSenseAreRefusedOneByOne)
{
    const std::string longName(100'000, 'x');
    Service().AddCollector(longName, "127.0.0.1", 6343);
    Service().UpdateInterface({.name = longName, .flowCollector = "a"});
    Service().UpdateInterface({.name = "p2", .flowCollector = "a", .direction = 77});
    Service().AddSampleCollector("no such interface", "a");
    Service().AddSampleCollector("p2", longName);
    Service().RemoveCounterCollector("no such interface", "no such collector");
    Service().UnsetInterface("no such interface");
    Service().DeleteCollector("no such collector");
    Service().UpdateInterface({.name = std::string("a\0b\n\"\\\xff", 7), .flowCollector = "a"});
    Service().UpdateInterface({.name = "p2", .flowCollector = "b", .rate = 0, .headerSize = 0xFFFF});
    Service().AddCollector("b", "255.255.255.255", 0, 0);
    Service().AddCollector("c", "0.0.0.0", 65535, 65535);
    World().AwaitApplied();
    EXPECT_GT(World().Numbers().At("sflow_manager_operations_refused_total"), 2U);
    ExpectAllSampled();
}

TEST_F(Hostile, ClientsOfTheMetricsCostLittleAndDisturbNobody)
{
    const auto descriptors = Descriptors();
    const auto resident = ResidentKilobytes();
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(SamplingWorld::MetricsPort());
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::vector<int> clients;
    const auto send = [](int client, const std::string& bytes) {
        return ::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    };
    for (int i = 0; i < 200; ++i) {
        const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(::connect(client, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
        clients.push_back(client);
        switch (i % 5) {
        case 0:
            send(client, "GET /metrics HTTP/1.1\r\nHost: te");  // and never the rest
            break;
        case 1:
            send(client, std::string(20'000, '\xff'));
            break;
        case 2:
            send(client, "GET /metrics HTTP/1.1\r\nX: " + std::string(100'000, 'x'));
            break;
        case 3:
            for (int n = 0; n < 100; ++n) send(client, "GET /metrics HTTP/1.1\r\nHost: test\r\n\r\n");
            break;
        default:
            break;
        }
    }
    for (int round = 0; round < 4; ++round) {
        for (std::size_t i = 0; i < clients.size(); i += 5) send(clients[i], "s");
        AwaitMore();
        EXPECT_LE(Descriptors(), descriptors + 20);
    }
    ExpectResidentAtMost(resident + 4096);
    for (const int client : clients) ::close(client);
    EXPECT_TRUE(Becomes([&] { return Descriptors() <= descriptors; })) << Descriptors();
    EXPECT_EQ(World().Numbers().OfInterface("p1", "sampled"), 1U) << "served again";
    ExpectAllSampled();
}

TEST_F(Hostile, OthersThanTheUserAndItsGroupAreNotAdmitted)
{
    constexpr uid_t kOther = 65534;
    std::filesystem::permissions(World().Dir(), std::filesystem::perms(0755));
    struct stat file {};
    ASSERT_EQ(::stat(World().Socket().c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0660U);
    const int other = ConnectAs(kOther, World().Socket());
    if (other == kNotThatUser) GTEST_SKIP() << "only root can become another user";
    EXPECT_EQ(other, EACCES);
    EXPECT_EQ(ConnectAs(0, World().Socket()), 0);
    ExpectAllSampled();
}

}  // namespace
}  // namespace endurance
