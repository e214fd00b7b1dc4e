// SPDX-License-Identifier: Apache-2.0
// Paths of the client API.

#include <vector>

#include <gtest/gtest.h>

#include "cdb/model/path.h"
#include "cdb/sample.h"

namespace {

using cdb::Path;
using cdb::Step;
using sample::Node;

Path Parsed(const std::string& text)
{
    auto result = cdb::ParsePath(sample::Table(), text);
    if (result) return *result;
    ADD_FAILURE() << result.error();
    return {};
}

std::string ComplaintOfPath(const cdb::SchemaTable& schema, const std::string& text)
{
    const auto result = cdb::ParsePath(schema, text);
    return result ? "none" : result.error();
}

TEST(Path, NamesEveryNodeOnTheWay)
{
    const Path expected{{{Node("/config"), {}, {}},
                         {Node("/config/oam"), {}, {}},
                         {Node("/config/oam/sflow"), {}, {}},
                         {Node(sample::kInterface), {"gigabit-ethernet-1/1/1"}, {}},
                         {Node(sample::kFlow), {"c1"}, {}},
                         {Node(sample::kFlow + "/name"), {}, {}}}};
    const std::string text =
        "/config/oam/sflow/interface{gigabit-ethernet-1/1/1}/flow-sampling-collector{c1}/name";
    EXPECT_EQ(Parsed(text), expected);
    EXPECT_EQ(Parsed(text).Node(), Node(sample::kFlow + "/name"));
    EXPECT_EQ(Path().Node(), cdb::kNoNode);
}

TEST(Path, PrintsAsItWasRead)
{
    const std::vector<std::string> texts = {
        "/config",
        "/config/oam/sflow",
        "/config/oam/sflow/agent/ipv4",
        "/config/oam/sflow/collector",
        "/config/oam/sflow/collector{c1}",
        "/config/oam/sflow/collector{}",
        "/config/oam/sflow/collector{two words}",
        "/config/oam/sflow/interface{a/b[c]{d}/sampling-rate",
        "/config/oam/sflow/interface{100%}/flow-sampling-collector",
        "/config/interface/mgmt[0]/ipv4/address/ip",
        "/config/interface/mgmt[18446744073709551615]",
    };
    for (const auto& text : texts) EXPECT_EQ(cdb::ToText(sample::Table(), Parsed(text)), text);
}

TEST(Path, MayEndAtAListOrAtAnIndex)
{
    EXPECT_EQ(Parsed("/config/oam/sflow/collector").steps.back(), (Step{Node(sample::kCollector), {}, {}}));
    EXPECT_EQ(Parsed("/config/oam/sflow/collector[7]").steps.back(), (Step{Node(sample::kCollector), {}, 7}));
}

TEST(Path, IsRefusedWithWhatIsWrongAndWhere)
{
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"", "path \"\" is empty"},
        {"config", "path \"config\" does not begin with a slash"},
        {"/", "path \"/\" has no element \"\" at the top"},
        {"/state", "path \"/state\" has no element \"state\" at the top"},
        {"/config/oam/sFlow", "path \"/config/oam/sFlow\" has no element \"sFlow\" below /config/oam"},
        {"/config/", "path \"/config/\" has no element \"\" below /config"},
        {"/config{x}", "path \"/config{x}\" has an instance after config, which is no list"},
        {"/config/oam/sflow/collector/ip",
         "path \"/config/oam/sflow/collector/ip\" names the list /config/oam/sflow/collector without a key "
         "in "
         "braces and goes on below it"},
        {"/config/oam/sflow/collector{c1",
         "path \"/config/oam/sflow/collector{c1\" does not close the brace after collector"},
        {"/config/oam/sflow/collector[1",
         "path \"/config/oam/sflow/collector[1\" does not close the bracket after collector"},
        {"/config/oam/sflow/collector[x]",
         "path \"/config/oam/sflow/collector[x]\" has the index [x], which is no number from 0 on"},
        {"/config/oam/sflow/collector[-1]",
         "path \"/config/oam/sflow/collector[-1]\" has the index [-1], which is no number from 0 on"},
        {"/config/oam/sflow/collector[18446744073709551616]",
         "path \"/config/oam/sflow/collector[18446744073709551616]\" has the index [18446744073709551616], "
         "which is "
         "no number from 0 on"},
        {"/config/oam/sflow/collector{c1}x",
         "path \"/config/oam/sflow/collector{c1}x\" has something other than a slash after "
         "/config/oam/sflow/collector{c1}"},
        {"/config/oam/sflow/collector{c1}{c2}",
         "path \"/config/oam/sflow/collector{c1}{c2}\" has something other than a slash after "
         "/config/oam/sflow/collector{c1}"},
        {"/config/oam/sflow/collector{c1}/ip/x",
         "path \"/config/oam/sflow/collector{c1}/ip/x\" has no element \"x\" below "
         "/config/oam/sflow/collector{c1}/ip"},
    };
    for (const auto& [text, complaint] : refused)
        EXPECT_EQ(ComplaintOfPath(sample::Table(), text), complaint);
}

TEST(Path, SeparatesSeveralKeysByBlanks)
{
    using cdb::NodeKind;
    const cdb::NodeId list = 0;
    std::vector<cdb::SchemaNode> nodes(3);
    nodes[0] = {.name = "route", .kind = NodeKind::kList};
    nodes[1] = {.parent = list, .name = "prefix", .kind = NodeKind::kLeaf, .isKey = true};
    nodes[2] = {.parent = list, .name = "via", .kind = NodeKind::kLeaf, .isKey = true};
    const cdb::SchemaTable schema(std::move(nodes));
    const auto path = cdb::ParsePath(schema, "/route{10.0.0.0/8 eth0}/via").value();
    EXPECT_EQ(path.steps.front(), (Step{list, {"10.0.0.0/8", "eth0"}, {}}));
    EXPECT_EQ(cdb::ToText(schema, path), "/route{10.0.0.0/8 eth0}/via");
    for (const char* text : {"/route{a}", "/route{a }", "/route{a b c}", "/route{}"})
        EXPECT_EQ(
            ComplaintOfPath(schema, text),
            "path \"" + std::string(text) + "\" does not give the 2 keys of route between single blanks");
}

}  // namespace
