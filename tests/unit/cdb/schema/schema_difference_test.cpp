// SPDX-License-Identifier: Apache-2.0
// What lies between two revisions of the schema.

#include "cdb/schema/difference.h"

#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/sample.h"

namespace {

using cdb::SchemaChange;
using cdb::SchemaNode;
using cdb::SchemaTable;
using Kind = cdb::SchemaChangeKind;
using Effect = cdb::SchemaChangeEffect;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kPort = sample::kCollector + "/port";

/// The tree's own schema with one node changed.
SchemaTable Changed(const std::string& path, const std::function<void(SchemaNode&)>& change)
{
    std::vector<SchemaNode> nodes(sample::Table().Nodes().begin(), sample::Table().Nodes().end());
    change(nodes.at(sample::Node(path)));
    return SchemaTable(std::move(nodes));
}

TEST(SchemaDifference, IsNoneBetweenEqualTables)
{
    EXPECT_THAT(cdb::DifferenceOf(sample::Table(), sample::Table()), IsEmpty());
    EXPECT_EQ(cdb::Obstacle({}), "");
}

struct Case {
    const char* name;
    std::string path;
    std::function<void(SchemaNode&)> change;
    SchemaChange expected;
    std::string text;
};

TEST(SchemaDifference, NamesWhatHasChanged)
{
    const std::vector<Case> table = {
        {"default",
         kPort,
         [](auto& node) { node.defaultValue = std::uint16_t{6344}; },
         {Kind::kDefault, Effect::kNone, kPort, "6343", "6344"},
         " has the default 6344 instead of 6343"},
        {"no default",
         kPort,
         [](auto& node) { node.defaultValue = {}; },
         {Kind::kDefault, Effect::kNone, kPort, "6343", ""},
         " has the default none instead of 6343"},
        {"narrower",
         kPort,
         [](auto& node) { node.maximum = 10'000; },
         {Kind::kRange, Effect::kValidate, kPort, "1..65535", "1..10000"},
         " has the range 1..10000 instead of 1..65535"},
        {"wider",
         kPort,
         [](auto& node) { node.minimum = 0; },
         {Kind::kRange, Effect::kNone, kPort, "1..65535", "0..65535"},
         " has the range 0..65535 instead of 1..65535"},
        {"mandatory",
         kPort,
         [](auto& node) { node.mandatory = true; },
         {Kind::kMandatory, Effect::kValidate, kPort, "", ""},
         " has to have a value now"},
        {"type",
         kPort,
         [](auto& node) { node.type = cdb::ValueType::kString; },
         {Kind::kType, Effect::kUnfit, kPort, "uint16", "string"},
         " has the type string instead of uint16"},
        {"kind",
         sample::kCollector,
         [](auto& node) { node.kind = cdb::NodeKind::kContainer; },
         {Kind::kKind, Effect::kUnfit, sample::kCollector, "list", "container"},
         " is a container instead of list"},
        {"presence",
         "/config/oam/sflow/agent",
         [](auto& node) { node.kind = cdb::NodeKind::kPresenceContainer; },
         {Kind::kKind, Effect::kValidate, "/config/oam/sflow/agent", "container", "presence container"},
         " is a presence container instead of container"},
        {"keys",
         kPort,
         [](auto& node) { node.isKey = true; },
         {Kind::kKeys, Effect::kUnfit, sample::kCollector, "name", "name port"},
         " has the keys name port instead of name"},
    };
    for (const auto& row : table) {
        const auto changes = cdb::DifferenceOf(sample::Table(), Changed(row.path, row.change));
        EXPECT_THAT(changes, ElementsAre(row.expected)) << row.name;
        if (changes.size() != 1) continue;
        EXPECT_EQ(cdb::Describe(changes[0]), row.expected.path + row.text);
        const bool unfit = row.expected.effect == Effect::kUnfit;
        const std::string obstacle = cdb::Obstacle(changes);
        EXPECT_EQ(obstacle.empty(), !unfit) << row.name;
        if (!unfit) continue;
        EXPECT_THAT(obstacle, testing::AllOf(HasSubstr(row.text), HasSubstr("--import")));
    }
}

TEST(SchemaDifference, NamesWhatIsNewAndWhatIsGone)
{
    const auto renamed = Changed(kPort, [](SchemaNode& node) { node.name = "udp-port"; });
    const SchemaChange added{Kind::kAdded, Effect::kNone, sample::kCollector + "/udp-port", "", "6343"};
    const SchemaChange removed{Kind::kRemoved, Effect::kNone, kPort, "", ""};
    const auto changes = cdb::DifferenceOf(sample::Table(), renamed);
    EXPECT_THAT(changes, ElementsAre(added, removed));
    EXPECT_EQ(cdb::Describe(added), sample::kCollector + "/udp-port is new, with the default 6343");
    EXPECT_EQ(cdb::Describe(removed), kPort + " is gone, what is stored of it is not read any more");
}

TEST(SchemaDifference, NamesANewLeafThatHasToHaveAValue)
{
    const auto older = Changed(sample::kCollector + "/ip", [](SchemaNode& node) { node.name = "address"; });
    const auto changes = cdb::DifferenceOf(older, sample::Table());
    ASSERT_EQ(changes.size(), 2U);
    EXPECT_EQ(changes[0].effect, Effect::kValidate);
    EXPECT_THAT(cdb::Describe(changes[0]), HasSubstr("/ip is new and has to have a value"));
}

TEST(SchemaDifference, SaysOfAListThatIsGoneOrNewOnlyThat)
{
    const auto renamed = Changed(sample::kInterface, [](SchemaNode& node) { node.name = "port"; });
    EXPECT_THAT(cdb::DifferenceOf(sample::Table(), renamed),
                ElementsAre(SchemaChange{Kind::kAdded, Effect::kNone, "/config/oam/sflow/port", "", ""},
                            SchemaChange{Kind::kRemoved, Effect::kNone, sample::kInterface, "", ""}));
}

}  // namespace
