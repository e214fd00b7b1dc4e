// SPDX-License-Identifier: Apache-2.0
// Processes on cdb.sock: registration, refusal, and that malformed messages end their sender's
// connection only.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "agent/agent_world.h"
#include "ipc/frame.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;

TEST(Clients, AreWelcomedWithTheStoreAndItsCommit)
{
    World world;
    auto client = world.Connect();
    Do(client, netconf::EditConfig(Sflow(Collector("c1"))));
    Do(client, netconf::Commit());
    Process process(world, "app");
    process.Subscribe(1, 10, "/config/oam/sflow");
    process.RegisterCallpoint();
    process.RegisterProvider();
    const auto welcome = process.Ready();
    EXPECT_EQ(welcome.commit(), 1U);
    world.InLoop([&] { EXPECT_EQ(welcome.store_dir(), world.Store().Directory().string()); });
}

struct BadRegistration {
    const char* name;
    std::function<void(Process&)> register_;
    const char* reason;
};

class BadRegistrationTest : public testing::TestWithParam<BadRegistration> {};

TEST_P(BadRegistrationTest, IsRefusedAndEnds)
{
    World world;
    Process process(world, "app");
    GetParam().register_(process);
    const auto refused = process.ReceiveRefusal();
    EXPECT_THAT(refused.reason(), HasSubstr(GetParam().reason));
    EXPECT_EQ(refused.holder_pid(), 0);
    EXPECT_TRUE(process.AwaitEnd());
    Process next(world, "app");
    next.RegisterCallpoint();
    next.Ready();
}

