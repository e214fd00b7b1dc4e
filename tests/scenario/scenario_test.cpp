// SPDX-License-Identifier: Apache-2.0
// Plays every scenario against real processes: the configuration before it, its commit, then a commit
// that gives one known call. The whole list must be the scenario's calls and that one, and when the
// daemon has ended, nothing but the end of its session has come behind it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>

#include "netconf/client.h"
#include "netconf/requests.h"
#include "scenario/scenario.h"
#include "support/world.h"

namespace scenario {

namespace {

using support::Calls;
using support::World;

constexpr const char* kMarkerAddress = "203.0.113.77";
constexpr const char* kMarker = "SetAgentAddress 203.0.113.77";

template <typename Row>
std::string RowName(const testing::TestParamInfo<Row>& info)
{
    std::string name = std::to_string(info.index) + "_";
    for (const char c : info.param.name)
        if (std::isalnum(static_cast<unsigned char>(c)) != 0)
            name += c;
        else if (name.back() != '_')
            name += '_';
    return name;
}

void Call(netconf::Client& client, const std::string& operation)
{
    const auto reply = client.Call(operation);
    EXPECT_TRUE(reply.ok) << operation << "\n" << reply.xml;
    EXPECT_TRUE(reply.errors.empty()) << reply.xml;
}

void CommitMarker(World& world)
{
    auto client = netconf::Client::Connect(world.NetconfSocket());
    Call(client,
         netconf::EditConfig(SflowXml(std::string("<agent><ipv4>") + kMarkerAddress + "</ipv4></agent>")));
    Call(client, netconf::Commit());
}

void Play(World& world, const Scenario& scenario)
{
    if (!scenario.commands.empty()) {
        world.CliDone(scenario.commands + "; commit");
        return;
    }
    auto client = netconf::Client::Connect(world.NetconfSocket());
    // Only the commit has to be valid, not what stands in between.
    const netconf::EditOptions unchecked{.defaultOperation = {}, .testOption = "set", .errorOption = {}};
    for (const auto& edit : scenario.edits) Call(client, netconf::EditConfig(edit, unchecked));
    Call(client, netconf::Commit());
}

class PlayScenario : public testing::TestWithParam<Scenario> {};

TEST_P(PlayScenario, GivesExactlyItsCalls)
{
    World world;
    world.Start(GetParam().before);
    world.ManagerJournal().Skip();
    Play(world, GetParam());
    CommitMarker(world);

    Calls expected = GetParam().calls;
    expected.emplace_back(kMarker);
    EXPECT_THAT(world.ManagerJournal().Until(kMarker), testing::ElementsAreArray(expected))
        << world.Log("sflow-app");
    EXPECT_EQ(0, world.Daemon().Terminate());
    EXPECT_THAT(world.ManagerJournal().Until("SessionClosed"), testing::ElementsAre("SessionClosed"));
}

INSTANTIATE_TEST_SUITE_P(Agent, PlayScenario, testing::ValuesIn(AgentScenarios()), RowName<Scenario>);
INSTANTIATE_TEST_SUITE_P(Collector, PlayScenario, testing::ValuesIn(CollectorScenarios()), RowName<Scenario>);
INSTANTIATE_TEST_SUITE_P(Interface, PlayScenario, testing::ValuesIn(InterfaceScenarios()), RowName<Scenario>);
INSTANTIATE_TEST_SUITE_P(DefaultRate, PlayScenario, testing::ValuesIn(DefaultRateScenarios()),
                         RowName<Scenario>);
INSTANTIATE_TEST_SUITE_P(Combined, PlayScenario, testing::ValuesIn(CombinedScenarios()), RowName<Scenario>);

class InitialLoad : public testing::TestWithParam<Load> {};

TEST_P(InitialLoad, GivesExactlyItsCalls)
{
    World world;
    ASSERT_EQ(0, world.Initialize(GetParam().configuration).status) << world.Log("run");
    world.StartCdbd();
    world.StartManager();
    world.StartDaemon();

    Calls expected = GetParam().calls;
    expected.insert(expected.begin(), "SessionOpened");
    expected.emplace_back("SessionLoaded");
    EXPECT_THAT(world.AwaitLoad(), testing::ElementsAreArray(expected)) << world.Log("sflow-app");
    EXPECT_EQ(0, world.Daemon().Terminate());
    EXPECT_THAT(world.ManagerJournal().Until("SessionClosed"), testing::ElementsAre("SessionClosed"));
}

INSTANTIATE_TEST_SUITE_P(Configuration, InitialLoad, testing::ValuesIn(Loads()), RowName<Load>);

}  // namespace

}  // namespace scenario
