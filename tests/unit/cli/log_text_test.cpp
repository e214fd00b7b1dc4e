// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/log_text.h"

#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "cli/data/data_tree.h"
#include "netconf/client.h"
#include "yang.h"

namespace {

using cli_test::Yang;

constexpr const char* kNamespace = "urn:switch:yang:switch-system";

std::string Entry(const std::string& time, const std::string& process, const std::string& severity,
                  const std::string& text)
{
    return std::string("<entry xmlns=\"") + kNamespace + "\"><time>" + time + "</time><process>" + process +
           "</process><severity>" + severity + "</severity><text>" + text + "</text></entry>";
}

std::string TextOf(const std::string& entries, const std::string& process = {})
{
    auto reply = netconf::ParseReply(
        std::string("<rpc-reply xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" message-id=\"1\">") +
        entries + "</rpc-reply>");
    EXPECT_TRUE(reply);
    return cli::LogText(cli::ParseOutput(Yang(), *reply, "get-log").get(), process);
}

class LogText : public testing::Test {
protected:
    LogText()
    {
        Yang();                      // sets the zone of the other tests
        ::setenv("TZ", "XYZ-2", 1);  // two hours east
        ::tzset();
    }
    ~LogText() override
    {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
};

TEST_F(LogText, HasTheTimeOfTheZoneAndEachTextWhole)
{
    const std::string longText(300, 'x');
    EXPECT_EQ(TextOf(Entry("2026-11-21T23:20:11.123456Z", "cdbd", "notice", "commit 1") +
                     Entry("2026-11-21T23:20:12.000999Z", "sflow-mgr", "error", longText)),
              "Time (XYZ)           Process    Severity  Text\n"
              "Nov 22 01:20:11.123  cdbd       notice    commit 1\n"
              "Nov 22 01:20:12.000  sflow-mgr  error     " +
                  longText + "\n");
}

TEST_F(LogText, SaysThatThereIsNone)
{
    EXPECT_EQ(TextOf("<ok/>"), "There is no line in the log since the database was started.\n");
    EXPECT_EQ(TextOf("<ok/>", "sflow-app"),
              "There is no line of sflow-app in the log since the database was started.\n");
}

}  // namespace
