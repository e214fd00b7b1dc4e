// SPDX-License-Identifier: Apache-2.0
// The filters at clsact of a manager with no more privileges than its unit gives it: they go when they are
// not wanted any more and when it ends, and the next manager takes away what a killed one has left.

#include <vector>

#include "endurance/endurance_test.h"

namespace endurance {
namespace {

/// How the manager comes to have few privileges.
struct Confined {
    const char* name;
    std::vector<std::string> before;
    std::vector<std::string> arguments;
};
void PrintTo(const Confined& start, std::ostream* out) { *out << start.name; }

class Clsact : public EnduranceTest, public testing::WithParamInterface<Confined> {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
        if (!IsSkipped()) Start(kClsact, {.arguments = GetParam().arguments, .before = GetParam().before});
        if (IsSkipped() || HasFatalFailure()) return;
        Network::Run({"tc", "qdisc", "add", "dev", "p2", "clsact"});
        Configure(collector.emplace(), {"p1", "p2"});
        for (const char* port : {"p1", "p2"}) Sample(port, kBoth);
        EXPECT_THAT(Filters("p1"), testing::AllOf(HasSubstr("sflow_ingress"), HasSubstr("sflow_egress")));
        EXPECT_THAT(Filters("p2"), testing::AllOf(HasSubstr("sflow_ingress"), HasSubstr("sflow_egress")));
    }

    static constexpr int kIngress = 2, kBoth = 3;

    void Sample(const std::string& port, int direction)
    {
        Service().UpdateInterface({.name = port, .flowCollector = "a", .direction = direction});
        World().AwaitApplied();
    }

    /// At both hooks.
    static std::string Filters(const std::string& port)
    {
        return Network::Run({"tc", "filter", "show", "dev", port, "ingress"}) +
               Network::Run({"tc", "filter", "show", "dev", port, "egress"});
    }
    static std::string Qdiscs(const std::string& port)
    {
        return Network::Run({"tc", "qdisc", "show", "dev", port});
    }

    /// The manager has left nothing at either port, and filters of others are still there.
    static void ExpectNothingLeft()
    {
        // Beside the manager's loop, and at its end perhaps by a process that outlives it.
        for (const char* port : {"p1", "p2"})
            Await("no filter at " + std::string(port), [&] { return Filters(port).empty(); });
        Await("no clsact of the manager's", [] { return Qdiscs("p1").find("clsact") == std::string::npos; });
        EXPECT_THAT(Qdiscs("p2"), HasSubstr("clsact")) << "it was there before";
    }

    /// Options for another manager with the same privileges.
    static ManagerOptions Another(const std::string& source)
    {
        ManagerOptions options{.arguments = GetParam().arguments, .before = GetParam().before};
        options.arguments.insert(options.arguments.end(), {"--source", source});
        return options;
    }

    void ExpectNoError() const { EXPECT_THAT(World().Log(), testing::Not(HasSubstr(" 13 "))); }

    std::optional<DecodingCollector> collector;
};

TEST_P(Clsact, LosesTheFiltersOfInterfacesThatAreUnset)
{
    Service().UnsetInterface("p1");
    World().AwaitApplied();
    Await("no filter at p1", [] { return Filters("p1").empty(); });
    EXPECT_THAT(Filters("p2"), HasSubstr("sflow_egress")) << "the other one's stay";
    Service().UnsetInterface("p2");
    World().AwaitApplied();
    ExpectNothingLeft();
    ExpectNoError();
}

TEST_P(Clsact, LosesAllFiltersWhenTheManagerEnds)
{
    EXPECT_EQ(World().Manager().Terminate(), 0);
    ExpectNothingLeft();
    ExpectNoError();
}

TEST_P(Clsact, CountsWhatLeavesNoLongerThanItIsAskedFor)
{
    Sample("p1", kIngress);
    Await("no filter for what leaves",
          [] { return Filters("p1").find("sflow_egress") == std::string::npos; });
    const auto before = World().Numbers().OfInterface("p1", "packets_seen_total");
    const auto left = support::CountersOf("p1").txPackets, entered = Received("p1");
    support::Injector second("h2"), first("h1");
    for (int i = 0; i < 10; ++i) second.Send(SamplingWorld::Frame(2, 1));
    Await("what leaves", [&] { return support::CountersOf("p1").txPackets >= left + 10; });
    for (int i = 0; i < 3; ++i) first.Send(SamplingWorld::Frame(1, 2));
    Await("what enters", [&] { return Received("p1") >= entered + 3; });
    EXPECT_EQ(World().Numbers().OfInterface("p1", "packets_seen_total"), before + 3);
    ExpectNoError();
}

TEST_P(Clsact, TheNextManagerRemovesWhatAKilledOneHasLeftWhateverHookItTakes)
{
    for (const char* source : {kClsact, "ebpf"}) {
        World().Manager().Kill();
        EXPECT_THAT(Filters("p1"), testing::AllOf(HasSubstr("sflow_ingress"), HasSubstr("sflow_egress")));
        {
            support::ManagerProcess next(World().Dir(), Another(source));
            for (const char* port : {"p1", "p2"}) EXPECT_EQ(Filters(port), "") << port << ", " << source;
            EXPECT_THAT(next.Log(), testing::Not(HasSubstr(" 13 ")));
            EXPECT_EQ(next.Terminate(), 0);
        }
        World().StartManager();
        World().OpenSession();
        Configure(*collector, {"p1", "p2"});
        for (const char* port : {"p1", "p2"}) Sample(port, kBoth);
    }
}

TEST_P(Clsact, AnotherManagerThatStartsLeavesThoseOfOneThatLives)
{
    const std::string filters = Filters("p1");
    const support::TempDir elsewhere;
    const support::ManagerProcess second(elsewhere.Path(), Another("ebpf"));
    EXPECT_THAT(second.Log(),
                HasSubstr("process " + std::to_string(World().Manager().Pid()) + " is an sFlow manager"));
    EXPECT_EQ(Filters("p1"), filters);
}

INSTANTIATE_TEST_SUITE_P(, Clsact,
                         testing::Values(Confined{"FourCapabilities",
                                                  {"setpriv",
                                                   "--bounding-set=-all,+net_raw,+net_admin,+bpf,+perfmon"},
                                                  {}},
                                         Confined{"AnotherUser", {}, {"--user", "nobody"}}),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace endurance
