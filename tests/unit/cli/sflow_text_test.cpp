// SPDX-License-Identifier: Apache-2.0
#include "cli/state_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "cli/yang.h"

namespace {

using cli_test::FromJson;

constexpr const char* kState = R"({"switch-state:state":{"oam":{"sflow":{
    "manager":{"connected":true,"pid":4711,"session":"loaded","since":"2026-11-21T05:00:00.123456Z",
               "operations":"12","packet-source":"packet-socket","packet-source-reason":"no CAP_BPF",
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
                  "flow-collector":["c1","collector-two"],"counter-collector":["c1"]},
                 {"name":"gigabit-ethernet-1/1/1","sampling-rate":16777215,
                  "sampling-rate-source":"speed-class","max-header-size":16,"polling-interval":0,
                  "direction":"both","kernel-interface":"p1","ifindex":7,"admin-status":"up",
                  "oper-status":"up","packets-seen":"123456789","packets-sampled":"7",
                  "drops-buffer":"0","drops-no-collector":"0","last-sample-age":3,
                  "counters-sent":"12","last-counters-age":7300},
                 {"name":"gigabit-ethernet-1/1/2","sampling-rate":1000,"sampling-rate-source":"speed-class",
                  "max-header-size":128,"polling-interval":20,"direction":"ingress",
                  "flow-collector":["c1"],"kernel-interface":"p2","ifindex":8,"admin-status":"up",
                  "oper-status":"down","packets-seen":"5","packets-sampled":"1","drops-buffer":"2",
                  "drops-no-collector":"3","last-sample-age":200000,"counters-sent":"0"},
                 {"name":"p3","sampling-rate":1,"max-header-size":128,"polling-interval":20,
                  "direction":"egress","kernel-interface":"p3","ifindex":9,"admin-status":"down",
                  "oper-status":"down"}],
    "problem":[{"subject":"agent","name":"agent","reason":"no-agent-address","text":"there is no agent address"},
               {"subject":"collector","name":"collector-two","reason":"refused",
                "text":"no program listens at 192.0.2.22:9; start the collector there, or correct its port"},
               {"subject":"interface","name":"eth1","reason":"interface-missing",
                "text":"no kernel interface has that name, alternative name or alias; ip link set DEVICE alias eth1"},
               {"subject":"interface","name":"gigabit-ethernet-1/1/2","reason":"interface-down",
                "text":"the kernel interface p2 has no link; look at the cable and the other end"}]}}}})";

TEST(SflowText, ShowsEverythingInAlignedSections)
{
    EXPECT_EQ(cli::SflowText(FromJson(kState).get(), ""), R"(Manager
  Session       loaded, since 2026-11-21T05:00:00Z
  Process       4711
  Operations    12
  Sampling by   packet-socket
  Reason        no CAP_BPF
  Also sampled  egress
  Limitation    no marks
  Limitation    no ethtool

Agent
  Address  10.0.0.5

Collectors
  Name           Address     Port  Datagram size
  c1             192.0.2.1   6343  1400
  collector-two  192.0.2.22  9     9000

Sent to collectors
  Name           Datagrams  Bytes       Packet samples  Counter samples  Lost  Errors  Last datagram
  c1             1234567    1728393800  8641969         4321             0     0       just now
  collector-two  0          0           0               0                3     2       -

Last errors of collectors
  Name           When       Error
  collector-two  2 min ago  send to 192.0.2.22:9: Connection refused

Interfaces
  Name                    Kernel  Index  Sampling       Rate from    Header  Polling  Direction
  eth1                    -       -      1 in 512       own setting  128     20 s     ingress
  gigabit-ethernet-1/1/1  p1      7      1 in 16777215  speed class  16      off      both
  gigabit-ethernet-1/1/2  p2      8      1 in 1000      speed class  128     20 s     ingress
  p3                      p3      9      1 in 1         -            128     20 s     egress

Packets of interfaces
  Name                    Link     Packets seen  Samples  Dropped  Unwanted  Last sample
  eth1                    missing  -             -        -        -         -
  gigabit-ethernet-1/1/1  up       123456789     7        0        0         3 s ago
  gigabit-ethernet-1/1/2  no link  5             1        2        3         2 d ago
  p3                      down     -             -        -        -         -

Collectors of interfaces
  Name                    Counters sent  Last sent  Counters to  Packet samples to
  eth1                    -              -          c1           c1 collector-two
  gigabit-ethernet-1/1/1  12             2 h ago    -            -
  gigabit-ethernet-1/1/2  0              -          -            c1
  p3                      -              -          -            -

Not flowing
  agent                             there is no agent address
  collector collector-two           no program listens at 192.0.2.22:9;
                                    start the collector there, or correct its port
  interface eth1                    no kernel interface has that name, alternative name or alias;
                                    ip link set DEVICE alias eth1
  interface gigabit-ethernet-1/1/2  the kernel interface p2 has no link;
                                    look at the cable and the other end
)");
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
    EXPECT_EQ(cli::SflowText(tree.get(), "agent"), "Agent\n  Address    10.0.0.5\n  Sub-agent  7\n");
    const std::string collectors = cli::SflowText(tree.get(), "collectors");
    EXPECT_THAT(collectors, testing::HasSubstr(R"(
Datagrams to collectors
  Name    From       Device or VRF    DSCP  Discards
  marked  -          -                46    -
  all     192.0.2.9  vrf-management1  0     12 sent
)"));
    EXPECT_THAT(cli::SflowText(tree.get(), ""),
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
    EXPECT_EQ(cli::SflowText(tree.get(), "drops"), text);
    EXPECT_THAT(cli::SflowText(tree.get(), ""), testing::HasSubstr("\n" + text));
}

TEST(SflowText, SaysWhyDropsAreNotLookedAt)
{
    const cli::Tree tree = FromJson(R"({"switch-state:state":{"oam":{"sflow":{"manager":{
        "discard-interfaces":"none","discard-interfaces-reason":"no collector wants notifications of them"}}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), "drops"),
              "Dropped packets\n  not looked at: no collector wants notifications of them\n");
    EXPECT_EQ(cli::SflowText(nullptr, "drops"),
              "No sFlow state: the sFlow manager is not connected to the database.\n");
}

