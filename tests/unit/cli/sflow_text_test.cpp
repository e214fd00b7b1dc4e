// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sflow_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "cli/screens/sflow_problems.h"
#include "cli/screens/sflow_summary.h"
#include "cli/yang.h"

namespace {

using cli_test::FromJson;

constexpr std::size_t kWidth = 79;

constexpr const char* kState = R"({"switch-state:state":{"oam":{"sflow":{
    "manager":{"connected":true,"pid":4711,"session":"loaded","since":"2026-11-21T05:00:00.123456Z",
               "operations":"12","packet-source":"packet-socket","samples-per-second":"512","datagrams-per-second":"73","packet-source-reason":"no CAP_BPF",
               "added-direction":"egress","limitation":["no marks","no ethtool"]},
    "agent-address":"10.0.0.5",
    "collector":[{"name":"c1","address":"192.0.2.1","port":6343,"datagram-size":1400,"sending":true,
                  "packets-sent":"1234567","bytes-sent":"1728393800","flow-samples-sent":"8641969",
                  "counter-samples-sent":"4321","packets-lost":"0","errors":"0","last-packet-age":0},
                 {"name":"collector-two","address":"192.0.2.22","port":9,"datagram-size":9000,"sending":false,
                  "packets-sent":"0","bytes-sent":"0","flow-samples-sent":"0","counter-samples-sent":"0",
                  "packets-lost":"3","errors":"2","last-error":"send to 192.0.2.22:9: Connection refused",
                  "last-error-age":125,"problem":["refused"]}],
    "interface":[{"name":"eth1","sampling-rate":512,"sampling-rate-source":"own-setting",
                  "max-header-size":128,"polling-interval":20,"direction":"ingress",
                  "flow-collector":["c1","collector-two"],"counter-collector":["c1"],"problem":["interface-missing"]},
                 {"name":"gigabit-ethernet-1/1/1","sampling-rate":16777215,
                  "sampling-rate-source":"speed-class","max-header-size":16,"polling-interval":0,
                  "direction":"both","kernel-interface":"p1","ifindex":7,"admin-status":"up",
                  "oper-status":"up","packet-source":"packet-socket","packets-seen":"123456789","packets-sampled":"7","sampled-bytes":"4711",
                  "drops-buffer":"0","drops-no-collector":"0","last-sample-age":3,
                  "counters-sent":"12","last-counters-age":7300},
                 {"name":"gigabit-ethernet-1/1/2","sampling-rate":1000,"sampling-rate-source":"speed-class",
                  "max-header-size":128,"polling-interval":20,"direction":"ingress",
                  "flow-collector":["c1"],"kernel-interface":"p2","ifindex":8,"admin-status":"up",
                  "oper-status":"down","packets-seen":"5","packets-sampled":"1","sampled-bytes":"64","drops-buffer":"2",
                  "drops-no-collector":"3","last-sample-age":200000,"counters-sent":"0","problem":["interface-down"]},
                 {"name":"p3","sampling-rate":1,"max-header-size":128,"polling-interval":20,
                  "direction":"egress","kernel-interface":"p3","ifindex":9,"admin-status":"down",
                  "oper-status":"down"}],
    "problem":[{"subject":"agent","name":"agent","reason":"no-agent-address","severity":"broken","text":"there is no agent address"},
               {"subject":"collector","name":"collector-two","reason":"refused","severity":"broken",
                "text":"no program listens at 192.0.2.22:9; start the collector there, or correct its port"},
               {"subject":"interface","name":"eth1","reason":"interface-missing","severity":"broken",
                "text":"no kernel interface has that name, alternative name or alias; ip link set DEVICE alias eth1"},
               {"subject":"interface","name":"gigabit-ethernet-1/1/2","reason":"interface-down","severity":"idle",
                "text":"the kernel interface p2 has no link; look at the cable and the other end"}]}}}})";

void ExpectLines(const std::string& text, std::size_t width)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), width) << line;
}

