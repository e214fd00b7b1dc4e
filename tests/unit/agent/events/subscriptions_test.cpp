// SPDX-License-Identifier: Apache-2.0
// Subscriptions as clients see them: times, replay, limits, their end.

#include "agent/events/notifications.h"

#include <string>
#include <vector>

#include "agent/events/events.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Subscriptions, ReplayWhatWasAndGoOn)
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

TEST(Subscriptions, ReplayWithAnEndThatIsPast)
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

TEST(Subscriptions, EndAtTheirTime)
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

TEST(Subscriptions, TakeTimesThatAreFarAway)
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

TEST(Subscriptions, RefuseWrongParameters)
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

TEST(Subscriptions, TakeAFilterOfTheBaseNamespaceToo)
{
    World world;
    auto editor = world.Connect();
    const std::string base = "<filter xmlns=\"" + kBase + "\" type=\"subtree\"";
    for (const std::string& filter :
         {base + "><netconf-session-start "
                 "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-notifications\"/></filter>",
          base + "/>", base + "></filter >"}) {
        auto subscriber = world.Connect();
        Do(subscriber, Subscription(filter + "<startTime>2026-01-01T00:00:00Z</startTime>"));
        std::string message = Next(subscriber);
        while (message.find("<netconf-session-start") != std::string::npos) message = Next(subscriber);
        EXPECT_THAT(message, HasSubstr("<replayComplete"));
    }
    Refused(editor, Subscription(base + "/>" + ChangesOnly()), "bad-element");
    Refused(editor, Subscription(ChangesOnly() + base + "/>"), "bad-element");
    Refused(editor, Subscription(base + "/>" + base + "/>"), "bad-element");
    Refused(editor, Subscription("<stream xmlns=\"" + kBase + "\">NETCONF</stream>"), "unknown-element");
}

TEST(Subscriptions, StandBesideAnswersInOneSession)
{
    World world;
    auto client = world.Connect();
    Do(client, Subscription(ChangesOnly()));
    client.Send(netconf::EditConfig(Sflow(Collector("c1"))));
    EXPECT_THAT(client.ReceiveMessage(), HasSubstr("<ok/>"));
    client.Send(netconf::Commit());
    // The answer and the event of its own commit, in any order, each whole.
    const std::vector<std::string> both{client.ReceiveMessage(), client.ReceiveMessage()};
    EXPECT_THAT(
        both, testing::UnorderedElementsAre(
                  testing::AllOf(testing::StartsWith("<notification"), testing::EndsWith("</notification>")),
                  testing::AllOf(testing::StartsWith("<rpc-reply"), testing::EndsWith("</rpc-reply>"))));
}

TEST(Subscriptions, DropWithTheSession)
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
    Do(editor,
       "<kill-session><session-id>" + std::to_string(killed.SessionId()) + "</session-id></kill-session>");
    Commit(editor, Collector("last"));
}

TEST(Subscriptions, AreGoneWithARestart)
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
    EXPECT_THAT(
        subscriber.Call(netconf::Get("<netconf xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>")).data,
        HasSubstr("<replayLogCreationTime>2026-11-21T03:21:11.000000Z</replayLogCreationTime>"));
}

TEST(Subscriptions, TheStreamIsInTheState)
{
    const Clock clock;
    auto options = clock.Options();
    options.events.events = 2;
    World world(options);
    auto client = world.Connect();
    const auto streams = [&] {
        return client.Call(netconf::Get("<netconf xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>"))
            .data;
    };
    EXPECT_THAT(streams(), HasSubstr("<stream><name>NETCONF</name>"));
    EXPECT_THAT(streams(), HasSubstr("<replaySupport>true</replaySupport>"));
    EXPECT_THAT(streams(), Not(HasSubstr("replay-log-aged-time")));
    for (int i = 0; i < 3; ++i) Commit(client, Collector("c" + std::to_string(i)));
    EXPECT_THAT(streams(), HasSubstr("2026-11-21T03:20:11.000000Z</replay-log-aged-time>"));
}

/// Commits, each with an event of more than 15 KB: far more than a socket and one batch of notifications
/// take.
constexpr int kLargeCommits = 80;

void CommitLarge(netconf::Client& editor)
{
    for (int i = 0; i < kLargeCommits; ++i) {
        std::string content;
        for (int c = 0; c < 60; ++c)
            content += Collector("c" + std::to_string(c),
                                 "<ip>192.0.2.1</ip><port>" + std::to_string(1000 + i) + "</port>");
        Commit(editor, content);
    }
}

TEST(Subscriptions, ASubscriberThatReadsTooSlowlyIsToldWhatItLost)
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

TEST(Subscriptions, ASubscriberThatReadsNothingLosesItsSession)
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

TEST(Subscriptions, AFloodOfSessionsIsCountedAndNotTold)
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
    // The last ends may not have been seen yet: a request in a new session comes after them or counts them
    // later.
    *clock.us += 60'000'000;
    auto later = world.Connect();
    const std::string leftOut = Next(subscriber);
    ExpectValid(leftOut);
    EXPECT_THAT(leftOut, HasSubstr("<kind>sessions</kind>"));
    EXPECT_THAT(Next(subscriber), HasSubstr("<netconf-session-"));
}

}  // namespace
}  // namespace agent_tests