TEST(SflowText, FitsATerminal)
{
    std::istringstream text(cli::SflowText(FromJson(kState).get(), ""));
    for (std::string line; std::getline(text, line);) EXPECT_LE(line.size(), 100U) << line;
}

TEST(SflowText, ShowsOnePart)
{
    const cli::Tree tree =
        FromJson(R"({"switch-state:state":{"oam":{"sflow":{"agent-address":"10.0.0.5"}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), "agent"), "Agent\n  Address  10.0.0.5\n");
    EXPECT_EQ(cli::SflowText(nullptr, "collectors"), "Collectors\n  none\n");
    EXPECT_EQ(cli::SflowText(nullptr, "interfaces"), "Interfaces\n  none\n");
    EXPECT_EQ(cli::SflowText(nullptr, "agent"), "Agent\n  Address  -\n");
}

TEST(SflowText, SaysThatNothingIsWrong)
{
    const cli::Tree tree =
        FromJson(R"({"switch-state:state":{"oam":{"sflow":{"manager":{"session":"loaded"}}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), "problems"), "Not flowing\n  none\n");
}

TEST(SflowText, BreaksNoWordAndEscapesWhatWouldMoveTheCursor)
{
    const std::string word(120, 'x');
    const cli::Tree tree =
        FromJson(R"({"switch-state:state":{"oam":{"sflow":{"problem":[
        {"subject":"interface","name":")" +
                 std::string(64, 'n') + R"(","reason":"refused","text":"a )" + word + R"( b\u0009c"}]}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), "problems"), "Not flowing\n  interface " + std::string(64, 'n') +
                                                          "  a\n" + std::string(78, ' ') + word + "\n" +
                                                          std::string(78, ' ') + "b\\tc\n");
}

TEST(SflowText, SaysThatThereIsNoManagerOrNoSession)
{
    for (const char* part : {"", "problems"})
        EXPECT_EQ(cli::SflowText(nullptr, part),
                  "No sFlow state: the sFlow manager is not connected to the database.\n");
    const cli::Tree tree = FromJson(
        R"({"switch-state:state":{"oam":{"sflow":{"manager":{"connected":false,"pid":1,"session":"none","journal":"/j"}}}}})");
    EXPECT_EQ(cli::SflowText(tree.get(), ""),
              R"(Manager
  Session      none: the configuration daemon is not connected
  Process      1
  Operations   -
  Journal      /j
  Sampling by  -

Agent
  Address  -

Collectors
  none

Interfaces
  none

Not flowing
  none
)");
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

}  // namespace
