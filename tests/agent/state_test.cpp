// Operational state in <get>, the processes' part and cdbd's own; transitions and actions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "agent/agent_world.h"

namespace agent_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kState = "<state xmlns=\"urn:switch:yang:switch-state\"/>";
constexpr const char* kSystem = "<state xmlns=\"urn:switch:yang:switch-state\"><system/></state>";

class State : public testing::Test {
protected:
    explicit State(std::chrono::milliseconds timeout = std::chrono::seconds(20)) : m_world(Options(timeout))
    {
    }

    static agent::AgentOptions Options(std::chrono::milliseconds timeout)
    {
        agent::AgentOptions options;
        options.stateTimeout = timeout;
        options.actionTimeout = timeout;
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

    /// Answers the request that a get makes with this JSON, and returns the data.
    std::string Served(Process& provider, const std::string& json, const std::string& error = "")
    {
        m_client.Send(netconf::Get(kState));
        ipc::cdb::ClientMessage message;
        message.mutable_state_reply()->set_request(provider.Receive().state_request().request());
        message.mutable_state_reply()->set_json(json);
        message.mutable_state_reply()->set_error(error);
        provider.Send(message);
        return m_client.Receive().data;
    }

    World m_world;
    netconf::Client m_client = m_world.Connect();
};

class ImpatientState : public State {
protected:
    ImpatientState() : State(std::chrono::milliseconds(50)) {}
};

const std::string kAgent = R"({"switch-state:state":{"oam":{"sflow":{"agent-address":"192.0.2.1"}}}})";

TEST_F(State, OfAProviderIsMerged)
{
    const auto provider = Provider();
    EXPECT_THAT(Served(*provider, kAgent),
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
    EXPECT_NE(Served(*provider, kAgent), "");
}

TEST_F(State, OfTheProcessesIsOurOwn)
{
    Process process(m_world, "app");
    process.Subscribe(1, 1, "/config/oam/sflow");
    process.Subscribe(2, 1, "/config/oam/sflow/agent");
    process.RegisterCallpoint();
    process.Ready();
    // libyang writes times in the zone of the machine.
    EXPECT_THAT(m_client.Call(netconf::Get(kSystem)).data,
                testing::MatchesRegex(
                    "<state xmlns=\"urn:switch:yang:switch-state\"><system><process><name>app</name><pid>" +
                    std::to_string(::getpid()) +
                    "</pid><connected-since>2001-09-[0-9]+T[0-9]+:[0-9]+:40.123456[0-9:+-]+</"
                    "connected-since><role>unknown</role>"
                    "<state>ready</state><subscription>/config/oam/sflow</subscription>"
                    "<subscription>/config/oam/sflow/agent</subscription>"
                    "<callpoint>sflow-set-sampling-rate</callpoint></process></system></state>"));
}

TEST_F(State, ThatIsNoneHurtsNobody)
{
    const auto provider = Provider();
    const std::string deep(100'000, '[');
    for (const std::string& json :
         {std::string(), std::string("{"), std::string("[]"), std::string("null"), deep,
          R"({"switch-state:state":)" + deep, R"({"a":)" + std::string(1000, '{'),
          std::string(R"({"switch-state:state":{"oam":{"sflow":{"agent-address":"nowhere"}}}})"),
          std::string(R"({"switch-state:state":{"oam":{"sflow":{"unknown":1}}}})"),
          std::string(R"({"switch-state:state":{"oam":{"sflow":{"manager":{"journal":"\u0001"}}}}})"),
          std::string(R"({"switch-state:state":{"oam":{"sflow":{"manager":{"journal":"\ufffe"}}}}})"),
          std::string("{\"switch-state:state\":{\"oam\":{\"sflow\":{\"manager\":{\"journal\":"
                      "\"\xef\xbf\xbf\"}}}}}"),
          std::string("{\"switch-state:state\":{\"oam\":{\"sflow\":{\"manager\":{\"journal\":"
                      "\"\x1b\"}}}}}"),
          std::string(R"({"unknown:state":{}})"), std::string("\xff\xfe"), std::string("{\0}", 3)}) {
        EXPECT_THAT(Served(*provider, json), AllOf(Not(HasSubstr("oam")), HasSubstr("manager"))) << json;
    }
    EXPECT_THAT(Served(*provider, kAgent), HasSubstr("192.0.2.1"));
}

TEST_F(State, IsTakenOfTheProvidersOwnPathOnly)
{
    const auto provider = Provider();
    const std::string data = Served(
        *provider,
        R"({"switch-config:config":{"switch-oam-sflow:oam":{"sflow":{"agent":{"ipv4":"192.0.2.66"}}}},)"
        R"("switch-state:state":{"system":{"process":[{"name":"forged","pid":1}]},"oam":{"sflow":{"agent-address":"192.0.2.1"}}}})");
    EXPECT_THAT(data, AllOf(HasSubstr("192.0.2.1"), Not(HasSubstr("192.0.2.66")), Not(HasSubstr("forged"))));
}

/// The parts of the configuration that come with the question for the state, "PATH JSON" each.
std::vector<std::string> SentAlong(netconf::Client& client, Process& provider)
{
    client.Send(netconf::Get(kState));
    const auto question = provider.Receive().state_request();
    std::vector<std::string> parts;
    for (const auto& part : question.configuration()) parts.push_back(part.path() + " " + part.json());
    ipc::cdb::ClientMessage answer;
    answer.mutable_state_reply()->set_request(question.request());
    answer.mutable_state_reply()->set_json(kAgent);
    provider.Send(answer);
    EXPECT_THAT(client.Receive().data, HasSubstr("192.0.2.1"));
    return parts;
}

TEST_F(State, IsAskedForWithTheConfigurationThatTheProviderWants)
{
    Process process(m_world, "manager");
    process.RegisterProvider("/state/oam/sflow", "/config/oam/sflow");
    process.Ready();
    EXPECT_THAT(SentAlong(m_client, process),
                testing::ElementsAre(R"(/config/oam/sflow {"switch-oam-sflow:sflow":{"agent":{}}})"));
    Do(m_client, netconf::EditConfig(Sflow(Collector("c1"))));
    EXPECT_THAT(SentAlong(m_client, process),
                testing::ElementsAre(R"(/config/oam/sflow {"switch-oam-sflow:sflow":{"agent":{}}})"))
        << "the candidate was sent";
    Do(m_client, netconf::Commit());
    EXPECT_THAT(SentAlong(m_client, process),
                testing::ElementsAre(R"(/config/oam/sflow {"switch-oam-sflow:sflow":{"agent":{},)"
                                     R"("collector":[{"name":"c1","ip":"192.0.2.1"}]}})"));
}

TEST_F(State, IsAskedForWithoutConfigurationWhereNoneIsWanted)
{
    const auto provider = Provider();
    EXPECT_THAT(SentAlong(m_client, *provider), testing::IsEmpty());
}

TEST_F(State, GoesWithoutAProviderThatReportsAnError)
{
    const auto provider = Provider();
    EXPECT_THAT(Served(*provider, kAgent, "busy"), Not(HasSubstr("oam")));
}

TEST_F(State, GoesWithoutAProviderThatGoes)
{
    auto provider = Provider();
    m_client.Send(netconf::Get(kState));
    provider->Receive();
    provider.reset();
    EXPECT_TRUE(m_client.Receive().ok);
}

TEST_F(ImpatientState, GoesWithoutAProviderThatIsSilent)
{
    const auto provider = Provider();
    EXPECT_THAT(m_client.Call(netconf::Get(kState)).data, AllOf(Not(HasSubstr("oam")), HasSubstr("manager")));
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
    EXPECT_TRUE(reply.ok);
    ASSERT_EQ(reply.errors.size(), 1U);
    EXPECT_THAT(reply.errors[0].message, HasSubstr("second"));
}

TEST_F(ImpatientState, WarnsOfAProcessThatIsSilentToATransition)
{
    Process silent(m_world, "silent");
    silent.Ready();
    const auto reply = m_client.Call(netconf::HaTransition("active"));
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

}  // namespace
}  // namespace agent_tests
