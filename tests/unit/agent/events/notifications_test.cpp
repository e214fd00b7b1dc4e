// SPDX-License-Identifier: Apache-2.0
// Subscriptions as NETCONF clients see them (RFC 5277, RFC 6470).

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <atomic>
#include <string>

#include "agent/agent_world.h"
#include "agent/data/yang_tree.h"
#include "agent/events/events.h"
#include "agent/rpc_text.h"
#include "netconf/requests.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr std::int64_t kStart = 1'795'231'211'000'000;  // 2026-11-21T03:20:11Z

/// A clock that the test sets.
struct Clock {
    std::shared_ptr<std::atomic<std::int64_t>> us = std::make_shared<std::atomic<std::int64_t>>(kStart);

    [[nodiscard]] agent::AgentOptions Options() const
    {
        agent::AgentOptions options;
        options.now = [now = us] { return now->load(); };
        return options;
    }
};

std::string Subscription(const std::string& parameters = {})
{
    return "<create-subscription xmlns=\"urn:ietf:params:xml:ns:netconf:notification:1.0\">" + parameters +
           "</create-subscription>";
}

std::string ChangesOnly()
{
    return "<filter type=\"subtree\"><netconf-config-change "
           "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-notifications\"/></filter>";
}

std::string Next(netconf::Client& client) { return client.ReceiveMessage(); }

void Commit(netconf::Client& client, const std::string& content, const std::string& comment = {})
{
    Do(client, netconf::EditConfig(Sflow(content)));
    Do(client, netconf::Commit(comment));
}