void SubscribeWithHash(Process& process, std::int32_t hash)
{
    ipc::cdb::ClientMessage message;
    message.mutable_subscribe()->set_id(1);
    message.mutable_subscribe()->set_path("/config/oam/sflow");
    message.mutable_subscribe()->set_ns(hash);
    process.Send(message);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadRegistrationTest,
    testing::Values(
        BadRegistration{"UnknownPath", [](Process& p) { p.Subscribe(1, 0, "/config/oam/other"); },
                        "/config/oam/other"},
        BadRegistration{"OtherNamespace", [](Process& p) { SubscribeWithHash(p, 7); }, "116992694, not 7"},
        BadRegistration{"NumberTwice",
                        [](Process& p) {
                            p.Subscribe(1, 0, "/config/oam/sflow");
                            p.Subscribe(1, 0, "/config/oam/sflow/agent");
                        },
                        "two subscriptions have the number 1"},
        BadRegistration{"UnknownCallpoint", [](Process& p) { p.RegisterCallpoint("nothing"); },
                        "no callpoint nothing"},
        BadRegistration{"NamelessCallpoint", [](Process& p) { p.RegisterCallpoint(""); }, "no callpoint"},
        BadRegistration{"UnknownState", [](Process& p) { p.RegisterProvider("/state/nothing"); },
                        "/state/nothing"},
        BadRegistration{"ConfigurationForState", [](Process& p) { p.RegisterProvider("/config/oam"); },
                        "/config/oam"},
        BadRegistration{"StateOfOurOwn", [](Process& p) { p.RegisterProvider("/state/system"); },
                        "cdbd tells the state of /state/system"},
        BadRegistration{"StateWithOurOwnInIt", [](Process& p) { p.RegisterProvider("/state"); },
                        "cdbd tells the state of /state/system"},
        BadRegistration{"TooMany",
                        [](Process& p) {
                            for (std::uint32_t i = 0; i < 300; ++i) p.Subscribe(i, 0, "/config/oam/sflow");
                        },
                        "more than 256"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(Clients, OfAnotherProtocolAreRefused)
{
    World world;
    support::FrameClient client(world.CdbSocket());
    ipc::cdb::ClientMessage message;
    message.mutable_hello()->set_protocol(99);
    client.Send(message);
    ipc::cdb::ServerMessage answer;
    ASSERT_TRUE(client.Receive(answer));
    EXPECT_THAT(answer.refused().reason(), HasSubstr("protocol 99"));
}

TEST(Clients, HoldACallpointAndAProvidersPathAlone)
{
    World world;
    auto holder = std::make_unique<Process>(world, "app");
    holder->RegisterCallpoint();
    holder->RegisterProvider();
    holder->Ready();
    {
        Process second(world, "app");
        second.RegisterCallpoint();
        const auto refused = second.ReceiveRefusal();
        EXPECT_EQ(refused.holder_pid(), ::getpid());
        EXPECT_THAT(refused.reason(), HasSubstr("sflow-set-sampling-rate"));
        EXPECT_TRUE(second.AwaitEnd());
    }
    {
        Process third(world, "manager");
        third.RegisterProvider();
        EXPECT_EQ(third.ReceiveRefusal().holder_pid(), ::getpid());
    }
    for (const char* path : {"/state/oam", "/state/oam/sflow/manager"}) {
        Process fourth(world, "other");
        fourth.RegisterProvider(path);
        EXPECT_EQ(fourth.ReceiveRefusal().holder_pid(), ::getpid()) << path;
    }
    holder.reset();
    support::Await("the callpoint to come free", [&world] {
        Process next(world, "app");
        next.RegisterCallpoint();
        ipc::cdb::ClientMessage ready;
        ready.mutable_ready();
        next.Send(ready);
        return next.Receive().has_welcome();
    });
}

struct HostileClient {
    const char* name;
    bool hello;
    std::string bytes;
};

std::string Frame(const ipc::cdb::ClientMessage& message)
{
    const std::string content = message.SerializeAsString();
    return support::FrameLength(static_cast<std::uint32_t>(content.size())) + content;
}

std::string ReadyFrame()
{
    ipc::cdb::ClientMessage message;
    message.mutable_ready();
    return Frame(message);
}

std::string AckFrame()
{
    ipc::cdb::ClientMessage message;
    message.mutable_change_set_ack()->set_commit(1);
    return Frame(message);
}

std::string ProblemsFrame()
{
    ipc::cdb::ClientMessage message;
    message.mutable_problem_changes()->add_changes()->set_begins(true);
    return Frame(message);
}

class HostileClientTest : public testing::TestWithParam<HostileClient> {};

TEST_P(HostileClientTest, LosesItsConnectionOnly)
{
    World world;
    Process good(world, "app");
    good.RegisterCallpoint();
    good.Ready();
    if (GetParam().hello) {
        Process process(world, "bad");
        process.Frames().SendBytes(GetParam().bytes);
        EXPECT_TRUE(process.AwaitEnd());
    } else {
        support::FrameClient client(world.CdbSocket());
        client.SendBytes(GetParam().bytes);
        EXPECT_TRUE(client.AwaitEnd());
    }
    auto client = world.Connect();
    client.Send(netconf::EditConfig(Sflow(Interface("eth1"))));
    good.Serve(1);
    EXPECT_TRUE(client.Receive().ok);
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostileClientTest,
    testing::Values(HostileClient{"NoMessage", true, support::FrameLength(3) + "\xff\xff\xff"},
                    HostileClient{"EmptyMessage", true, support::FrameLength(0)},
                    HostileClient{"Oversized", true, support::FrameLength(64U * 1024 * 1024 + 1)},
                    HostileClient{"Http", true, "GET / HTTP/1.0\r\n\r\n"},
                    HostileClient{"NoHello", false, ReadyFrame()},
                    HostileClient{"AnswerBeforeHello", false, AckFrame()},
                    HostileClient{"AnswerBeforeReady", true, AckFrame()},
                    HostileClient{"ProblemsOfNoProvider", true, ReadyFrame() + ProblemsFrame()},
                    HostileClient{"ReadyTwice", true, ReadyFrame() + ReadyFrame()}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(Clients, ReportFaultsOnAConnectionOfOneMessage)
{
    World world;
    ipc::cdb::ClientMessage message;
    auto& fault = *message.mutable_fault_report();
    fault.set_process("app");
    fault.set_pid(42);  // the kernel knows better
    fault.set_kind(1);
    fault.set_function("Run");
    fault.set_file("app.cpp");
    fault.set_line(7);
    fault.set_text("it broke");
    ASSERT_TRUE(ipc::SendBlocking(world.CdbSocket(), message, std::chrono::seconds(10)));
    auto client = world.Connect();
    std::string data;
    support::Await("the fault", [&] {
        world.Advance(agent::FaultIntake::kBatchTime);
        data = client
                   .Call(netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><system><fault/>"
                                      "</system></state>"))
                   .data;
        return !data.empty();
    });
    EXPECT_THAT(
        data,
        testing::MatchesRegex(
            std::string("<state xmlns=\"urn:switch:yang:switch-state\"><system><fault><number>1</number>"
                        "<time>[0-9T:.+-]+Z?</time><process>app</process><pid>") +
            std::to_string(::getpid()) +
            "</pid><kind>1</kind>"
            "<function>Run</function><file>app.cpp</file><line>7</line><text>it broke</text>"
            "</fault></system></state>"));
}

const std::string kNasty = std::string("a\0b", 3) + "\x01\x1b\r]]>\x7f \xef\xbf\xbe \xef\xbf\xbf <&";
const std::string kShown = "a?b???]]&gt;? ? ? &lt;&amp;";

/// What get says of the system, once it has the text in it. A reply that is not well-formed throws.
std::string AwaitState(World& world, netconf::Client& client, const std::string& text)
{
    std::string data;
    support::Await(text, [&] {
        world.Advance(agent::FaultIntake::kBatchTime);
        data =
            client.Call(netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><system/></state>")).data;
        return data.find(text) != std::string::npos;
    });
    return data;
}

TEST(Clients, CanNotSpoilTheXmlOfAReplyByTheirTexts)
{
    World world;
    auto client = world.Connect();
    Process process(world, "app");
    process.RegisterCallpoint();
    process.Ready();
    Process nasty(world, kNasty);
    nasty.Ready();
    EXPECT_THAT(AwaitState(world, client, "<name>" + kShown), HasSubstr("<name>app</name>"));

    ipc::cdb::ClientMessage message;
    auto& fault = *message.mutable_fault_report();
    for (std::string* text :
         {fault.mutable_process(), fault.mutable_function(), fault.mutable_file(), fault.mutable_text()})
        *text = kNasty;
    process.Send(message);
    const std::string data = AwaitState(world, client, "<fault>");
    for (const char* name : {"process", "function", "file", "text"})
        EXPECT_THAT(data, HasSubstr("<" + std::string(name) + ">" + kShown + "</"));

    client.Send(netconf::EditConfig(Sflow(Interface("eth1"))));
    const auto request = process.ReceiveRequest();
    message.mutable_callpoint_reply()->set_request(request.request());
    message.mutable_callpoint_reply()->set_error(kNasty + std::string(100'000, 'x'));
    process.Send(message);
    const auto reply = client.Receive();
    EXPECT_THAT(reply.xml, HasSubstr(kShown));
    EXPECT_LT(reply.xml.size(), 6000U);
}

TEST(Clients, ThatAreSlowToSayWhatTheyWantAreEnded)
{
    World world;
    support::FrameClient silent(world.CdbSocket());
    Process registering(world, "slow");
    registering.Subscribe(1, 0, "/config/oam/sflow");
    Process ready(world, "app");  // accepted after them
    ready.RegisterCallpoint();
    ready.Ready();
    world.Advance(agent::AgentOptions{}.clientHelloTimeout);
    EXPECT_TRUE(silent.AwaitEnd());
    EXPECT_TRUE(registering.AwaitEnd());
    auto client = world.Connect();
    client.Send(netconf::EditConfig(Sflow(Interface("eth1"))));
    ready.Serve(1);
    EXPECT_TRUE(client.Receive().ok);
}

TEST(Clients, ReportNoMoreFaultsThanTheirShare)
{
    World world;
    auto client = world.Connect();
    Process process(world, "storm");
    process.Ready();
    ipc::cdb::ClientMessage message;
    message.mutable_fault_report()->set_process("storm");
    for (int i = 0; i < 5000; ++i) process.Send(message);
    Process other(world, "last");
    other.Ready();  // behind them all
    AwaitState(world, client, "<number>20</number>");
    world.InLoop([&] { EXPECT_LT(world.Store().Faults(1000).size(), 40U); });
}

}  // namespace
}  // namespace agent_tests
