// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "cli/data/error.h"
#include "cli/yang.h"

namespace {

using cli::EventLine;
using cli::Format;
using cli::ReplayStart;
using testing::HasSubstr;

constexpr std::int64_t kNow = 1'795'231'211;  // 2026-11-21T03:20:11Z

std::string Notification(const std::string& event)
{
    return "<notification xmlns=\"urn:ietf:params:xml:ns:netconf:notification:1.0\">"
           "<eventTime>2026-11-21T03:20:11.5Z</eventTime>" +
           event + "</notification>";
}

std::string Standard(const std::string& name, const std::string& content)
{
    return Notification("<" + name + " xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-notifications\">" +
                        content + "</" + name + ">");
}

std::string Own(const std::string& name, const std::string& content)
{
    return Notification("<" + name + " xmlns=\"urn:switch:yang:switch-events\">" + content + "</" + name +
                        ">");
}

std::string Line(const std::string& xml, Format format = Format::kText)
{
    return EventLine(cli_test::Yang(), xml, format);
}

const std::string kChange = Standard(
    "netconf-config-change",
    "<changed-by><username>admin</username><session-id>3</session-id></changed-by><datastore>running</"
    "datastore>"
    "<edit><target xmlns:c=\"urn:switch:yang:switch-config\" xmlns:s=\"urn:switch:yang:switch-oam-sflow\">"
    "/c:config/s:oam/s:sflow/s:collector[s:name='c1']</target><operation>create</operation></edit>"
    "<commit xmlns=\"urn:switch:yang:switch-events\">12</commit>"
    "<comment xmlns=\"urn:switch:yang:switch-events\">why</comment>"
    "<edits-left-out xmlns=\"urn:switch:yang:switch-events\">950</edits-left-out>");

TEST(Monitor, ShowsAnEventInOneLine)
{
    EXPECT_EQ(
        "2026-11-21T03:20:11.5Z  netconf-config-change  commit 12 by admin (session 3), \"why\": create oam "
        "sflow "
        "collector c1; and 950 more",
        Line(kChange));
    EXPECT_EQ("2026-11-21T03:20:11.5Z  netconf-session-end  admin (session 3): killed by session 4",
              Line(Standard("netconf-session-end",
                            "<username>admin</username><session-id>3</session-id><killed-by>4</killed-by>"
                            "<termination-reason>killed</termination-reason>")));
    EXPECT_EQ("2026-11-21T03:20:11.5Z  process-lost  process sflow-mgr, pid 7, reason gone",
              Line(Own("process-lost", "<process>sflow-mgr</process><pid>7</pid><reason>gone</reason>")));
}

TEST(Monitor, ACommitOfTheDatabaseItselfHasNoUser)
{
    EXPECT_THAT(Line(Standard("netconf-config-change",
                              "<changed-by><server/></changed-by>"
                              "<commit xmlns=\"urn:switch:yang:switch-events\">12</commit>")),
                HasSubstr("commit 12 by the database itself"));
}

TEST(Monitor, AnEventStaysOneLineWhateverItHolds)
{
    const std::string line =
        Line(Own("process-lost", "<process>a\nb</process><pid>7</pid><reason>one\n\ttwo</reason>"));
    EXPECT_EQ(std::string::npos, line.find('\n'));
    EXPECT_THAT(line, HasSubstr("one\\n\\ttwo"));
}

TEST(Monitor, TheEndOfAReplayIsNoEventForPeople)
{
    const std::string xml =
        Notification("<replayComplete xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>");
    EXPECT_EQ("", Line(xml));
    EXPECT_THAT(Line(xml, Format::kJson), HasSubstr("nc-notifications:replayComplete"));
}

TEST(Monitor, ShowsAnEventAsOneObject)
{
    const auto event = nlohmann::json::parse(Line(kChange, Format::kJson));
    EXPECT_EQ("2026-11-21T03:20:11.5Z", event["eventTime"]);
    EXPECT_EQ("12", event["ietf-netconf-notifications:netconf-config-change"]["switch-events:commit"]);
    EXPECT_EQ(kChange, Line(kChange, Format::kXml));
}

TEST(Monitor, RefusesWhatIsNoEvent)
{
    EXPECT_THROW(Line("<rpc-reply xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\"/>"), cli::Error);
    EXPECT_THROW(Line(Notification("<nothing xmlns=\"urn:switch:yang:switch-events\"/>")), cli::Error);
    EXPECT_THROW(Line(Notification("<a xmlns=\"\"/>")), cli::Error);
    EXPECT_THROW(Line("<notification"), cli::Error);
}

TEST(Monitor, AReplayBeginsAtATimeOrSoLongAgo)
{
    EXPECT_EQ("2026-11-21T03:19:41Z", ReplayStart("30s", kNow));
    EXPECT_EQ("2026-11-21T03:10:11Z", ReplayStart("10m", kNow));
    EXPECT_EQ("2026-11-21T01:20:11Z", ReplayStart("2h", kNow));
    EXPECT_EQ("2026-11-20T03:20:11Z", ReplayStart("1d", kNow));
    EXPECT_EQ("2026-11-21T03:20:11+01:00", ReplayStart("2026-11-21T03:20:11+01:00", kNow));
    for (const char* wrong :
         {"", "10", "m", "-1m", "10x", "10mm", "99999999999999999999s", "9223372036854775807d"})
        EXPECT_THROW(static_cast<void>(ReplayStart(wrong, kNow)), cli::Error) << wrong;
}

}  // namespace
