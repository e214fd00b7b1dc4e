// SPDX-License-Identifier: Apache-2.0
// What subscribers are told (RFC 5277, RFC 6470).

#include "agent/events/notifications.h"

#include <string>

namespace agent_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(Notifications, AreAnnounced)
{
    World world;
    const auto client = world.Connect();
    EXPECT_TRUE(client.ServerHello().Has("urn:ietf:params:netconf:capability:notification:1.0"));
    EXPECT_TRUE(client.ServerHello().Has("urn:ietf:params:netconf:capability:interleave:1.0"));
}

TEST(Notifications, TellOfACommit)
{
    const Clock clock;
    World world(clock.Options());
    auto subscriber = world.Connect();
    auto editor = world.Connect();
    Do(subscriber, Subscription(ChangesOnly()));
    *clock.us += 5'000'042;
    Commit(editor, Collector("c1"), "why & wherefore");
    const std::string change = Next(subscriber);
    ExpectValid(change);
    EXPECT_THAT(change, HasSubstr("<eventTime>2026-11-21T03:20:16.000042Z</eventTime>"));
    EXPECT_THAT(change, HasSubstr("<session-id>" + std::to_string(editor.SessionId()) + "</session-id>"));
    EXPECT_THAT(change, HasSubstr("<datastore>running</datastore>"));
    EXPECT_THAT(change, HasSubstr("/switch-config:config/switch-oam-sflow:oam/switch-oam-sflow:sflow/"
                                  "switch-oam-sflow:collector[switch-oam-sflow:name='c1']</target>"
                                  "<operation>create</operation>"));
    EXPECT_THAT(change, HasSubstr("<commit xmlns=\"urn:switch:yang:switch-events\">1</commit>"));
    EXPECT_THAT(change, HasSubstr(">why &amp; wherefore</comment>"));
    EXPECT_THAT(change, Not(HasSubstr("edits-left-out")));

    Commit(editor, "<collector><name>c1</name><port>7000</port></collector>");
    const std::string leaf = Next(subscriber);
    ExpectValid(leaf);
    EXPECT_THAT(leaf, HasSubstr("[switch-oam-sflow:name='c1']/switch-oam-sflow:port</target>"
                                "<operation>replace</operation>"));
    Commit(editor, "<collector nc:operation=\"delete\"><name>c1</name></collector>");
    EXPECT_THAT(Next(subscriber), HasSubstr("<operation>delete</operation>"));
}

