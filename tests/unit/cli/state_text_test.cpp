// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/state_text.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "base/text.h"
#include "base/version.h"
#include "cli/screens/fact_list.h"
#include "cli/screens/text_table.h"
#include "cli/screens/text_width.h"
#include "cli/yang.h"

namespace {

using cli_test::FromJson;

TEST(ProcessesText, ShowsHealthTimesAndUses)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"system":{"process":[
        {"name":"sflow-app","pid":4194303,"connected-since":"2026-11-21T05:00:00Z","role":"standby","state":"ready",
         "health":"ok","missed-commits":"0","last-acknowledgement":"2026-11-21T05:01:00Z",
         "subscription":["/config/oam/sflow","/config/interface/mgmt"],"callpoint":["sflow-set-sampling-rate"]},
        {"name":"sflow-mgr","pid":9,"role":"unknown","state":"disconnected","health":"not-awaited",
         "health-since":"2026-11-21T04:59:59Z","missed-commits":"12"},
        {"name":"x","pid":10,"connected-since":"2026-11-21T05:00:00Z","role":"unknown","state":"applying",
         "health":"late","health-since":"2026-11-21T05:00:01Z","missed-commits":"1"},
        {"name":"y","pid":1,"connected-since":"2026-11-21T05:00:00Z","role":"unknown","state":"ready"}]}}})");
    const std::string text = cli::ProcessesText(tree.get(), 79);
    EXPECT_EQ(text,
              "Name       Process  State           Role     Missed  Since\n"
              "sflow-app  4194303  ready           standby  0       2026-11-21T05:00:00Z\n"
              "sflow-mgr  9        not waited for  unknown  12      2026-11-21T04:59:59Z\n"
              "x          10       late            unknown  1       2026-11-21T05:00:01Z\n"
              "y          1        ready           unknown  -       2026-11-21T05:00:00Z\n"
              "\n"
              "Name       Process  Connected since       Last acknowledgement\n"
              "sflow-app  4194303  2026-11-21T05:00:00Z  2026-11-21T05:01:00Z\n"
              "sflow-mgr  9        -                     -\n"
              "x          10       2026-11-21T05:00:00Z  -\n"
              "y          1        2026-11-21T05:00:00Z  -\n"
              "\n"
              "Name       Process  Subscription or callpoint\n"
              "sflow-app  4194303  /config/oam/sflow\n"
              "sflow-app  4194303  /config/interface/mgmt\n"
              "sflow-app  4194303  sflow-set-sampling-rate\n");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 79U) << line;
    EXPECT_EQ(cli::ProcessesText(nullptr, 79), "No process is connected to the database.\n");
}

TEST(ProcessesText, FitsWhereANameIsLong)
{
    const std::string name(64, 'n');
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"system":{"process":[{"name":")" + name +
                                    R"(","pid":12,"connected-since":"2026-11-21T05:00:00Z","role":"standby",
        "state":"ready","missed-commits":"0","subscription":["/config/oam/sflow"]}]}}})");
    std::istringstream lines(cli::ProcessesText(tree.get(), 79));
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 79U) << line;
}

TEST(ProcessesText, BeginsWithTheNodesRole)
{
    const auto shown = [](const std::string& role) {
        return cli::ProcessesText(FromJson(R"({"switch-state:state":{"system":{)" + role + "}}}").get(), 79);
    };
    EXPECT_EQ(shown(R"("role":"standby","role-since":"2026-11-21T05:00:00.123456Z","role-by":"keepalived")"),
              "This node is standby since 2026-11-21T05:00:00Z.\n"
              "The role was asked for by keepalived.\n\n"
              "No process is connected to the database.\n");
    EXPECT_EQ(shown(R"("role":"unknown")"), "No process is connected to the database.\n");
}

TEST(AgeText, IsInTheUnitThatTellsEnough)
{
    const struct {
        std::uint64_t seconds;
        const char* text;
    } rows[] = {{0, "just now"},      {1, "1 s ago"},        {119, "119 s ago"},
                {120, "2 min ago"},   {7199, "119 min ago"}, {7200, "2 h ago"},
                {172799, "47 h ago"}, {172800, "2 d ago"},   {4294967295, "49710 d ago"}};
    for (const auto& row : rows) EXPECT_EQ(cli::AgeText(row.seconds), row.text);
}

TEST(VersionsText, HasTheShellTheDatabaseAndItsProcesses)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"system":{"version":"1.2","process":[
        {"name":"sflow-app","pid":10,"version":"1.3"},{"name":"sflow-mgr","pid":9}]}}})");
    const std::string own = "Program    Version\nswcli      " + std::string(base::Version()) + "\n";
    EXPECT_EQ(cli::VersionsText(tree.get()), own + "cdbd       1.2\nsflow-app  1.3\nsflow-mgr  -\n");
}

