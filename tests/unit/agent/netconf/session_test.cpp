// SPDX-License-Identifier: Apache-2.0
// Sessions: hello, the framing agreed on, hostile bytes, and that one client never harms another.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "agent/agent_world.h"
#include "agent/rpc_text.h"
#include "support/frames.h"

namespace agent_tests {
namespace {

using netconf::Framing;
using testing::HasSubstr;

const std::string kEnd = "]]>]]>";

std::string Hello(const std::string& version = "1.1")
{
    return "<hello xmlns=\"" + kBase +
           "\"><capabilities><capability>urn:ietf:params:netconf:base:" + version +
           "</capability></capabilities></hello>" + kEnd;
}

std::string Get() { return InRpc("<get/>"); }

TEST(Session, OffersWhatItServes)
{
    World world;
    const netconf::Client client = world.Connect();
    const auto& hello = client.ServerHello();
    for (const char* capability :
         {"urn:ietf:params:netconf:base:1.0", "urn:ietf:params:netconf:base:1.1",
          "urn:ietf:params:netconf:capability:candidate:1.0",
          "urn:ietf:params:netconf:capability:validate:1.1",
          "urn:ietf:params:netconf:capability:rollback-on-error:1.0",
          "urn:ietf:params:netconf:capability:with-defaults:1.0?basic-mode=explicit&also-supported=report-"
          "all,report-all-tagged,trim",
          "urn:switch:yang:switch-oam-sflow?module=switch-oam-sflow&revision=2026-11-21"})
        EXPECT_TRUE(hello.Has(capability)) << capability;
    // Features too, for clients that do not read the YANG library.
    EXPECT_THAT(hello.capabilities,
                testing::Contains(testing::StartsWith(
                    "urn:ietf:params:xml:ns:netconf:base:1.0?module=ietf-netconf&revision=2011-06-01&"
                    "features=candidate,")));
    EXPECT_FALSE(hello.Has("urn:ietf:params:netconf:capability:writable-running:1.0"));
}

TEST(Session, GivesEachSessionANumberOfItsOwn)
{
    World world;
    const auto first = world.Connect();
    const auto second = world.Connect();
    EXPECT_NE(first.SessionId(), second.SessionId());
}

TEST(Session, SpeaksBothFramings)
{
    World world;
    netconf::ClientOptions old;
    old.offerChunked = false;
    auto oldClient = world.Connect(old);
    auto newClient = world.Connect();
    EXPECT_EQ(oldClient.UsedFraming(), Framing::kEndOfMessage);
    EXPECT_EQ(newClient.UsedFraming(), Framing::kChunked);
    Do(oldClient, netconf::Commit());
    Do(newClient, netconf::Commit());
}

TEST(Session, AnswersInTheOrderOfTheRequests)
{
    World world;
    auto client = world.Connect();
    client.Send(netconf::Commit());
    client.Send("<make-tea/>");
    client.Send(netconf::GetConfig("running"));
    EXPECT_THAT(client.Receive().xml, HasSubstr("message-id=\"1\"><ok/>"));
    EXPECT_THAT(client.Receive().xml, HasSubstr("message-id=\"2\"><rpc-error>"));
    EXPECT_THAT(client.Receive().xml, HasSubstr("message-id=\"3\"><data/>"));
}

TEST(Session, GoesOnAfterAMessageThatIsNoXml)
{
    World world;
    auto client = world.Connect();
    client.SendRaw("\n#3\n<x \n##\n");
    EXPECT_EQ(client.Receive().errors.at(0).tag, "malformed-message");
    Do(client, netconf::Commit());
}

struct HostileBytes {
    const char* name;
    std::string bytes;  // behind a hello of base:1.1
};

class HostileTest : public testing::TestWithParam<HostileBytes> {};

TEST_P(HostileTest, EndsItsOwnSessionOnlyAndSaysWhy)
{
    World world;
    auto other = world.Connect();
    auto client = world.Connect();
    client.SendRaw(GetParam().bytes);
    const auto reply = client.Receive();
    EXPECT_EQ(reply.errors.at(0).tag, "malformed-message");
    EXPECT_EQ(reply.errors.at(0).type, "rpc");
    EXPECT_THROW(client.Receive(), netconf::ConnectionError);
    Do(other, netconf::Commit());
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostileTest,
    testing::Values(HostileBytes{"NoChunk", Get() + kEnd}, HostileBytes{"SizeZero", "\n#0\n"},
                    HostileBytes{"HugeChunk", "\n#4294967295\n"}, HostileBytes{"OverLimit", "\n#67108865\n"},
                    HostileBytes{"NegativeSize", "\n#-1\n"}, HostileBytes{"EmptyMessage", "\n##\n"}),
    [](const auto& each) { return std::string(each.param.name); });

class BadHelloTest : public testing::TestWithParam<HostileBytes> {};

TEST_P(BadHelloTest, EndsTheSession)
{
    World world;
    support::FrameClient client(world.NetconfSocket());
    client.SendBytes(GetParam().bytes);
    EXPECT_TRUE(client.AwaitEnd());
    auto other = world.Connect();
    Do(other, netconf::Commit());
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadHelloTest,
    testing::Values(HostileBytes{"NoXml", "hello" + kEnd}, HostileBytes{"RpcFirst", Get() + kEnd},
                    HostileBytes{"NoVersion", "<hello xmlns=\"" + kBase + "\"/>" + kEnd},
                    HostileBytes{"OtherVersion", Hello("2.0")},
                    HostileBytes{"WithSessionId",
                                 "<hello xmlns=\"" + kBase +
                                     "\"><capabilities><capability>urn:ietf:params:netconf:base:1.0"
                                     "</capability></capabilities><session-id>4</session-id></hello>" +
                                     kEnd}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(Session, EndsOneThatSaysNoHelloInTime)
{
    World world;
    support::FrameClient client(world.NetconfSocket());
    auto other = world.Connect();  // accepted after it
    Do(other, netconf::Commit());  // so the agent has its hello
    world.Advance(std::chrono::seconds(30));
    EXPECT_TRUE(client.AwaitEnd());
    Do(other, netconf::Commit());
}

TEST(Session, TurnsAwayWhatIsTooManyAndSaysWhy)
{
    agent::AgentOptions options;
    options.sessions.most = 1;
    World world(options);
    std::vector<netconf::Client> open;
    // Root gets in where others do not.
    const std::size_t most = 1 + (::geteuid() == 0 ? agent::Sessions::kReservedForRoot : 0);
    for (std::size_t i = 0; i < most; ++i) open.push_back(world.Connect());
    try {
        static_cast<void>(world.Connect());
        ADD_FAILURE() << "one session too many";
    } catch (const netconf::ConnectionError& error) {
        EXPECT_THAT(error.what(),
                    HasSubstr("no session: too many sessions: " + std::to_string(most) + " are open"));
    }
    Do(open.front(), netconf::Commit());
    Do(open.front(), netconf::KillSession(open.back().SessionId()));
    if (most == 1) return;
    support::Await("the place to come free", [&world] {
        try {
            static_cast<void>(world.Connect());
            return true;
        } catch (const netconf::ConnectionError&) {
            return false;
        }
    });
}

TEST(Session, TakesALongHelloButNoEndlessOne)
{
    World world;
    const std::string blanks(60'000, ' ');
    support::FrameClient fits(world.NetconfSocket());
    EXPECT_TRUE(fits.SendBytes(Hello().substr(0, Hello().size() - kEnd.size()) + blanks + kEnd));
    auto other = world.Connect();
    support::FrameClient endless(world.NetconfSocket());
    // It ends long before it has taken a message's limit.
    std::size_t taken = 0;
    while (taken < (std::size_t{4} << 20) && endless.SendBytes(blanks)) taken += blanks.size();
    EXPECT_LT(taken, std::size_t{4} << 20);
    EXPECT_TRUE(endless.AwaitEnd());
    Do(other, netconf::Commit());
    EXPECT_FALSE(fits.AwaitEnd(std::chrono::milliseconds(20)));
}

TEST(Session, EndsOneThatIsIdleAndNoneThatIsBusy)
{
    agent::AgentOptions options;
    options.sessions.times.idle = std::chrono::seconds(4);
    World world(options);
    Process process(world, "app");
    process.RegisterCallpoint();
    process.Ready();
    auto busy = world.Connect();
    auto idle = world.Connect();
    Do(idle, netconf::Commit());
    busy.Send(netconf::EditConfig(Sflow(Interface("eth1"))));
    const auto request = process.ReceiveRequest();
    world.Advance(options.sessions.times.idle);
    EXPECT_THROW(idle.Receive(), netconf::ConnectionError);
    // Its request has been under way for as long.
    process.Answer(request, 512);
    EXPECT_TRUE(busy.Receive().ok);
    world.Advance(options.sessions.times.idle);
    EXPECT_THROW(busy.Receive(), netconf::ConnectionError);
}

TEST(Session, EndsOneThatDoesNotReadItsAnswer)
{
    World world;
    auto client = world.Connect();
    Do(client, netconf::Commit());  // so the agent has its hello
    support::FrameClient stalled(world.NetconfSocket());
    stalled.SendBytes(Hello("1.0"));
    // More answers than the socket takes; the requests are small.
    const std::string request = "<rpc xmlns=\"" + kBase +
                                "\" message-id=\"1\"><get-schema "
                                "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\">"
                                "<identifier>ietf-netconf</identifier></get-schema></rpc>" +
                                kEnd;
    for (int i = 0; i < 100; ++i) stalled.SendBytes(request);
    support::Await("the session to end", [&] {
        world.Advance(agent::SessionTimes{}.write);
        return !stalled.SendBytes(" ");
    });
    Do(client, netconf::Commit());
}

TEST(Session, AStalledClientDelaysNobody)
{
    World world;
    Process process(world, "app");
    process.RegisterCallpoint();
    process.Ready();
    auto client = world.Connect();
    std::string many;
    constexpr int kMany = 3000;
    constexpr int kReplies = 10;
    for (int i = 0; i < kMany; ++i) many += Interface("interface-number-" + std::to_string(i));
    client.Send(netconf::EditConfig(Sflow(many)));
    process.Serve(kMany);
    EXPECT_TRUE(client.Receive().ok);
    // More than the socket takes, and the client does not read.
    auto stalled = world.Connect();
    for (int i = 0; i < kReplies; ++i) stalled.Send(netconf::GetConfig("candidate"));
    for (int i = 0; i < 20; ++i) Do(client, netconf::Validate());
    // It has them all as soon as it reads.
    for (int i = 0; i < kReplies; ++i) EXPECT_TRUE(stalled.Receive().ok);
}

TEST(Session, ClosesWhenAsked)
{
    World world;
    auto client = world.Connect();
    Do(client, netconf::CloseSession());
    EXPECT_THROW(client.Call(netconf::Commit()), netconf::ConnectionError);
}

TEST(Session, KillsAnother)
{
    World world;
    auto client = world.Connect();
    auto other = world.Connect();
    Do(client, netconf::KillSession(other.SessionId()));
    EXPECT_THROW(other.Call(netconf::Commit()), netconf::ConnectionError);
    const auto error = Refused(client, netconf::KillSession(other.SessionId()), "invalid-value");
    EXPECT_THAT(error.info, testing::ElementsAre(testing::Pair("bad-element", "session-id")));
}

TEST(Session, DoesNotKillItself)
{
    World world;
    auto client = world.Connect();
    Refused(client, netconf::KillSession(client.SessionId()), "invalid-value");
    Do(client, netconf::Commit());
}

TEST(Session, DoesNotAnnounceWhatTheStandardHasAndWeHaveNot)
{
    World world;
    auto client = world.Connect();
    for (const char* capability : {"writable-running:1.0", "startup:1.0", "url:1.0", "xpath:1.0"})
        EXPECT_FALSE(
            client.ServerHello().Has(std::string("urn:ietf:params:netconf:capability:") + capability))
            << capability;
}

TEST(Session, GivesTheYangOfAModule)
{
    World world;
    auto client = world.Connect();
    const std::string open =
        "<get-schema xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\"><identifier>";
    const auto reply = client.Call(open + "switch-oam-sflow</identifier></get-schema>");
    EXPECT_TRUE(reply.ok);
    EXPECT_THAT(reply.xml, HasSubstr("<data xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\">"
                                     "module switch-oam-sflow {"));
    Refused(client, open + "none</identifier></get-schema>", "invalid-value");
}

TEST(Session, NotesWhoCommits)
{
    World world;
    auto client = world.Connect();
    Do(client, netconf::EditConfig(Sflow(Collector("c1"))));
    Do(client, netconf::Commit("because"));
    world.InLoop([&] {
        const auto history = world.Store().History(5);
        ASSERT_EQ(history.size(), 1U);
        EXPECT_EQ(history[0].comment, "because");
        EXPECT_EQ(history[0].source, "netconf");
        EXPECT_EQ(history[0].user, ::getpwuid(::geteuid())->pw_name);
    });
}

}  // namespace
}  // namespace agent_tests