TEST(SflowSummary, SaysOnOneScreenWhetherSamplingWorks)
{
    EXPECT_EQ(cli::SflowSummary(FromJson(kState).get(), nullptr, kWidth), R"(sFlow
  Processes   sflow-app is not connected, sflow-mgr is not connected
  Session     loaded, since 2026-11-21T05:00:00Z
  Agent       10.0.0.5
  Sampling    1 of 4 interfaces, by packet-socket
  Collectors  1 of 2 receiving
  Traffic     512 samples/s, 73 datagrams/s
  Problems    3 broken, 1 idle

Broken
  agent                    there is no agent address
  collector collector-two  no program listens at 192.0.2.22:9;
                           start the collector there, or correct its port
  interface eth1           no kernel interface has that name, alternative name
                           or alias; ip link set DEVICE alias eth1
)");
}

TEST(SflowSummary, HasAtMostTwentyLines)
{
    std::string problems;
    for (int i = 0; i < 40; ++i)
        problems += std::string(i == 0 ? "" : ",") + R"({"subject":"interface","name":"e)" +
                    std::to_string(i) + R"(","reason":"source-error","severity":"broken","text":"cause )" +
                    std::to_string(100 + i) + std::string(70, 'x') + " " + std::string(70, 'y') + R"("})";
    const cli::Tree tree =
        FromJson(R"({"switch-state:state":{"oam":{"sflow":{"problem":[)" + problems + "]}}}}");
    const std::string text = cli::SflowSummary(tree.get(), nullptr, kWidth);
    EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 20);
    EXPECT_THAT(text, testing::HasSubstr("100xxx"));
    EXPECT_THAT(text, testing::ContainsRegex("\n  and 3[0-9] more: show sflow problems\n$"));
}

TEST(SflowSummary, NamesTheProcessesThatAreMissingOrLate)
{
    EXPECT_THAT(cli::SflowSummary(nullptr, nullptr, kWidth),
                testing::HasSubstr("  Processes   sflow-app is not connected, sflow-mgr is not connected\n"));
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"system":{"process":[
        {"name":"sflow-app","pid":12,"health":"late"},{"name":"sflow-mgr","pid":13,"health":"not-awaited"}]}}})");
    EXPECT_THAT(cli::SflowSummary(nullptr, tree.get(), kWidth),
                testing::HasSubstr("  Processes   sflow-app 12 (late), sflow-mgr 13 (not waited for)\n"));
}

TEST(SflowText, ShowsInterfacesInNaturalOrderWithTheColumnsThatHaveRoom)
{
    const cli::Tree tree = FromJson(kState);
    EXPECT_EQ(cli::SflowText(tree.get(), "interfaces", kWidth), R"(Interfaces
  Name                    Link     Sampling       Samples  Condition
  eth1                    missing  1 in 512       -        interface-missing
  gigabit-ethernet-1/1/1  up       1 in 16777215  7        ok
  gigabit-ethernet-1/1/2  no link  1 in 1000      1        interface-down
  p3                      down     1 in 1         -        ok
)");
    EXPECT_EQ(cli::SflowText(tree.get(), "interfaces", 200), R"(Interfaces
  Name                    Link     Sampling       Polling  Seen       Samples  Last sample  Dropped  Unwanted  Counters  Kernel  Rate from    Direction  Header  Index  Condition
  eth1                    missing  1 in 512       20 s     -          -        -            -        -         -         -       own setting  ingress    128     -      interface-missing
  gigabit-ethernet-1/1/1  up       1 in 16777215  off      123456789  7        3 s ago      0        0         12        p1      speed class  both       16      7      ok
  gigabit-ethernet-1/1/2  no link  1 in 1000      20 s     5          1        2 d ago      2        3         0         p2      speed class  ingress    128     8      interface-down
  p3                      down     1 in 1         20 s     -          -        -            -        -         -         p3      -            egress     128     9      ok
)");
    EXPECT_EQ(cli::SflowText(tree.get(), "interfaces", 50), R"(Interfaces
  Name   Link     Sampling       Condition
  eth1   missing  1 in 512       interface-missing
  gigabit-ethernet-1/1/1
         up       1 in 16777215  ok
  gigabit-ethernet-1/1/2
         no link  1 in 1000      interface-down
  p3     down     1 in 1         ok
)");
    const cli::Tree mixed = FromJson(
        R"({"switch-state:state":{"oam":{"sflow":{"interface":[{"name":"1/1/10"},{"name":"1/1/2"}]}}}})");
    const std::string text = cli::SflowText(mixed.get(), "interfaces", kWidth);
    EXPECT_LT(text.find("1/1/2 "), text.find("1/1/10"));
}

