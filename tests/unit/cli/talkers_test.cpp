// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/talkers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/data/data_tree.h"
#include "cli/yang.h"
#include "netconf/client.h"

namespace {

using cli::TalkerLines;
using cli::Talkers;
using testing::ElementsAre;
using testing::SizeIs;

/// The content in an answer of the database.
Talkers Read(const std::string& content)
{
    const auto reply = netconf::ParseReply(
        "<nc:rpc-reply xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:message-id=\"1\" "
        "xmlns=\"urn:switch:yang:switch-system\">" +
        content + "</nc:rpc-reply>");
    EXPECT_TRUE(reply);
    return cli::TalkersOf(
        cli::Children(cli::ParseOutput(cli_test::Yang(), *reply, "sflow-top-talkers").get()));
}

TEST(Talkers, AreReadWithPortsWhereThereAre)
{
    const Talkers talkers = Read(
        "<counted-for>9800</counted-for><samples>1234</samples>"
        "<talker><source>192.0.2.1</source><destination>2001:db8::1</destination><protocol>tcp</protocol>"
        "<source-port>80</source-port><destination-port>443</destination-port><samples>7</samples>"
        "<packets-per-second>1200</packets-per-second><bits-per-second>9600000</bits-per-second></talker>"
        "<talker><source>02:00:00:00:00:01</source><destination>ff:ff:ff:ff:ff:ff</destination>"
        "<protocol>0x88b5</protocol><samples>1</samples><packets-per-second>1</packets-per-second>"
        "<bits-per-second>512</bits-per-second></talker>");
    EXPECT_EQ(9800U, talkers.countedForMs);
    EXPECT_THAT(TalkerLines(talkers, 79, 10),
                ElementsAre("Top talkers, 1,234 samples in 9.8 s",
                            "   bits/s  packets/s  protocol  from               to",
                            "     9.6M       1.2k  tcp       192.0.2.1:80       [2001:db8::1]:443",
                            "      512          1  0x88b5    02:00:00:00:00:01  ff:ff:ff:ff:ff:ff"));
    EXPECT_THAT(
        TalkerLines(talkers, 50, 3),
        ElementsAre("Top talkers, 1,234 samples in 9.8 s", "   bits/s  packets/s  protocol  from      to",
                    "     9.6M       1.2k  tcp       ....1:80  ...]:443"));
    EXPECT_THAT(TalkerLines(talkers, 79, 0), SizeIs(0));
    EXPECT_THAT(TalkerLines(talkers, 79, 1), SizeIs(1));
}

TEST(Talkers, SayWhyThereAreNone)
{
    EXPECT_THAT(TalkerLines({}, 79, 5), ElementsAre("Top talkers", "  asked for"));
    EXPECT_THAT(TalkerLines(Read("<counted-for>0</counted-for><samples>0</samples>"), 79, 5),
                ElementsAre("Top talkers, 0 samples in 0.0 s", "  no samples yet"));
    Talkers talkers;
    talkers.problem = "eth1 is not sampled;\nset a sampling-rate";
    EXPECT_THAT(TalkerLines(talkers, 30, 5), ElementsAre("Top talkers", "  eth1 is not sampled;\\nset..."));
}

}  // namespace