TEST(Notifications, ListABoundedNumberOfEdits)
{
    World world;
    auto subscriber = world.Connect();
    auto editor = world.Connect();
    Do(subscriber, Subscription(ChangesOnly()));
    std::string many;
    for (int i = 0; i < 1000; ++i) many += Collector("c" + std::to_string(i));
    Commit(editor, many);
    const std::string change = Next(subscriber);
    ExpectValid(change);
    EXPECT_LT(change.size(), 64'000U);
    EXPECT_THAT(change, HasSubstr(">950</edits-left-out>"));
}

TEST(Notifications, TellOfSessionsAndWhyTheyEnd)
{
    World world;
    auto subscriber = world.Connect();
    Do(subscriber, Subscription());
    const auto number = [](const netconf::Client& client) {
        return "<session-id>" + std::to_string(client.SessionId()) + "</session-id>";
    };
    auto closing = world.Connect();
    const std::string start = Next(subscriber);
    ExpectValid(start);
    EXPECT_THAT(start, HasSubstr("<netconf-session-start"));
    EXPECT_THAT(start, HasSubstr(number(closing)));
    Do(closing, netconf::CloseSession());
    std::string end = Next(subscriber);
    ExpectValid(end);
    EXPECT_THAT(end, HasSubstr("<netconf-session-end"));
    EXPECT_THAT(end, HasSubstr("<termination-reason>closed</termination-reason>"));

    auto killed = world.Connect();
    Next(subscriber);
    auto killer = world.Connect();
    Next(subscriber);
    Do(killer,
       "<kill-session><session-id>" + std::to_string(killed.SessionId()) + "</session-id></kill-session>");
    end = Next(subscriber);
    ExpectValid(end);
    EXPECT_THAT(end, HasSubstr(number(killed)));
    EXPECT_THAT(end, HasSubstr("<killed-by>" + std::to_string(killer.SessionId()) +
                               "</killed-by>"
                               "<termination-reason>killed</termination-reason>"));
    {
        const auto dropped = world.Connect();
        Next(subscriber);
    }
    end = Next(subscriber);
    ExpectValid(end);
    EXPECT_THAT(end, HasSubstr("<termination-reason>dropped</termination-reason>"));
}

TEST(Notifications, TellOfProcesses)
{
    agent::AgentOptions options;
    options.ackTimes.general = std::chrono::milliseconds(1000);
    World world(options);
    auto subscriber = world.Connect();
    auto editor = world.Connect();
    const std::string own = "xmlns=\"urn:switch:yang:switch-events\"/>";
    Do(subscriber,
       Subscription("<filter><process-connected " + own + "<process-lost " + own + "<process-stuck " + own +
                    "<process-recovered " + own + "<process-fault " + own + "</filter>"));
    Process process(world, "worker");
    process.Subscribe(1, 1, "/config/oam/sflow/collector");
    process.Ready();
    const std::string connected = Next(subscriber);
    ExpectValid(connected);
    EXPECT_THAT(connected, HasSubstr("<process-connected"));
    EXPECT_THAT(connected, HasSubstr("<process>worker</process>"));

    ipc::cdb::ClientMessage report;
    report.mutable_fault_report()->set_process("worker");
    report.mutable_fault_report()->set_kind(3);
    report.mutable_fault_report()->set_text("it <broke>");
    process.Send(report);
    Do(editor, netconf::EditConfig(Sflow(Collector("c1"))));
    editor.Send(netconf::Commit());
    process.ReceiveChangeSet();
    world.Advance(std::chrono::milliseconds(100));  // faults are told in batches
    const std::string fault = Next(subscriber);
    ExpectValid(fault);
    EXPECT_THAT(fault, HasSubstr("<text>it &lt;broke&gt;</text>"));
    world.Advance(std::chrono::milliseconds(1000));
    const std::string stuck = Next(subscriber);
    ExpectValid(stuck);
    EXPECT_THAT(stuck, HasSubstr("<process-stuck"));
    EXPECT_THAT(stuck, HasSubstr("<commit>1</commit>"));
    const std::string lost = Next(subscriber);
    ExpectValid(lost);
    EXPECT_THAT(lost, HasSubstr("<process-lost"));
    EXPECT_THAT(lost, HasSubstr("<reason>"));
    EXPECT_TRUE(editor.Receive().ok);
    Process again(world, "worker");
    again.Subscribe(1, 1, "/config/oam/sflow/collector");
    again.Ready();
    EXPECT_THAT(Next(subscriber), HasSubstr("<process-connected"));
    const std::string recovered = Next(subscriber);
    ExpectValid(recovered);
    EXPECT_THAT(recovered, HasSubstr("<process-recovered"));
}

ipc::cdb::ClientMessage Problem(bool begins, const std::string& name, const std::string& reason,
                                const std::string& text = {})
{
    ipc::cdb::ClientMessage message;
    auto& change = *message.mutable_problem_changes()->add_changes();
    change.set_begins(begins);
    change.set_subject("interface");
    change.set_name(name);
    change.set_reason(reason);
    change.set_severity("broken");
    change.set_text(text);
    return message;
}

TEST(Notifications, TellOfProblemsThatBeginAndEnd)
{
    World world;
    auto subscriber = world.Connect();
    const std::string own = "xmlns=\"urn:switch:yang:switch-events\"/>";
    Do(subscriber, Subscription("<filter><sampling-problem-begins " + own + "<sampling-problem-ends " + own +
                                "</filter>"));
    Process process(world, "worker");
    process.RegisterProvider();
    process.Ready();
    // What is no value of the model is not told.
    process.Send(Problem(true, "eth1", "gremlins", "they are inside"));
    process.Send(Problem(true, "eth<1>", "interface-missing", "there is none"));
    process.Send(Problem(false, "eth<1>", "interface-missing"));
    const std::string begins = Next(subscriber);
    ExpectValid(begins);
    EXPECT_THAT(begins, HasSubstr("<sampling-problem-begins xmlns=\"urn:switch:yang:switch-events\">"
                                  "<subject>interface</subject><name>eth&lt;1&gt;</name>"
                                  "<reason>interface-missing</reason><severity>broken</severity>"
                                  "<text>there is none</text>"));
    const std::string ends = Next(subscriber);
    ExpectValid(ends);
    EXPECT_THAT(ends, HasSubstr("<sampling-problem-ends"));
    EXPECT_THAT(ends, Not(HasSubstr("<text")));
}

TEST(Notifications, CountProblemsBeyondTheirRate)
{
    const Clock clock;
    World world(clock.Options());
    auto subscriber = world.Connect();
    const std::string own = "xmlns=\"urn:switch:yang:switch-events\"/>";
    Do(subscriber,
       Subscription("<filter><sampling-problem-begins " + own + "<events-left-out " + own + "</filter>"));
    Process process(world, "worker");
    process.RegisterProvider();
    process.Ready();
    constexpr int kProblems = 1000;
    ipc::cdb::ClientMessage many;
    for (int i = 0; i < kProblems; ++i)
        *many.mutable_problem_changes()->add_changes() =
            Problem(true, "eth" + std::to_string(i), "interface-missing").problem_changes().changes(0);
    process.Send(many);
    const int kTold = static_cast<int>(agent::Events::kBurst);
    for (int i = 0; i < kTold; ++i)
        ASSERT_THAT(Next(subscriber), HasSubstr("<name>eth" + std::to_string(i) + "</name>"));
    *clock.us += 1'000'000;
    process.Send(Problem(true, "later", "interface-missing"));
    const std::string leftOut = Next(subscriber);
    ExpectValid(leftOut);
    EXPECT_THAT(leftOut, AllOf(HasSubstr("<kind>problems</kind>"),
                               HasSubstr("<count>" + std::to_string(kProblems - kTold) + "</count>")));
    EXPECT_THAT(Next(subscriber), HasSubstr("<name>later</name>"));
}

}  // namespace
}  // namespace agent_tests
