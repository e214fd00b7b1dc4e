// SPDX-License-Identifier: Apache-2.0
// Operational state in <get>, the processes' part and cdbd's own; transitions and actions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "agent/agent_world.h"
#include "support/proto_text.h"

namespace agent_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kState = "<state xmlns=\"urn:switch:yang:switch-state\"/>";
constexpr const char* kSystem = "<state xmlns=\"urn:switch:yang:switch-state\"><system/></state>";

class State : public testing::Test {
protected:
    static agent::AgentOptions Options()
    {
        agent::AgentOptions options;
        options.now = [] { return std::int64_t{1'000'000'000'123'456}; };
        return options;
    }

    std::unique_ptr<Process> Provider()
    {
        auto process = std::make_unique<Process>(m_world, "manager");
        process->RegisterProvider();
        process->Ready();
        return process;
    }

    /// Answers the question that a get makes with these parts, and returns the reply.
    netconf::Reply Served(Process& provider, const std::vector<std::string>& parts)
    {
        m_client.Send(netconf::Get(kState));
        Answer(provider, provider.Receive().state_request().request(), parts);
        return m_client.Receive();
    }

    /// Lets the time for the next question's answer pass. Returns the question's number.
    std::uint64_t LeaveUnanswered(Process& provider)
    {
        const std::uint64_t request = provider.Receive().state_request().request();
        m_world.Advance(agent::AgentOptions{}.stateTimeout);
        return request;
    }

    /// Parts of replies in protobuf's text form.
    static void Answer(Process& provider, std::uint64_t request, const std::vector<std::string>& parts)
    {
        for (const std::string& part : parts) {
            ipc::cdb::ClientMessage message;
            EXPECT_TRUE(support::FromText(part, *message.mutable_state_reply())) << part;
            message.mutable_state_reply()->set_request(request);
            provider.Send(message);
        }
    }

    /// The node's and then each process's.
    std::vector<std::string> Roles()
    {
        const std::string data = m_client.Call(netconf::Get(kSystem)).data;
        const std::regex role("<role>([a-z]+)</role>");
        std::vector<std::string> roles;
        for (std::sregex_iterator at(data.begin(), data.end(), role); at != std::sregex_iterator(); ++at)
            roles.push_back((*at)[1]);
        return roles;
    }

    World m_world{Options()};
    netconf::Client m_client = m_world.Connect();
};

/// What is at the provider's path, with the names that the tests use.
std::string Part(const std::string& node, const std::string& more = "")
{
    return "names: 'agent-address' names: 'interface' names: 'ifindex' names: 'manager' names: 'pid' "
           "trees { path: '/state/oam/sflow' node { " +
           node + " } } " + more;
}

std::string Entry(const std::string& name, const std::string& ifIndex = "7")
{
    return "children { name: 1 keys: '" + name + "' leaves: 2 values: '" + ifIndex + "' } ";
}

const std::string kAgentPart = Part("leaves: 0 values: '192.0.2.1'");
const std::string kMore = "more: true";

/// The only warning of a reply that is ok.
netconf::RpcError Warning(const netconf::Reply& reply)
{
    EXPECT_TRUE(reply.ok) << reply.xml;
    EXPECT_EQ(reply.errors.size(), 1U) << reply.xml;
    return reply.errors.empty() ? netconf::RpcError{} : reply.errors.front();
}

/// Answers one transition; the role that was asked for.
ipc::cdb::HaTransition::Role AnswerTransition(Process& process, bool handled)
{
    const auto message = process.Receive();
    EXPECT_TRUE(message.has_ha_transition());
    ipc::cdb::ClientMessage answer;
    answer.mutable_ha_reply()->set_request(message.ha_transition().request());
    answer.mutable_ha_reply()->set_handled(handled);
    process.Send(answer);
    return message.ha_transition().role();
}

TEST_F(State, OfAProviderIsMerged)
{
    const auto provider = Provider();
    EXPECT_THAT(Served(*provider, {kAgentPart}).data,
                AllOf(HasSubstr("<oam><sflow><agent-address>192.0.2.1</agent-address>"),
                      HasSubstr("<process><name>manager</name>")));
}

TEST_F(State, StandsBesideTheConfiguration)
{
    Do(m_client, netconf::EditConfig(Sflow(Collector("c1"))));
    Do(m_client, netconf::Commit());
    Process process(m_world, "app");
    process.Ready();
    const std::string all = m_client.Call(netconf::Get()).data;
    EXPECT_THAT(all, AllOf(HasSubstr("<name>c1</name>"), HasSubstr("<name>app</name>")));
    EXPECT_THAT(m_client.Call(netconf::GetConfig("running")).data, Not(HasSubstr("app")));
}

TEST_F(State, IsNotAskedForWhereNobodyWantsIt)
{
    const auto provider = Provider();
    m_client.Call(netconf::Get("<config xmlns=\"urn:switch:yang:switch-config\"/>"));
    EXPECT_THAT(m_client.Call(netconf::Get(kSystem)).data, HasSubstr("manager"));
    // The first that the provider hears of is this one.
    EXPECT_NE(Served(*provider, {kAgentPart}).data, "");
}

TEST_F(State, OfTheProcessesIsOurOwn)
{
    Process process(m_world, "app");
    process.Subscribe(1, 1, "/config/oam/sflow");
    process.Subscribe(2, 1, "/config/oam/sflow/agent");
    process.RegisterCallpoint();
    process.Ready();
    // A writer may put times into the zone of the machine.
    EXPECT_THAT(m_client.Call(netconf::Get(kSystem)).data,
                testing::MatchesRegex(
                    "<state "
                    "xmlns=\"urn:switch:yang:switch-state\"><system><version>[0-9.]+</"
                    "version><role>unknown</role><process><name>app</name><pid>" +
                    std::to_string(::getpid()) +
                    "</pid><connected-since>2001-09-[0-9]+T[0-9]+:[0-9]+:40.123456[0-9:+Z-]+</"
                    "connected-since><role>unknown</role>"
                    "<state>ready</state><health>ok</health><missed-commits>0</missed-commits><subscription>/"
                    "config/oam/sflow</subscription>"
                    "<subscription>/config/oam/sflow/agent</subscription>"
                    "<callpoint>sflow-set-sampling-rate</callpoint></process><access><denied-operations>0</"
                    "denied-operations>"
                    "<denied-data-writes>0</denied-data-writes></access>"
                    "<history xmlns=\"urn:switch:yang:switch-history\"><newest>0</newest></history>"
                    "</system></state>"));
}

TEST_F(State, ComesInManyParts)
{
    const auto provider = Provider();
    std::vector<std::string> parts{Part("leaves: 0 values: '192.0.2.1'", kMore)};
    for (int i = 100; i < 200; ++i) parts.push_back(Part(Entry("eth" + std::to_string(i)), kMore));
    parts.push_back(Part("children { name: 3 leaves: 4 values: '12' }"));
    const auto reply = Served(*provider, parts);
    EXPECT_TRUE(reply.errors.empty()) << reply.xml;
    EXPECT_THAT(reply.data, AllOf(HasSubstr("<manager><pid>12</pid></manager>"), HasSubstr("192.0.2.1"),
                                  HasSubstr("<interface><name>eth100</name><ifindex>7</ifindex></interface>"
                                            "<interface><name>eth101</name>"),
                                  HasSubstr("<name>eth199</name>")));
}

TEST_F(State, ThatDoesNotFitIsMissingAndSaidSo)
{
    const auto provider = Provider();
    const std::pair<std::string, std::string> kBad[] = {
        {Part("leaves: 0 values: 'nowhere'"), "/state/oam/sflow/agent-address can't be"},
        {Part("children { name: 9 }"), "no container or list number 9"},
        {Part(Entry("eth1") + Entry("eth1")), "interface{eth1} is there twice"},
        {"trees { path: '/state/system' node { } }", "which it does not provide"},
        {"error: 'busy'", "can't tell: busy"},
        {Part("", kMore), "parts in which there is nothing"}};
    for (const auto& [part, problem] : kBad) {
        const auto reply = Served(*provider, {part});
        EXPECT_THAT(reply.data, AllOf(Not(HasSubstr("oam")), HasSubstr("manager"))) << part;
        const auto warning = Warning(reply);
        EXPECT_TRUE(warning.IsWarning());
        EXPECT_THAT(warning.message,
                    AllOf(HasSubstr("/state/oam/sflow"), HasSubstr(problem),
                          HasSubstr("manager (process " + std::to_string(::getpid()) + ")")));
        EXPECT_THAT(warning.path, HasSubstr("oam"));
    }
    EXPECT_THAT(Served(*provider, {kAgentPart}).data, HasSubstr("192.0.2.1"));
}

TEST_F(State, OfAnAnswerWithAFaultLaterIsNotShownInPart)
{
    const auto provider = Provider();
    const auto reply =
        Served(*provider, {Part(Entry("eth2"), kMore), Part(Entry("eth1"), kMore), Part(Entry("eth3"))});
    EXPECT_THAT(Warning(reply).message, HasSubstr("interface{eth1}"));
    EXPECT_THAT(reply.data, Not(HasSubstr("eth2")));
    EXPECT_THAT(Served(*provider, {kAgentPart}).data, HasSubstr("192.0.2.1"))
        << "what is left of the other answer";
}

TEST_F(State, OfAnotherQuestionIsPassedOver)
{
    const auto provider = Provider();
    m_client.Send(netconf::Get(kState));
    const auto request = provider->Receive().state_request().request();
    Answer(*provider, request + 1, {Part(Entry("forged"))});
    Answer(*provider, request, {kAgentPart});
    EXPECT_THAT(m_client.Receive().data, AllOf(HasSubstr("192.0.2.1"), Not(HasSubstr("forged"))));
}

TEST_F(State, HasTheProvidersOwnWarnings)
{
    const auto provider = Provider();
    const auto reply = Served(*provider, {Part(Entry("eth1"), "warnings: 'half of it \\x01is dark'")});
    EXPECT_THAT(reply.data, HasSubstr("eth1"));
    EXPECT_THAT(Warning(reply).message, HasSubstr("half of it ?is dark"));
}

TEST_F(State, IsAskedForAsTheFilterSelects)
{
    const auto provider = Provider();
    m_client.Send(
        netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><interface><name>eth1</name>"
                     "<ifindex/></interface></sflow></oam></state>"));
    const auto question = provider->Receive().state_request();
    ASSERT_EQ(question.parts_size(), 1);
    EXPECT_EQ(question.parts(0).path(), "/state/oam/sflow");
    ASSERT_EQ(question.parts(0).children_size(), 1);
    EXPECT_EQ(question.parts(0).children(0).name(), "interface");
    EXPECT_EQ(question.parts(0).children(0).keys(0).value(), "eth1");
    Answer(*provider, question.request(), {Part(Entry("eth1") + Entry("eth2"))});
    EXPECT_EQ(m_client.Receive().data,
              "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><interface><name>eth1</name>"
              "<ifindex>7</ifindex></interface></sflow></oam></state>");
}

TEST_F(State, WithoutItsProviderIsMissingAndSaidSo)
{
    const auto warning = Warning(m_client.Call(netconf::Get(kState)));
    EXPECT_EQ(warning.severity, "warning");
    EXPECT_EQ(warning.message,
              "sflow-mgr is not connected; start sflow-mgr, or the whole switch with tools/switch up");
    EXPECT_EQ(warning.path, "/switch-state:state/switch-state:oam/switch-state:sflow");
    EXPECT_TRUE(m_client.Call(netconf::Get(kSystem)).errors.empty()) << "not asked for";
    EXPECT_TRUE(m_client.Call(netconf::GetConfig("running")).errors.empty());
}

TEST_F(State, GoesWithoutAProviderThatGoes)
{
    auto provider = Provider();
    m_client.Send(netconf::Get(kState));
    const auto request = provider->Receive().state_request().request();
    Answer(*provider, request, {Part(Entry("eth1"), kMore)});
    provider.reset();
    const auto reply = m_client.Receive();
    EXPECT_THAT(Warning(reply).message, HasSubstr("has ended its connection"));
    EXPECT_THAT(reply.data, Not(HasSubstr("eth1")));
}

TEST_F(State, GoesWithoutAProviderThatIsSilent)
{
    const auto provider = Provider();
    m_client.Send(netconf::Get(kState));
    LeaveUnanswered(*provider);
    const auto reply = m_client.Receive();
    EXPECT_THAT(reply.data, AllOf(Not(HasSubstr("oam")), HasSubstr("manager")));
    EXPECT_EQ(Warning(reply).message,
              "manager (process " + std::to_string(::getpid()) + ") does not answer since 2 s");
}

TEST_F(State, OfASilentProviderIsNotAskedForAgainAndAgain)
{
    const auto provider = Provider();
    m_client.Send(netconf::Get(kState));
    const std::uint64_t asked = LeaveUnanswered(*provider);
    EXPECT_THAT(Warning(m_client.Receive()).message, HasSubstr("does not answer since 2 s"));
    m_world.Advance(std::chrono::seconds(10));
    for (int i = 0; i < 10; ++i)
        EXPECT_THAT(Warning(m_client.Call(netconf::Get(kState))).message,
                    HasSubstr("does not answer since 12 s"));
    // Its late answer is dropped, and shows that it works again.
    Answer(*provider, asked, {Part(Entry("late"))});
    // What was sent before has been read when this has been answered.
    m_client.Send(netconf::HaTransition("active"));
    AnswerTransition(*provider, true);
    m_client.Receive();
    EXPECT_THAT(Served(*provider, {kAgentPart}).data, AllOf(HasSubstr("192.0.2.1"), Not(HasSubstr("late"))));
}

TEST_F(State, OfASilentProviderIsAskedForAgainAfterHalfAMinute)
{
    const auto provider = Provider();
    m_client.Send(netconf::Get(kState));
    LeaveUnanswered(*provider);
    Warning(m_client.Receive());
    Warning(m_client.Call(netconf::Get(kState)));
    m_world.Advance(std::chrono::seconds(31));
    EXPECT_THAT(Served(*provider, {kAgentPart}).data, HasSubstr("192.0.2.1"));
    // An answer to a later question ends the silence, too.
    EXPECT_THAT(Served(*provider, {kAgentPart}).data, HasSubstr("192.0.2.1"));
}

TEST_F(State, OfAProviderThatStaysSilentIsAskedForLessAndLess)
{
    const auto provider = Provider();
    m_client.Send(netconf::Get(kState));
    LeaveUnanswered(*provider);
    Warning(m_client.Receive());
    for (const int pause : {30, 30, 62}) {
        m_world.Advance(std::chrono::seconds(pause - 1));
        Warning(m_client.Call(netconf::Get(kState)));
        m_world.Advance(std::chrono::seconds(1));
        m_client.Send(netconf::Get(kState));
        LeaveUnanswered(*provider);
        Warning(m_client.Receive());
    }
    EXPECT_THAT(Warning(m_client.Call(netconf::Get(kState))).message,
                HasSubstr("does not answer since 130 s"));
}

TEST_F(State, TellsAProcessTheRoleThatItHasMissed)
{
    m_client.Call(netconf::HaTransition("standby"));
    Process late(m_world, "late");
    late.Ready();
    EXPECT_EQ(Roles(), (std::vector<std::string>{"standby", "unknown"}));
    EXPECT_EQ(AnswerTransition(late, true), ipc::cdb::HaTransition::STANDBY);
    EXPECT_EQ(Roles(), (std::vector<std::string>{"standby", "standby"}));
}

TEST_F(State, TakesNoRoleOfAProcessThatAnswersWhatItWasToldBefore)
{
    Process slow(m_world, "slow");
    slow.Ready();
    m_client.Send(netconf::HaTransition("active"));
    const auto first = slow.Receive();
    m_world.Advance(std::chrono::seconds(6));
    Warning(m_client.Receive());
    m_client.Send(netconf::HaTransition("standby"));
    const auto second = slow.Receive();
    for (const auto& [request, handled] :
         {std::pair(first.ha_transition().request(), true), {second.ha_transition().request(), false}}) {
        ipc::cdb::ClientMessage answer;
        answer.mutable_ha_reply()->set_request(request);
        answer.mutable_ha_reply()->set_handled(handled);
        slow.Send(answer);
    }
    EXPECT_THAT(Warning(m_client.Receive()).message, HasSubstr("has not handled it"));
    EXPECT_EQ(Roles(), (std::vector<std::string>{"standby", "unknown"}));
}

TEST_F(State, ReachesAllProcessesWithATransition)
{
    Process first(m_world, "first");
    first.Ready();
    Process second(m_world, "second");
    second.Ready();
    m_client.Send(netconf::HaTransition("active"));
    EXPECT_EQ(AnswerTransition(first, true), ipc::cdb::HaTransition::ACTIVE);
    EXPECT_EQ(AnswerTransition(second, true), ipc::cdb::HaTransition::ACTIVE);
    EXPECT_EQ(m_client.Receive().errors, std::vector<netconf::RpcError>{});
    EXPECT_THAT(m_client.Call(netconf::Get(kSystem)).data, HasSubstr("<role>active</role>"));
    m_client.Send(netconf::HaTransition("standby"));
    EXPECT_EQ(AnswerTransition(first, true), ipc::cdb::HaTransition::STANDBY);
    AnswerTransition(second, false);
    const auto reply = m_client.Receive();
    EXPECT_EQ(Roles(), (std::vector<std::string>{"standby", "standby", "active"}));
    EXPECT_TRUE(reply.ok);
    ASSERT_EQ(reply.errors.size(), 1U);
    EXPECT_THAT(reply.errors[0].message, HasSubstr("second"));
}

TEST_F(State, WarnsOfAProcessThatIsSilentToATransition)
{
    Process silent(m_world, "silent");
    silent.Ready();
    m_client.Send(netconf::HaTransition("active"));
    silent.Receive();
    m_world.Advance(agent::AgentOptions{}.actionTimeout);
    const auto reply = m_client.Receive();
    EXPECT_TRUE(reply.ok);
    ASSERT_EQ(reply.errors.size(), 1U);
    EXPECT_TRUE(reply.errors[0].IsWarning());
}

TEST_F(State, PassesAResyncToTheManager)
{
    Refused(m_client, netconf::SflowResync(), "operation-failed");
    const auto provider = Provider();
    for (const char* error : {"", "no session"}) {
        m_client.Send(netconf::SflowResync());
        const auto message = provider->Receive();
        EXPECT_EQ(message.action_request().name(), "resync");
        ipc::cdb::ClientMessage answer;
        answer.mutable_action_reply()->set_request(message.action_request().request());
        answer.mutable_action_reply()->set_error(error);
        provider->Send(answer);
        const auto reply = m_client.Receive();
        EXPECT_EQ(reply.ok, std::string(error).empty());
        EXPECT_THAT(reply.xml, HasSubstr(error));
    }
}

TEST_F(State, PassesATestOfACollectorToTheManagerAndItsAnswerBack)
{
    Refused(m_client, netconf::SflowTestCollector("c1"), "operation-failed");
    const auto provider = Provider();
    m_client.Send(netconf::SflowTestCollector("c1"));
    const auto message = provider->Receive();
    EXPECT_EQ(message.action_request().name(), "test-collector");
    EXPECT_EQ(message.action_request().subject(), "c1");
    ipc::cdb::ClientMessage answer;
    auto& told = *answer.mutable_action_reply();
    told.set_request(message.action_request().request());
    for (const auto& [name, value] : {std::pair("outcome", "silent"), {"text", "a < b"}, {"unknown", "x"}}) {
        auto& leaf = *told.add_output();
        leaf.set_name(name);
        leaf.set_value(value);
    }
    provider->Send(answer);
    const auto reply = m_client.Receive();
    EXPECT_TRUE(reply.ok);
    EXPECT_EQ(reply.output.at("outcome"), "silent");
    EXPECT_EQ(reply.output.at("text"), "a &lt; b");
    EXPECT_FALSE(reply.output.contains("unknown"));
}

TEST_F(State, PassesALookAtTalkersToTheManagerAndTheirEntriesBack)
{
    Refused(m_client, netconf::SflowTopTalkers("eth1"), "operation-failed");
    const auto provider = Provider();
    m_client.Send(netconf::SflowTopTalkers("eth1"));
    const auto message = provider->Receive();
    EXPECT_EQ(message.action_request().name(), "top-talkers");
    EXPECT_EQ(message.action_request().subject(), "eth1");
    ipc::cdb::ClientMessage answer;
    auto& told = *answer.mutable_action_reply();
    told.set_request(message.action_request().request());
    const auto add = [](auto& parent, const char* name, const char* value) {
        parent.set_name(name);
        parent.set_value(value);
    };
    add(*told.add_output(), "samples", "2");
    for (const char* source : {"192.0.2.1", "<192.0.2.2>"}) {
        auto& entry = *told.add_output();
        add(entry, "talker", "");
        add(*entry.add_children(), "source", source);
        add(*entry.add_children(), "unknown", "x");
        add(*entry.add_children()->add_children(), "source", "deeper than the model");
    }
    provider->Send(answer);
    const auto reply = m_client.Receive();
    EXPECT_TRUE(reply.ok);
    EXPECT_THAT(reply.xml, HasSubstr("<source>192.0.2.1</source></talker>"));
    EXPECT_THAT(reply.xml, HasSubstr("<source>&lt;192.0.2.2&gt;</source></talker>"));
    EXPECT_THAT(reply.xml, testing::Not(testing::AnyOf(HasSubstr("unknown"), HasSubstr("deeper"))));
}

TEST_F(State, PassesTheClearingOfStatisticsToTheManager)
{
    const auto provider = Provider();
    m_client.Send(netconf::SflowClearStatistics());
    const auto message = provider->Receive();
    EXPECT_EQ(message.action_request().name(), "clear-statistics");
    ipc::cdb::ClientMessage answer;
    answer.mutable_action_reply()->set_request(message.action_request().request());
    provider->Send(answer);
    EXPECT_TRUE(m_client.Receive().ok);
}

}  // namespace
}  // namespace agent_tests