/// The notification is data of the modules.
void ExpectValid(const std::string& notification)
{
    ly_in* raw = nullptr;
    ASSERT_EQ(LY_SUCCESS, ly_in_new_memory(notification.c_str(), &raw));
    const cdb::Owned<ly_in> in(raw);
    lyd_node* envelope = nullptr;
    lyd_node* event = nullptr;
    const LY_ERR result = lyd_parse_op(Schema().Context(), nullptr, in.get(), LYD_XML, LYD_TYPE_NOTIF_NETCONF,
                                       &envelope, &event);
    const agent::Tree envelopeOwner(envelope);
    const agent::Tree eventOwner(event);
    ASSERT_EQ(LY_SUCCESS, result) << notification;
    // The targets of edits are instances of a datastore that is not here, and what is deleted is nowhere.
    if (notification.find("<target") != std::string::npos) return;
    EXPECT_EQ(LY_SUCCESS, lyd_validate_op(event, nullptr, LYD_TYPE_NOTIF_YANG, nullptr)) << notification;
}

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
    Do(killer, "<kill-session><session-id>" + std::to_string(killed.SessionId()) + "</session-id></kill-session>");
    end = Next(subscriber);
    ExpectValid(end);
    EXPECT_THAT(end, HasSubstr(number(killed)));
    EXPECT_THAT(end, HasSubstr("<killed-by>" + std::to_string(killer.SessionId()) + "</killed-by>"
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
    options.ackTimeout = std::chrono::milliseconds(1000);
    World world(options);
    auto subscriber = world.Connect();
    auto editor = world.Connect();
    const std::string own = "xmlns=\"urn:switch:yang:switch-events\"/>";
    Do(subscriber, Subscription("<filter><process-connected " + own + "<process-lost " + own + "<process-stuck " +
                                own + "<process-fault " + own + "</filter>"));
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
}

TEST(Notifications, ReplayWhatWasAndGoOn)
{
    const Clock clock;
    World world(clock.Options());
    auto editor = world.Connect();
    for (int i = 1; i <= 3; ++i) {
        *clock.us += 1'000'000;  // commits at :12, :13, :14
        Commit(editor, Collector("c" + std::to_string(i)));
    }
    auto subscriber = world.Connect();
    Do(subscriber, Subscription(ChangesOnly() + "<startTime>2026-11-21T03:20:13Z</startTime>"));
    EXPECT_THAT(Next(subscriber), HasSubstr("'c2'"));
    EXPECT_THAT(Next(subscriber), HasSubstr("'c3'"));
    const std::string complete = Next(subscriber);
    ExpectValid(complete);
    EXPECT_THAT(complete, HasSubstr("<replayComplete"));
    Commit(editor, Collector("c4"));
    EXPECT_THAT(Next(subscriber), HasSubstr("'c4'"));
}

TEST(Notifications, ReplayWithAnEndThatIsPast)
{
    const Clock clock;
    World world(clock.Options());
    auto editor = world.Connect();
    for (int i = 1; i <= 3; ++i) {
        *clock.us += 1'000'000;
        Commit(editor, Collector("c" + std::to_string(i)));
    }
    *clock.us += 1'000'000;
    auto subscriber = world.Connect();
    Do(subscriber, Subscription(ChangesOnly() + "<startTime>0001-01-01T00:00:00Z</startTime>"
                                                "<stopTime>2026-11-21T03:20:13Z</stopTime>"));
    EXPECT_THAT(Next(subscriber), HasSubstr("'c1'"));
    EXPECT_THAT(Next(subscriber), HasSubstr("'c2'"));
    EXPECT_THAT(Next(subscriber), HasSubstr("<replayComplete"));
    const std::string complete = Next(subscriber);
    ExpectValid(complete);
    EXPECT_THAT(complete, HasSubstr("<notificationComplete"));
    // The session can subscribe again.
    Do(subscriber, Subscription(ChangesOnly()));
    Commit(editor, Collector("c4"));
    EXPECT_THAT(Next(subscriber), HasSubstr("'c4'"));
}

TEST(Notifications, EndAtTheirTime)
{
    const Clock clock;
    World world(clock.Options());
    auto subscriber = world.Connect();
    Do(subscriber, Subscription(ChangesOnly() + "<startTime>2026-11-21T03:20:11Z</startTime>"
                                                "<stopTime>2026-11-21T03:20:21Z</stopTime>"));
    EXPECT_THAT(Next(subscriber), HasSubstr("<replayComplete"));
    *clock.us += 10'000'001;
    world.Advance(std::chrono::milliseconds(10'001));
    EXPECT_THAT(Next(subscriber), HasSubstr("<notificationComplete"));
}

TEST(Notifications, TakeTimesThatAreFarAway)
{
    const Clock clock;
    World world(clock.Options());
    auto subscriber = world.Connect();
    auto editor = world.Connect();
    Do(subscriber, Subscription(ChangesOnly() + "<startTime>0000-01-01T00:00:00-23:59</startTime>"
                                                "<stopTime>9999-12-31T23:59:59.999999999Z</stopTime>"));
    EXPECT_THAT(Next(subscriber), HasSubstr("<replayComplete"));
    world.Advance(std::chrono::hours(1));
    Commit(editor, Collector("c1"));
    EXPECT_THAT(Next(subscriber), HasSubstr("'c1'"));
}

TEST(Notifications, RefuseWrongParameters)
{
    const Clock clock;
    World world(clock.Options());
    auto client = world.Connect();
    const auto info = [&](const std::string& parameters, const std::string& tag) {
        const auto error = Refused(client, Subscription(parameters), tag);
        return error.info.empty() ? std::string() : error.info[0].second;
    };
    EXPECT_EQ("stream", info("<stream>syslog</stream>", "invalid-value"));
    EXPECT_EQ("startTime", info("<startTime>2026-11-21T03:20:12Z</startTime>", "bad-element"));
    EXPECT_EQ("startTime", info("<stopTime>2026-11-21T03:20:12Z</stopTime>", "missing-element"));
    EXPECT_EQ("stopTime", info("<startTime>2026-11-21T03:20:10Z</startTime>"
                               "<stopTime>2026-11-21T03:20:09Z</stopTime>",
                               "bad-element"));
    EXPECT_EQ("startTime", info("<startTime>yesterday</startTime>", "invalid-value"));
    Refused(client, Subscription("<filter type=\"xpath\" select=\"/a\"/>"), "bad-attribute");
    std::string many;
    for (int i = 0; i < 300; ++i) many += "<a xmlns=\"urn:a\"/>";
    EXPECT_EQ("filter", info("<filter>" + many + "</filter>", "too-big"));
    Do(client, Subscription());
    Refused(client, Subscription(), "in-use");
}

TEST(Notifications, StandBesideAnswersInOneSession)
{
    World world;
    auto client = world.Connect();
    Do(client, Subscription(ChangesOnly()));
    client.Send(netconf::EditConfig(Sflow(Collector("c1"))));
    EXPECT_THAT(client.ReceiveMessage(), HasSubstr("<ok/>"));
    client.Send(netconf::Commit());
    // The answer and the event of its own commit, in any order, each whole.
    const std::vector<std::string> both{client.ReceiveMessage(), client.ReceiveMessage()};
    EXPECT_THAT(both, testing::UnorderedElementsAre(
                          testing::AllOf(testing::StartsWith("<notification"), testing::EndsWith("</notification>")),
                          testing::AllOf(testing::StartsWith("<rpc-reply"), testing::EndsWith("</rpc-reply>"))));
}

TEST(Notifications, DropWithTheSession)
{
    World world;
    auto editor = world.Connect();
    {
        auto subscriber = world.Connect();
        Do(subscriber, Subscription());
    }
    for (int i = 0; i < 10; ++i) Commit(editor, Collector("c" + std::to_string(i)));
    auto killed = world.Connect();
    Do(killed, Subscription());
    Do(editor, "<kill-session><session-id>" + std::to_string(killed.SessionId()) + "</session-id></kill-session>");
    Commit(editor, Collector("last"));
}

TEST(Notifications, AreGoneWithARestart)
{
    const Clock clock;
    World world(clock.Options());
    {
        auto editor = world.Connect();
        Commit(editor, Collector("c1"));
    }
    *clock.us += 60'000'000;
    world.Restart();
    auto subscriber = world.Connect();
    Do(subscriber, Subscription(ChangesOnly() + "<startTime>2026-11-21T03:20:00Z</startTime>"));
    EXPECT_THAT(Next(subscriber), HasSubstr("<replayComplete"));
    EXPECT_THAT(subscriber.Call(netconf::Get("<netconf xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>")).data,
                HasSubstr("<replayLogCreationTime>2026-11-21T03:21:11.000000Z</replayLogCreationTime>"));
}

TEST(Notifications, TheStreamIsInTheState)
{
    const Clock clock;
    auto options = clock.Options();
    options.events.events = 2;
    World world(options);
    auto client = world.Connect();
    const auto streams = [&] {
        return client.Call(netconf::Get("<netconf xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>")).data;
    };
    EXPECT_THAT(streams(), HasSubstr("<stream><name>NETCONF</name>"));
    EXPECT_THAT(streams(), HasSubstr("<replaySupport>true</replaySupport>"));
    EXPECT_THAT(streams(), Not(HasSubstr("replay-log-aged-time")));
    for (int i = 0; i < 3; ++i) Commit(client, Collector("c" + std::to_string(i)));
    EXPECT_THAT(streams(), HasSubstr("2026-11-21T03:20:11.000000Z</replay-log-aged-time>"));
}

/// Commits, each with an event of more than 15 KB: far more than a socket and one batch of notifications take.
constexpr int kLargeCommits = 80;

void CommitLarge(netconf::Client& editor)
{
    for (int i = 0; i < kLargeCommits; ++i) {
        std::string content;
        for (int c = 0; c < 60; ++c)
            content += Collector("c" + std::to_string(c), "<ip>192.0.2.1</ip><port>" + std::to_string(1000 + i) +
                                                              "</port>");
        Commit(editor, content);
    }
}

TEST(Notifications, ASubscriberThatReadsTooSlowlyIsToldWhatItLost)
{
    agent::AgentOptions options;
    options.events.events = 10;
    World world(options);
    auto editor = world.Connect();
    auto subscriber = world.Connect();
    Do(subscriber, Subscription(ChangesOnly()));
    CommitLarge(editor);
    std::size_t told = 0;
    std::size_t lost = 0;
    while (told + lost < kLargeCommits) {
        const std::string message = Next(subscriber);
        if (const auto at = message.find("<count>"); at != std::string::npos) {
            ExpectValid(message);
            lost += std::stoul(message.substr(at + 7));
        } else {
            ++told;
        }
    }
    EXPECT_EQ(static_cast<std::size_t>(kLargeCommits), told + lost);
    EXPECT_GT(lost, 0U);
}

TEST(Notifications, ASubscriberThatReadsNothingLosesItsSession)
{
    agent::AgentOptions options;
    options.sessions.times.write = std::chrono::milliseconds(1000);
    World world(options);
    auto editor = world.Connect();
    auto subscriber = world.Connect();
    Do(subscriber, Subscription(ChangesOnly()));
    auto watcher = world.Connect();
    Do(watcher, Subscription("<filter><netconf-session-end "
                             "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-notifications\"/></filter>"));
    CommitLarge(editor);
    world.Advance(std::chrono::milliseconds(1001));
    const std::string end = Next(watcher);
    EXPECT_THAT(end, HasSubstr("<session-id>" + std::to_string(subscriber.SessionId()) + "</session-id>"));
    EXPECT_THAT(end, HasSubstr("<termination-reason>timeout</termination-reason>"));
}

TEST(Notifications, AFloodOfSessionsIsCountedAndNotTold)
{
    const Clock clock;
    World world(clock.Options());
    auto subscriber = world.Connect();
    Do(subscriber, Subscription());
    constexpr int kMany = 600;
    for (int i = 0; i < kMany; ++i) static_cast<void>(world.Connect());
    // Each session has begun and ended. The subscriber's own start has taken one of the tokens.
    const auto burst = static_cast<int>(agent::Events::kBurst) - 1;
    for (int i = 0; i < burst; ++i) EXPECT_THAT(Next(subscriber), HasSubstr("<netconf-session-"));
    // The last ends may not have been seen yet: a request in a new session comes after them or counts them later.
    *clock.us += 60'000'000;
    auto later = world.Connect();
    const std::string leftOut = Next(subscriber);
    ExpectValid(leftOut);
    EXPECT_THAT(leftOut, HasSubstr("<kind>sessions</kind>"));
    EXPECT_THAT(Next(subscriber), HasSubstr("<netconf-session-"));
}

}  // namespace
}  // namespace agent_tests
