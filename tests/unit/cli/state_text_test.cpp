// SPDX-License-Identifier: Apache-2.0
#include "cli/state_text.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "base/version.h"
#include "cli/text_table.h"
#include "cli/yang.h"

namespace {

using cli_test::FromJson;

TEST(ProcessesText, IsOneLineAProcess)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"system":{"process":[
        {"name":"sflow-app","pid":10,"connected-since":"2026-11-21T05:00:00Z","role":"active","state":"ready",
         "subscription":["/config/oam/sflow","/config/interface/mgmt"],"callpoint":["sflow-set-sampling-rate"]},
        {"name":"sflow-mgr","pid":9,"connected-since":"2026-11-21T04:59:59Z","role":"unknown","state":"ready"}]}}})");
    EXPECT_EQ(cli::ProcessesText(tree.get()),
              "Name       Process  State  Role     Connected since       Callpoints               "
              "Subscriptions\n"
              "sflow-app  10       ready  active   2026-11-21T05:00:00Z  sflow-set-sampling-rate  "
              "/config/oam/sflow "
              "/config/interface/mgmt\n"
              "sflow-mgr  9        ready  unknown  2026-11-21T04:59:59Z  -                        -\n");
    EXPECT_EQ(cli::ProcessesText(nullptr), "No process is connected to the database.\n");
}

TEST(VersionsText, HasTheShellTheDatabaseAndItsProcesses)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"system":{"version":"1.2","process":[
        {"name":"sflow-app","pid":10,"version":"1.3"},{"name":"sflow-mgr","pid":9}]}}})");
    const std::string own = "Program    Version\nswcli      " + std::string(base::Version()) + "\n";
    EXPECT_EQ(cli::VersionsText(tree.get()), own + "cdbd       1.2\nsflow-app  1.3\nsflow-mgr  -\n");
}

TEST(FaultsText, KeepsAFaultOnOneLine)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"system":{"fault":[
        {"number":"7","time":"2026-11-21T05:00:00Z","process":"sflow-app","pid":10,"kind":1,"function":"Run",
         "file":"src/daemon/sflow_app","line":87,"text":"Exception caught!\n'x'.\n"},
        {"number":"8","time":"2026-11-21T05:00:01Z","process":"sflow-app","pid":10,"kind":0,"function":"Run",
         "file":"f","line":1,"text":""}]}}})");
    EXPECT_EQ(
        cli::FaultsText(tree.get()),
        "Number  Time                  Process        Kind         Reported by                    Text\n"
        "7       2026-11-21T05:00:00Z  sflow-app[10]  1 failure    Run (src/daemon/sflow_app:87)  "
        "Exception caught!\\n'x'.\\n\n"
        "8       2026-11-21T05:00:01Z  sflow-app[10]  0 exception  Run (f:1)\n");
    EXPECT_EQ(cli::FaultsText(nullptr), "No fault was reported.\n");
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

}  // namespace
