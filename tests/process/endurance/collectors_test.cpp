// SPDX-License-Identifier: Apache-2.0
// Collectors that can't be reached, each in a way of its own, beside one that can: only their datagrams are
// lost, each loss is counted and said, they are tried again, and the other gets everything.

#include <iterator>
#include <optional>
#include <ostream>
#include <sstream>

#include "endurance/database.h"
#include "endurance/endurance_test.h"

namespace endurance {
namespace {

constexpr std::uint64_t kSteadyRate = 4000;
constexpr const char* kAddress = "10.0.9.9";

struct Trouble {
    const char* name;
    /// Begins and ends it.
    const char* make;
    const char* mend;
    /// What the last error says.
    const char* error;
    /// Whether each datagram lost is known: the kernel has refused it here.
    bool counted = true;
};

void PrintTo(const Trouble& trouble, std::ostream* out) { *out << trouble.name; }

/// The collector is a host at a cable of its own, "up0" here. Lines of `ip`, but for those that begin with
/// "tc".
const Trouble kTroubles[] = {
    {"NoRoute", "route del 10.0.9.0/24 dev up0", "route add 10.0.9.0/24 dev up0", "Network is unreachable"},
    {"UnreachableRoute", "route add unreachable 10.0.9.9", "route del unreachable 10.0.9.9",
     "No route to host"},
    {"ProhibitedRoute", "route add prohibit 10.0.9.9", "route del prohibit 10.0.9.9", "Permission denied"},
    {"DeadRoute", "route add blackhole 10.0.9.9", "route del blackhole 10.0.9.9", "Invalid argument"},
    {"InterfaceDown", "link set up0 down", "link set up0 up", "Network is unreachable"},
    {"AddressGone", "address del 10.0.9.1/24 dev up0", "address add 10.0.9.1/24 dev up0",
     "Network is unreachable"},
    {"SocketBufferFull", "tc qdisc add dev up0 root tbf rate 8kbit burst 4k limit 100mb",
     "tc qdisc del dev up0 root", "(the socket's buffer is full)", false},
};

class CollectorTrouble : public EnduranceTest, public testing::WithParamInterface<Trouble> {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
        if (!IsSkipped()) Start(AnySource());
        if (IsSkipped() || HasFatalFailure()) return;
        p1 = Network::Index("p1");
        far.emplace();
        Network::Veth("up0", "far0");
        Network::Ip("address add 10.0.9.1/24 dev up0\nlink set far0 netns " + std::to_string(far->Pid()));
        far->Within([] { Network::Ip("address add 10.0.9.9/24 dev far0\nlink set far0 up"); });
        Listen();
        good.emplace();
        Configure(*good, {"p1"});
        Service().AddCollector("bad", kAddress, bad->Port());
        Service().AddSampleCollector("p1", "bad");
        World().AwaitApplied();
        database.emplace(World().Socket().parent_path() / "cdb.sock");
        m_before = Received("p1");
        m_traffic.emplace("h1", NumberedFrames(1, 2), kSteadyRate, 0);
        AwaitSamples(*bad, p1, 200);
    }

    /// The collector that has trouble, in the host's namespace.
    void Listen(std::uint16_t port = 0)
    {
        far->Within([&] { bad.emplace(kAddress, port); });
    }

    static void Do(const std::string& line)
    {
        if (!line.starts_with("tc ")) return Network::Ip(line);
        std::istringstream words(line);
        Network::Run({std::istream_iterator<std::string>(words), {}});
    }

    [[nodiscard]] nlohmann::json Bad() { return database->Entry("collector", "bad"); }
    [[nodiscard]] std::uint64_t OfBad(const std::string& what) const
    {
        return World().Numbers().OfCollector("bad", what);
    }