TEST(FaultsText, BreaksNoLineInAFaultsOwnText)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"system":{"fault":[
        {"number":"7","time":"2026-11-21T05:00:00Z","process":"sflow-app","pid":10,"kind":1,"function":"Run",
         "file":"src/daemon/sflow_app","line":87,"text":"Exception caught!\n'x'.\n"},
        {"number":"8","time":"2026-11-21T05:00:01Z","process":"sflow-app","pid":10,"kind":0,"function":"Run",
         "file":"f","line":1,"text":""}]}}})");
    EXPECT_EQ(cli::FaultsText(tree.get(), 79), R"(7  2026-11-21T05:00:00Z  sflow-app[10]
  failure in Run (src/daemon/sflow_app:87): Exception caught!\n'x'.\n
8  2026-11-21T05:00:01Z  sflow-app[10]
  exception in Run (f:1)
)");
    EXPECT_EQ(cli::FaultsText(tree.get(), 159).substr(0, 60),
              "7  2026-11-21T05:00:00Z  sflow-app[10]  failure in Run (src/");
    EXPECT_EQ(cli::FaultsText(nullptr, 79), "No fault was reported.\n");
}

TEST(TextTable, CountsCharactersNotBytes)
{
    cli::TextTable table({"Ä", "B"});
    table.Add({"öäü", "x"});
    table.Add({"a", "y"});
    EXPECT_EQ(table.Text(1), " Ä    B\n öäü  x\n a    y\n");
}

TEST(Printable, EscapesWhatWouldMoveTheCursor)
{
    EXPECT_EQ(base::Printable("a\nb\tc\x1b[1m\x7f"), "a\\nb\\tc\\x1b[1m\\x7f");
}

TEST(TextTable, LeavesOutTheColumnsOfTheHighestRankWhereThereIsNoRoom)
{
    cli::TextTable table({"Name", {"Second", 2}, {"First", 1}, "Last"});
    table.Add({"a", "b", "c", "d"});
    EXPECT_EQ(table.Text(0, 27), "Name  Second  First  Last\na     b       c      d\n");
    EXPECT_EQ(table.Text(2, 27), "  Name  Second  First  Last\n  a     b       c      d\n");
    EXPECT_EQ(table.Text(2, 26), "  Name  First  Last\n  a     c      d\n");
    EXPECT_EQ(table.Text(0, 5), "Name\n    Last\na   d\n");
}

TEST(TextTable, CutsTextsBeforeItLeavesOutColumns)
{
    cli::TextTable table({"Name", {"Rank", 1}, {"Text", 0, true}});
    table.Add({"name", "rank", "as many as thirty characters.."});
    EXPECT_EQ(table.Text(0, 42), "Name  Rank  Text\nname  rank  as many as thirty characters..\n");
    EXPECT_EQ(table.Text(0, 41), "Name  Rank  Text\nname  rank  as many as thirty characte...\n");
    EXPECT_EQ(table.Text(0, 32), "Name  Rank  Text\nname  rank  as many as thirty...\n");
    EXPECT_EQ(table.Text(0, 31), "Name  Text\nname  as many as thirty char...\n");
}

TEST(Cut, CountsCharactersAndNeverDividesOne)
{
    EXPECT_EQ(cli::Cut("ÄÖÜäöü", 6), "ÄÖÜäöü");
    EXPECT_EQ(cli::Cut("ÄÖÜäöü", 5), "ÄÖ...");
    EXPECT_EQ(cli::Cut("ÄÖÜäöü", 0), "");
}

TEST(FactList, BreaksTextsAtRemediesAndBlanks)
{
    cli::FactList facts;
    facts.Add("One", "a short text");
    facts.Add("Three", "0123456789 0123456789 0123456789 0123456789; do this or that");
    facts.Add("Four", "0123456789 0123456789 0123456789 0123456789 0123456789");
    EXPECT_EQ(facts.Text(2, 54), R"(  One    a short text
  Three  0123456789 0123456789 0123456789 0123456789;
         do this or that
  Four   0123456789 0123456789 0123456789 0123456789
         0123456789
)");
}

TEST(FactList, PutsTextsBelowLabelsThatAreTooLong)
{
    cli::FactList facts;
    facts.Add("a label of which there are twenty", "text\n");
    EXPECT_EQ(facts.Text(2, 60), "  a label of which there are twenty\n    text\\n\n");
    EXPECT_EQ(facts.Text(2, 79), "  a label of which there are twenty  text\\n\n");
}

}  // namespace
