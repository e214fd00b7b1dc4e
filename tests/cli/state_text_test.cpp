#include "cli/state_text.h"

#include <gtest/gtest.h>

#include "cli/text_table.h"
#include "cli/yang.h"

namespace {

using cli_test::FromJson;

cli::Tree SflowState()
{
    return FromJson(R"({"switch-state:state":{"oam":{"sflow":{
        "manager":{"connected":true,"pid":4711,"session":"loaded","since":"2026-11-21T05:00:00.123456Z","operations":"12"},
        "agent-address":"10.0.0.5",
        "collector":[{"name":"c1","address":"192.0.2.1","port":6343,"datagram-size":1400},
                     {"name":"collector-two","address":"192.0.2.22","port":9,"datagram-size":9000}],
        "interface":[{"name":"eth1","sampling-rate":512,"max-header-size":128,"polling-interval":20,
                      "direction":"ingress","flow-collector":["c1","collector-two"],"counter-collector":["c1"]},
                     {"name":"gigabit-ethernet-1/1/1","sampling-rate":16777215,"max-header-size":16,
                      "polling-interval":0,"direction":"both"}]}}}})");
}

TEST(SflowText, ShowsEverythingInAlignedSections)
{
    EXPECT_EQ(cli::SflowText(SflowState().get(), ""),
              R"(Manager
  Session     loaded, since 2026-11-21T05:00:00Z
  Process     4711
  Operations  12

Agent
  Address  10.0.0.5

Collectors
  Name           Address     Port  Datagram size
  c1             192.0.2.1   6343  1400
  collector-two  192.0.2.22  9     9000

Interfaces
  Name                    Sampling       Header  Polling  Direction  Packet samples to  Counters to
  eth1                    1 in 512       128     20 s     ingress    c1 collector-two   c1
  gigabit-ethernet-1/1/1  1 in 16777215  16      off      both       -                  -
)");
}

TEST(SflowText, ShowsOnePart)
{
    EXPECT_EQ(cli::SflowText(SflowState().get(), "agent"), "Agent\n  Address  10.0.0.5\n");
    EXPECT_EQ(cli::SflowText(nullptr, "collectors"), "Collectors\n  none\n");
    EXPECT_EQ(cli::SflowText(nullptr, "interfaces"), "Interfaces\n  none\n");
    EXPECT_EQ(cli::SflowText(nullptr, "agent"), "Agent\n  Address  -\n");
}

TEST(SflowText, SaysThatThereIsNoManagerOrNoSession)
{
    EXPECT_EQ(cli::SflowText(nullptr, ""),
              "No sFlow state: the sFlow manager is not connected to the database.\n");
    const cli::Tree tree = FromJson(
        R"({"switch-state:state":{"oam":{"sflow":{"manager":{"connected":false,"pid":1,"session":"none","journal":"/j"}}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), ""),
              R"(Manager
  Session     none: the configuration daemon is not connected
  Process     1
  Operations  -
  Journal     /j

Agent
  Address  -

Collectors
  none

Interfaces
  none
)");
}

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
    EXPECT_EQ(cli::Printable("a\nb\tc\x1b[1m\x7f"), "a\\nb\\tc\\x1b[1m\\x7f");
}

}  // namespace
