// SPDX-License-Identifier: Apache-2.0
#include "cli/data/config_text.h"

#include <gtest/gtest.h>

#include "cli/data/data_tree.h"
#include "cli/data/schema_words.h"
#include "cli/yang.h"

namespace {

using cli_test::FromJson;
using cli_test::Sflow;

cli::Tree Example()
{
    return FromJson(R"({"switch-config:config":{
        "switch-interfaces:interface":{"mgmt":[{"name":"mgmt0","ipv4":{"address":{"ip":"10.0.0.5/24"}}}]},
        "switch-oam-sflow:oam":{"sflow":{
            "agent":{"ipv4":"10.0.0.1"},
            "collector":[{"name":"c1","ip":"192.0.2.1"},{"name":"#2","ip":"192.0.2.2","port":6344}],
            "interface":[{"name":"eth1","sampling-rate":512,
                          "flow-sampling-collector":[{"name":"c1"},{"name":"#2"}]},
                         {"name":"eth2"}]}}}})");
}

TEST(Blocks, ShowTheConfigurationWithoutItsRoot)
{
    EXPECT_EQ(cli::ToBlocks(Example().get()),
              R"(interface {
    mgmt mgmt0 {
        ipv4 {
            address {
                ip 10.0.0.5/24;
            }
        }
    }
}
oam {
    sflow {
        agent {
            ipv4 10.0.0.1;
        }
        collector c1 {
            ip 192.0.2.1;
        }
        collector "#2" {
            ip 192.0.2.2;
            port 6344;
        }
        interface eth1 {
            sampling-rate 512;
            flow-sampling-collector c1;
            flow-sampling-collector "#2";
        }
        interface eth2;
    }
}
)");
}

TEST(Blocks, ShowAPlaceWithItsOwnHead)
{
    const cli::Tree tree = Example();
    const std::vector<std::string> words = {"oam", "sflow", "interface", "eth1"};
    const cli::Place place = cli::PlacesToShow(cli_test::Yang(), words).front();
    EXPECT_EQ(cli::ToBlocks(cli::NodesAt(tree.get(), place)),
              R"(interface eth1 {
    sampling-rate 512;
    flow-sampling-collector c1;
    flow-sampling-collector "#2";
}
)");
}

TEST(Blocks, ShowAllEntriesOfAListAndSingleLeaves)
{
    const cli::Tree tree = Example();
    const auto shown = [&](const std::vector<std::string>& words) {
        return cli::ToBlocks(cli::NodesAt(tree.get(), cli::PlacesToShow(cli_test::Yang(), words).front()));
    };
    EXPECT_EQ(shown({"oam", "sflow", "interface", "eth1", "flow-sampling-collector"}),
              "flow-sampling-collector c1;\nflow-sampling-collector \"#2\";\n");
    EXPECT_EQ(shown({"oam", "sflow", "agent", "ipv4"}), "ipv4 10.0.0.1;\n");
    EXPECT_EQ(shown({"oam", "sflow", "interface", "eth9"}), "");
}

TEST(Blocks, LeaveOutContainersWithoutContent)
{
    EXPECT_EQ(cli::ToBlocks(Sflow(R"("agent":{})").get()), "");
    EXPECT_EQ(cli::ToBlocks(nullptr), "");
}

TEST(SetLines, TypeTheConfigurationAgain)
{
    EXPECT_EQ(cli::ToSetLines(Example().get()),
              "set interface mgmt mgmt0 ipv4 address ip 10.0.0.5/24\n"
              "set oam sflow agent ipv4 10.0.0.1\n"
              "set oam sflow collector c1 ip 192.0.2.1\n"
              "set oam sflow collector \"#2\" ip 192.0.2.2\n"
              "set oam sflow collector \"#2\" port 6344\n"
              "set oam sflow interface eth1 sampling-rate 512\n"
              "set oam sflow interface eth1 flow-sampling-collector c1\n"
              "set oam sflow interface eth1 flow-sampling-collector \"#2\"\n"
              "set oam sflow interface eth2\n");
    EXPECT_EQ(cli::ToSetLines(nullptr), "");
}

TEST(Differences, OfEqualTreesAreNone)
{
    EXPECT_EQ(cli::Differences(Example().get(), Example().get()), "");
    EXPECT_EQ(cli::Differences(nullptr, nullptr), "");
    EXPECT_EQ(cli::Differences(nullptr, Sflow(R"("agent":{})").get()), "");
}

TEST(Differences, OfLeaves)
{
    const cli::Tree before =
        Sflow(R"("interface":[{"name":"a","sampling-rate":1,"polling-interval":3},{"name":"b"}])");
    const cli::Tree after =
        Sflow(R"("interface":[{"name":"a","sampling-rate":2},{"name":"b","max-header-size":64}])");
    EXPECT_EQ(cli::Differences(before.get(), after.get()),
              "- oam sflow interface a sampling-rate 1\n"
              "+ oam sflow interface a sampling-rate 2\n"
              "- oam sflow interface a polling-interval 3\n"
              "+ oam sflow interface b max-header-size 64\n");
}

TEST(Differences, NameEntriesThatComeAndGoAsAWhole)
{
    const cli::Tree before = Sflow(
        R"("collector":[{"name":"c1","ip":"192.0.2.1"}],"interface":[{"name":"a","flow-sampling-collector":[{"name":"c1"}]}])");
    const cli::Tree after = Sflow(R"("interface":[{"name":"a"},{"name":"b","sampling-rate":5}])");
    EXPECT_EQ(cli::Differences(before.get(), after.get()),
              "- oam sflow collector c1\n"
              "- oam sflow collector c1 ip 192.0.2.1\n"
              "- oam sflow interface a flow-sampling-collector c1\n"
              "+ oam sflow interface b\n"
              "+ oam sflow interface b sampling-rate 5\n");
}

TEST(Differences, FromAndToNothing)
{
    const cli::Tree tree = Sflow(R"("agent":{"ipv4":"10.0.0.1"})");
    EXPECT_EQ(cli::Differences(nullptr, tree.get()), "+ oam sflow agent ipv4 10.0.0.1\n");
    EXPECT_EQ(cli::Differences(tree.get(), nullptr), "- oam sflow agent ipv4 10.0.0.1\n");
}

TEST(Differences, OfManyEntriesFindTheOneThatChanged)
{
    const auto list = [](int changed) {
        std::string content = R"("interface":[)";
        for (int i = 0; i < 2000; ++i)
            content += (i ? "," : "") + std::string(R"({"name":"eth)") + std::to_string(i) +
                       R"(","sampling-rate":)" + (i == changed ? "7}" : "9}");
        return Sflow(content + "]");
    };
    EXPECT_EQ(cli::Differences(list(-1).get(), list(1234).get()),
              "- oam sflow interface eth1234 sampling-rate 9\n"
              "+ oam sflow interface eth1234 sampling-rate 7\n");
}

}  // namespace
