// SPDX-License-Identifier: Apache-2.0
// The schema table by itself.

#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "cdb/sample.h"

namespace {

using cdb::kNoNode;
using cdb::NodeKind;
using cdb::SchemaTable;
using sample::Node;
using sample::Table;

std::vector<std::string> NamesOf(const std::vector<cdb::NodeId>& nodes)
{
    std::vector<std::string> names;
    for (const auto node : nodes) names.push_back(Table()[node].name);
    return names;
}

TEST(SchemaTable, FindsEveryNodeByItsPath)
{
    ASSERT_GT(Table().Size(), 0U);
    for (const auto& node : Table().Nodes()) {
        EXPECT_EQ(Table().Find(Table().PathOf(node.id)), node.id);
        EXPECT_EQ(Table().Child(node.parent, node.name), node.id);
    }
}

TEST(SchemaTable, FindsNothingAtAWrongPath)
{
    for (const char* path :
         {"", "/", "config", "/Config", "/config/", "/config//oam", "/config/oam{x}", "//config"})
        EXPECT_EQ(Table().Find(path), kNoNode) << path;
    EXPECT_EQ(Table().Child(kNoNode, "oam"), kNoNode);
    EXPECT_EQ(Table().Child(Node("/config"), "sflow"), kNoNode);
}

TEST(SchemaTable, HasParentsBeforeChildren)
{
    for (const auto& node : Table().Nodes()) {
        if (node.parent == kNoNode) continue;
        EXPECT_LT(node.parent, node.id);
    }
}

TEST(SchemaTable, GivesTheLeavesOfAnEntryInTheirOrder)
{
    EXPECT_EQ(NamesOf(Table().LeavesOf(Node(sample::kCollector))),
              (std::vector<std::string>{"name", "enabled", "ip", "datagram-size", "port"}));
    EXPECT_EQ(NamesOf(Table().LeavesOf(Node(sample::kInterface))),
              (std::vector<std::string>{"name", "sampling-rate", "default-sampling-rate", "max-header-size",
                                        "polling-interval"}));
    EXPECT_EQ(NamesOf(Table().LeavesOf(Node("/config/oam"))), std::vector<std::string>{});
}

TEST(SchemaTable, NamesATag)
{
    EXPECT_EQ(Table().NameOfTag(1045927289), "collector");
    EXPECT_EQ(Table().NameOfTag(197426095), "enabled");
    EXPECT_EQ(Table().NameOfTag(1), "");
}

TEST(SchemaTable, FillsInWhatFollowsFromTheOrder)
{
    std::vector<cdb::SchemaNode> nodes(4);
    nodes[0] = {.id = 9, .name = "list", .kind = NodeKind::kList, .children = {7}, .keys = {5}};
    nodes[1] = {.parent = 0, .name = "a", .kind = NodeKind::kLeaf, .isKey = true};
    nodes[2] = {.parent = 0, .name = "b", .kind = NodeKind::kLeaf, .isKey = true};
    nodes[3] = {.parent = 0, .name = "c", .kind = NodeKind::kLeaf};
    const SchemaTable table(std::move(nodes));
    EXPECT_EQ(table[0].id, 0U);
    EXPECT_EQ(table[0].children, (std::vector<cdb::NodeId>{1, 2, 3}));
    EXPECT_EQ(table[0].keys, (std::vector<cdb::NodeId>{1, 2}));
}

TEST(SchemaTable, IsTheSameAfterItWasStored)
{
    const auto parsed = SchemaTable::Parse(Table().Serialize());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(*parsed, Table());
    EXPECT_EQ(SchemaTable::Parse(SchemaTable().Serialize()), SchemaTable());
}

TEST(SchemaTable, IsNotReadFromBytesThatAreNone)
{
    const std::string bytes = Table().Serialize();
    EXPECT_FALSE(SchemaTable::Parse("this is not a schema"));
    EXPECT_FALSE(SchemaTable::Parse(bytes.substr(0, bytes.size() - 1)));
}

// Any bytes give a table all of whose numbers name something, or no table.
TEST(SchemaTable, IsUsableOrRefusedAfterAnyDamage)
{
    const std::string sound = Table().Serialize();
    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> position(0, sound.size() - 1);
    std::uniform_int_distribution<int> byte(0, 255);
    int refused = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string bytes = sound;
        for (int change = 0; change < 3; ++change) bytes[position(random)] = static_cast<char>(byte(random));
        const auto table = SchemaTable::Parse(bytes);
        if (!table) {
            ++refused;
            continue;
        }
        for (const auto& node : table->Nodes()) {
            ASSERT_TRUE(node.parent == kNoNode || node.parent < node.id);
            ASSERT_TRUE(node.defaultRef == kNoNode || node.defaultRef < table->Size());
            ASSERT_FALSE(table->PathOf(node.id).empty());
        }
    }
    EXPECT_GT(refused, 0);
}

}  // namespace