TEST(SflowText, ShowsCollectors)
{
    EXPECT_EQ(cli::SflowText(FromJson(kState).get(), "collectors", kWidth), R"(Collectors
  Name           Address     Port  Datagrams  Samples  Lost  Condition
  c1             192.0.2.1   6343  1234567    8641969  0     ok
  collector-two  192.0.2.22  9     0          0        3     refused

Last errors of collectors
  collector-two  2 min ago: send to 192.0.2.22:9: Connection refused
)");
}

TEST(SflowText, ShowsTheAgentAndItsManager)
{
    EXPECT_EQ(cli::SflowText(FromJson(kState).get(), "agent", kWidth), R"(Agent
  Address  10.0.0.5

Manager
  Session       loaded, since 2026-11-21T05:00:00Z
  Process       4711
  Operations    12
  Sampling by   packet-socket
  Reason        no CAP_BPF
  Also sampled  egress
  Limitation    no marks
  Limitation    no ethtool
)");
}

TEST(SflowText, TellsAllThatIsKnownOfAnEntry)
{
    const cli::Tree tree = FromJson(kState);
    EXPECT_EQ(cli::SflowDetail(tree.get(), "interface", kWidth), R"(eth1
  Kernel       missing
  Sampling     1 in 512, rate from own setting, ingress, header of 128 bytes
  Sampled by   -
  Packets      - seen, - sampled (- bytes)
  Dropped      - for lack of room, - that no collector wants
  Samples to   c1 collector-two
  Polling      20 s
  Counters     - sent
  Counters to  c1
  Problem      broken: no kernel interface has that name, alternative name or
               alias; ip link set DEVICE alias eth1

gigabit-ethernet-1/1/1
  Kernel       p1, index 7, up
  Sampling     1 in 16777215, rate from speed class, both, header of 16 bytes
  Sampled by   packet-socket
  Packets      123456789 seen, 7 sampled (4711 bytes), the last 3 s ago
  Dropped      0 for lack of room, 0 that no collector wants
  Samples to   -
  Polling      off
  Counters     12 sent, the last 2 h ago
  Counters to  -

gigabit-ethernet-1/1/2
  Kernel       p2, index 8, no link
  Sampling     1 in 1000, rate from speed class, ingress, header of 128 bytes
  Sampled by   -
  Packets      5 seen, 1 sampled (64 bytes), the last 2 d ago
  Dropped      2 for lack of room, 3 that no collector wants
  Samples to   c1
  Polling      20 s
  Counters     0 sent
  Counters to  -
  Problem      idle: the kernel interface p2 has no link;
               look at the cable and the other end

p3
  Kernel       p3, index 9, down
  Sampling     1 in 1, rate from -, egress, header of 128 bytes
  Sampled by   -
  Packets      - seen, - sampled (- bytes)
  Dropped      - for lack of room, - that no collector wants
  Samples to   -
  Polling      20 s
  Counters     - sent
  Counters to  -
)");
    EXPECT_EQ(cli::SflowDetail(tree.get(), "collector", kWidth), R"(c1
  Address    192.0.2.1, port 6343, datagrams of at most 1400 bytes
  Datagrams  1234567 sent, 1728393800 bytes, the last just now
  Samples    8641969 of packets, 4321 of counters, - of discarded packets
  Lost       0 datagrams with - samples
  Errors     0

collector-two
  Address     192.0.2.22, port 9, datagrams of at most 9000 bytes
  Datagrams   0 sent, 0 bytes
  Samples     0 of packets, 0 of counters, - of discarded packets
  Lost        3 datagrams with - samples
  Errors      2
  Last error  2 min ago: send to 192.0.2.22:9: Connection refused
  Problem     broken: no program listens at 192.0.2.22:9;
              start the collector there, or correct its port
)");
    EXPECT_TRUE(cli::EntryNames(tree.get(), "interface").contains("p3"));
    EXPECT_FALSE(cli::EntryNames(tree.get(), "collector").contains("p3"));
    EXPECT_TRUE(cli::EntryNames(nullptr, "collector").empty());
}

