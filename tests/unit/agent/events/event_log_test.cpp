// SPDX-License-Identifier: Apache-2.0
#include "agent/events/event_log.h"

#include <gtest/gtest.h>

namespace agent_tests {
namespace {

using agent::EventElement;
using agent::EventLog;
using agent::MakeEvent;

constexpr std::string_view kLogNs = "urn:example:events";

agent::EventPtr At(std::int64_t timeUs, std::size_t textBytes = 1)
{
    return MakeEvent(timeUs, nullptr, EventElement{kLogNs, "event", std::string(textBytes, 'x')});
}

TEST(EventLog, NumbersEventsInTheirOrder)
{
    EventLog log({}, 100);
    EXPECT_EQ(100, log.CreatedUs());
    EXPECT_EQ(1U, log.First());
    EXPECT_EQ(1U, log.End());
    log.Add(At(101));
    log.Add(At(102));
    EXPECT_EQ(3U, log.End());
    EXPECT_EQ(101, log.At(1)->timeUs);
    EXPECT_EQ(102, log.At(2)->timeUs);
    EXPECT_FALSE(log.AgedUs());
}

TEST(EventLog, DropsTheOldestBeyondItsNumber)
{
    EventLog log({3, std::size_t{1} << 20}, 0);
    for (int i = 1; i <= 10; ++i) log.Add(At(i));
    EXPECT_EQ(8U, log.First());
    EXPECT_EQ(11U, log.End());
    EXPECT_EQ(8, log.At(8)->timeUs);
    EXPECT_EQ(7, log.AgedUs());
}

TEST(EventLog, DropsTheOldestBeyondItsMemoryAndKeepsTheNewest)
{
    EventLog log({1000, 100'000}, 0);
    for (int i = 1; i <= 100; ++i) log.Add(At(i, 5000));
    EXPECT_LE(log.Bytes(), 100'000U);
    EXPECT_GT(log.End() - log.First(), 5U);
    EXPECT_LT(log.End() - log.First(), 20U);
    log.Add(At(101, 1'000'000));
    EXPECT_EQ(log.First() + 1, log.End());
    EXPECT_EQ(101, log.At(log.First())->timeUs);
}

TEST(EventText, DeclaresNamespacesWhereTheyChangeAndEscapes)
{
    EventElement event{kLogNs, "event"};
    event.children.push_back({kLogNs, "same", "a<b&c"});
    event.children.push_back({"urn:example:other", "other", "1"});
    EventElement path{kLogNs, "path", "/p:x"};
    path.prefixes = {{"p", "urn:example:paths"}};
    event.children.push_back(path);
    EXPECT_EQ(
        "<notification xmlns=\"urn:ietf:params:xml:ns:netconf:notification:1.0\">"
        "<eventTime>2026-11-21T03:20:11.000042Z</eventTime>"
        "<event xmlns=\"urn:example:events\"><same>a&lt;b&amp;c</same>"
        "<other xmlns=\"urn:example:other\">1</other>"
        "<path xmlns:p=\"urn:example:paths\">/p:x</path></event></notification>",
        MakeEvent(1'795'231'211'000'042, nullptr, event)->text);
}

}  // namespace
}  // namespace agent_tests