    void EndTraffic()
    {
        m_traffic->Stop();
        DecodingCollector::AwaitQuiet({&*good, &*bad});
    }
    void ExpectTheOtherHasEverything()
    {
        EXPECT_EQ(FaultInWhole(good->Flows(p1), Received("p1") - m_before, CountsPool()), "");
        EXPECT_EQ(FaultInDatagrams(good->Arrivals()), "");
        const auto state = database->Entry("collector", "a");
        EXPECT_EQ(state.at("errors"), "0");
        EXPECT_EQ(state.at("packets-sent"), std::to_string(good->Count()));
        EXPECT_TRUE(state.at("sending"));
    }

    std::uint32_t p1 = 0;
    std::optional<Network::Host> far;
    std::optional<DecodingCollector> good, bad;
    std::optional<Database> database;

private:
    std::uint64_t m_before = 0;
    std::optional<BackgroundTraffic> m_traffic;
};

TEST_P(CollectorTrouble, CostsItsOwnDatagramsIsSaidAndEnds)
{
    const Trouble& trouble = GetParam();
    Do(trouble.make);
    Await("losses", [&] { return OfBad("lost_datagrams_total") >= 3; });
    const auto state = Bad();
    EXPECT_THAT(state.at("last-error").get<std::string>(), HasSubstr(trouble.error));
    EXPECT_THAT(state.at("last-error").get<std::string>(), HasSubstr(kAddress));
    EXPECT_LE(state.at("last-error-age"), 5);
    EXPECT_FALSE(state.at("sending"));
    EXPECT_THAT(World().Log(), HasSubstr(trouble.error));

    Do(trouble.mend);
    const auto gone = bad->LastSequence(p1);
    Await("datagrams to come again", [&] { return bad->LastSequence(p1) > gone + 100; });
    Await("that to be said", [&] { return Bad().at("sending").get<bool>(); });
    EndTraffic();

    ExpectTheOtherHasEverything();
    const Flows all = good->Flows(p1), flows = bad->Flows(p1);
    const auto lost = OfBad("lost_samples_total"), lostDatagrams = OfBad("lost_datagrams_total");
    EXPECT_EQ(flows.back().sequence, all.back().sequence) << "the newest has come";
    EXPECT_EQ(FaultInPart(flows, static_cast<unsigned>(lostDatagrams)), "");
    EXPECT_GT(lost, 0U);
    if (trouble.counted) {
        EXPECT_EQ(flows.size() + lost, all.size());
        EXPECT_EQ(bad->Count() + lostDatagrams, bad->Arrivals().back().datagram.sequence);
    } else {
        EXPECT_LE(flows.size() + lost, all.size());
    }
}

INSTANTIATE_TEST_SUITE_P(, CollectorTrouble, testing::ValuesIn(kTroubles),
                         [](const auto& row) { return row.param.name; });

class CollectorThatRefuses : public CollectorTrouble {};

/// The kernel takes datagrams for a port on which no program listens, and reports each by ICMP a little
/// later.
TEST_P(CollectorThatRefuses, IsSaidAndTriedAgain)
{
    const auto port = bad->Port();
    const auto refusedFrom = bad->LastSequence(p1);
    bad.reset();
    Await("an error", [&] { return OfBad("errors_total") >= 1; });
    const auto state = Bad();
    EXPECT_THAT(state.at("last-error").get<std::string>(), HasSubstr("Connection refused"));
    EXPECT_FALSE(state.at("sending"));
    Listen(port);
    AwaitSamples(*bad, p1, 200);
    EndTraffic();

    ExpectTheOtherHasEverything();
    const Flows flows = bad->Flows(p1);
    EXPECT_GT(flows.front().sequence, refusedFrom);
    EXPECT_EQ(FaultInSequence(flows, flows.front().sequence), "") << "from then on, everything";
    EXPECT_EQ(flows.back().sequence, good->Flows(p1).back().sequence);
    EXPECT_EQ(FaultInDatagrams(bad->Arrivals(), bad->Arrivals().front().datagram.sequence), "");
}

INSTANTIATE_TEST_SUITE_P(, CollectorThatRefuses, testing::Values(Trouble{"PortUnreachable", "", "", ""}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace endurance