TEST(SflowText, ShowsHowDatagramsAreSentWhereThatIsNotTheDefault)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"oam":{"sflow":{
        "manager":{"connected":true,"session":"loaded","since":"2026-11-21T05:00:00Z","pid":1,"operations":"2",
                   "packet-source":"none","discard-limit":50},
        "agent-address":"10.0.0.5","sub-agent":7,
        "collector":[
            {"name":"plain","address":"192.0.2.1","port":6343,"datagram-size":1400,"dscp":0,"discards":false},
            {"name":"marked","address":"192.0.2.1","port":6343,"datagram-size":1400,"dscp":46,"discards":false},
            {"name":"all","address":"192.0.2.1","port":6343,"datagram-size":1400,"source-address":"192.0.2.9",
             "dscp":0,"device":"vrf-management1","discards":true,"discards-sent":"12"}]}}}})");
    EXPECT_THAT(cli::SflowText(tree.get(), "agent", kWidth),
                testing::StartsWith("Agent\n  Address    10.0.0.5\n  Sub-agent  7\n"));
    const std::string collectors = cli::SflowText(tree.get(), "collectors", kWidth);
    EXPECT_THAT(collectors, testing::HasSubstr(R"(
Datagrams to collectors
  Name    From       Device or VRF    DSCP  Discards
  all     192.0.2.9  vrf-management1  0     12 sent
  marked  -          -                46    -
)"));
    EXPECT_THAT(cli::SflowText(tree.get(), "agent", kWidth),
                testing::HasSubstr("\n  Discards     at most 50 notifications a second\n"));
}

TEST(SflowText, ShowsWhatWasDroppedWhereAndWhy)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"oam":{"sflow":{
        "manager":{"discard-interfaces":"all"},
        "drops":[
            {"interface":"eth1","ifindex":7,"packets":"12","packets-not-told":"3","reason":[
                {"name":"NO_SOCKET","packets":"10","rate":"2","last-age":3,"code":3,"function":"udp_rcv"},
                {"name":"OTHERHOST","packets":"2","rate":"0","last-age":90}]},
            {"interface":"n/a","ifindex":0,"packets":"1","packets-not-told":"0"}]}}}})");
    const std::string text = R"(Dropped packets
  Interface  Reason     Packets  Rate  Last      Code  Function
  eth1       NO_SOCKET  10       2/s   3 s ago   3     udp_rcv
  eth1       OTHERHOST  2        0/s   90 s ago  -     -

Dropped packets by interface
  Interface  Index  Packets  Not told
  eth1       7      12       3
  n/a        0      1        0
)";
    EXPECT_EQ(cli::SflowText(tree.get(), "drops", kWidth), text);
}

TEST(SflowText, SaysWhyDropsAreNotLookedAt)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"oam":{"sflow":{"manager":{
        "discard-interfaces":"none","discard-interfaces-reason":"no collector wants notifications of them"}}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), "drops", kWidth),
              "Dropped packets\n  Not looked at  no collector wants notifications of them\n");
    EXPECT_EQ(cli::SflowText(nullptr, "drops", kWidth),
              "No sFlow state: the sFlow manager is not connected to the database.\n");
}

TEST(SflowText, FitsATerminal)
{
    const cli::Tree tree = FromJson(kState);
    for (const std::size_t width : {79U, 60U, 159U}) {
        for (const char* part : {"agent", "collectors", "interfaces", "problems"})
            ExpectLines(cli::SflowText(tree.get(), part, width), width);
        for (const char* list : {"interface", "collector"})
            ExpectLines(cli::SflowDetail(tree.get(), list, width), width);
        ExpectLines(cli::SflowSummary(tree.get(), nullptr, width), width);
    }
}

TEST(SflowText, ShowsOnePart)
{
    const cli::Tree tree =
        FromJson(R"({"switch-state:state":{"oam":{"sflow":{"agent-address":"10.0.0.5"}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), "agent", kWidth), "Agent\n  Address  10.0.0.5\n");
    EXPECT_EQ(cli::SflowText(nullptr, "collectors", kWidth), "Collectors\n  none\n");
    EXPECT_EQ(cli::SflowText(nullptr, "interfaces", kWidth), "Interfaces\n  none\n");
    EXPECT_EQ(cli::SflowText(nullptr, "agent", kWidth), "Agent\n  Address  -\n");
    EXPECT_EQ(cli::SflowDetail(nullptr, "interface", kWidth), "  none\n");
}

TEST(SflowProblems, StandUnderTheirSeverity)
{
    EXPECT_EQ(cli::SflowText(FromJson(kState).get(), "problems", kWidth), R"(Broken
  agent                    there is no agent address
  collector collector-two  no program listens at 192.0.2.22:9;
                           start the collector there, or correct its port
  interface eth1           no kernel interface has that name, alternative name
                           or alias; ip link set DEVICE alias eth1

Idle
  interface gigabit-ethernet-1/1/2  the kernel interface p2 has no link;
                                    look at the cable and the other end
)");
}

TEST(SflowProblems, OfOneCauseAreOneLine)
{
    std::string problems;
    for (const char* name : {"e1", "e10", "e11", "e2", "e3", "e4"})
        problems += R"({"subject":"interface","name":")" + std::string(name) +
                    R"(","reason":"interface-missing","severity":"broken","text":"no e1 here; rename it )" +
                    name + R"("},)";
    const cli::Tree tree =
        FromJson(R"({"switch-state:state":{"oam":{"sflow":{"problem":[)" + problems +
                 R"({"subject":"interface","name":"x","reason":"polling-off","severity":"off",
        "text":"set x"}]}}}})");
    // e1 has its own name twice, so its text is another one.
    EXPECT_EQ(cli::SflowText(tree.get(), "problems", kWidth), R"(Broken
  interface e1  no e1 here; rename it e1
  5 interfaces  no e1 here; rename it NAME; NAME: e2, e3, e4, e10 and 1 more

Off by configuration
  interface x  set x
)");
}

TEST(SflowProblems, AnswerWithTheExitStatus)
{
    const auto status = [](const std::string& content) {
        return cli::ProblemsStatus(
            FromJson(R"({"switch-state:state":{"oam":{"sflow":{)" + content + "}}}}").get());
    };
    const std::string problem =
        R"("problem":[{"subject":"agent","name":"agent","reason":"no-agent-address","severity":)";
    EXPECT_EQ(status(R"("manager":{"session":"loaded"})"), 0);
    EXPECT_EQ(status(problem + R"("idle"}])"), 0);
    EXPECT_EQ(status(problem + R"("off"}])"), 0);
    EXPECT_EQ(status(problem + R"("broken"}])"), 1);
    EXPECT_EQ(cli::ProblemsStatus(nullptr), 2);
}

TEST(SflowProblems, SaysThatNothingIsWrong)
{
    const cli::Tree tree =
        FromJson(R"({"switch-state:state":{"oam":{"sflow":{"manager":{"session":"loaded"}}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), "problems", kWidth), "Everything flows.\n");
    EXPECT_EQ(cli::SflowText(nullptr, "problems", kWidth),
              "No sFlow state: the sFlow manager is not connected to the database.\n");
}

TEST(SflowProblems, BreaksNoWordAndEscapesWhatWouldMoveTheCursor)
{
    const std::string word(120, 'x');
    const cli::Tree tree =
        FromJson(R"({"switch-state:state":{"oam":{"sflow":{"problem":[
        {"subject":"interface","name":")" +
                 std::string(64, 'n') + R"(","reason":"refused","text":"a )" + word + R"( b\u0009c"}]}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), "problems", kWidth),
              "Broken\n  interface " + std::string(64, 'n') + "\n    a\n    " + word + "\n    b\\tc\n");
}

}  // namespace
