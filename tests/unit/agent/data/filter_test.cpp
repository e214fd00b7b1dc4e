// SPDX-License-Identifier: Apache-2.0
// Subtree filters and the order and form of data, as tables: filter, what it leaves of one tree.

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <string>

#include "agent/agent_world.h"
#include "agent/data/data_writer.h"
#include "agent/data/tree_source.h"
#include "agent/data/yang_tree.h"
#include "agent/rpc_text.h"

namespace {

using agent::Defaults;
using agent_tests::DataSchema;
using agent_tests::ReadFilter;
using agent_tests::Sflow;

constexpr const char* kData = R"({"switch-config:config": {
  "switch-oam-sflow:oam": {"sflow": {
    "agent": {"ipv4": "192.0.2.9"},
    "collector": [{"name": "c2", "ip": "192.0.2.2"}, {"name": "c10", "ip": "192.0.2.10", "port": 6343},
                  {"name": "c1", "ip": "192.0.2.2", "enabled": false}],
    "interface": [
      {"name": "eth2", "sampling-rate": 512, "flow-sampling-collector": [{"name": "c2"}, {"name": "c1"}]},
      {"name": "eth10", "polling-interval": 0}]}}}})";

agent::Tree ParsedData()
{
    lyd_node* tree = nullptr;
    EXPECT_EQ(lyd_parse_data_mem(agent_tests::Schema().Context(), kData, LYD_JSON, LYD_PARSE_STRICT,
                                 LYD_VALIDATE_PRESENT, &tree),
              LY_SUCCESS);
    return agent::Tree(tree);
}

std::string Filtered(const lyd_node* tree, const std::optional<agent::SubtreeFilter>& filter,
                     Defaults defaults = Defaults::kExplicit)
{
    agent_tests::TreeSource source(tree);
    agent::WriteOptions options{.defaults = defaults};
    std::string out;
    std::optional<agent::FilterPlan> plan;
    if (filter) plan = agent::FilterPlan::Make(DataSchema(), *filter).value();
    if (plan) options.filter = &*plan;
    agent::WriteData(DataSchema(), source, options, out);
    return out;
}

std::string Filtered(const std::optional<agent::SubtreeFilter>& filter,
                     Defaults defaults = Defaults::kExplicit)
{
    return Filtered(ParsedData().get(), filter, defaults);
}

/// What Sflow() makes, without the declaration that only requests have.
std::string SflowData(const std::string& content)
{
    std::string text = Sflow(content);
    const std::string declaration = " xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\"";
    return text.erase(text.find(declaration), declaration.size());
}

struct FilterCase {
    const char* name;
    std::string filter;
    std::string expected;  // in sflow; "-": nothing at all
    bool wrapped = true;   // the filter stands in sflow
};

class FilterTest : public testing::TestWithParam<FilterCase> {};

TEST_P(FilterTest, Selects)
{
    const FilterCase& param = GetParam();
    const auto filter = ReadFilter(param.wrapped ? Sflow(param.filter) : param.filter);
    EXPECT_EQ(Filtered(filter), param.expected == "-" ? "" : SflowData(param.expected));
}

const std::string kAgent = "<agent><ipv4>192.0.2.9</ipv4></agent>";
const std::string kC1 = "<collector><name>c1</name><enabled>false</enabled><ip>192.0.2.2</ip></collector>";
const std::string kC10 = "<collector><name>c10</name><ip>192.0.2.10</ip><port>6343</port></collector>";
const std::string kC2 = "<collector><name>c2</name><ip>192.0.2.2</ip></collector>";
const std::string kEth10 = "<interface><name>eth10</name><polling-interval>0</polling-interval></interface>";
const std::string kEth2 =
    "<interface><name>eth2</name><sampling-rate>512</sampling-rate>"
    "<flow-sampling-collector><name>c1</name></flow-sampling-collector>"
    "<flow-sampling-collector><name>c2</name></flow-sampling-collector></interface>";

INSTANTIATE_TEST_SUITE_P(
    Table, FilterTest,
    testing::Values(
        FilterCase{"Empty", "", "-", false},
        FilterCase{"EmptyContainment", "", kAgent + kC1 + kC10 + kC2 + kEth10 + kEth2},
        FilterCase{"Root", "<config xmlns='urn:switch:yang:switch-config'/>",
                   kAgent + kC1 + kC10 + kC2 + kEth10 + kEth2, false},
        FilterCase{"AnyNamespace", "<config xmlns=''/>", kAgent + kC1 + kC10 + kC2 + kEth10 + kEth2, false},
        FilterCase{"OtherNamespace", "<config xmlns='urn:switch:yang:switch-state'/>", "-", false},
        FilterCase{"OtherModule", "<state xmlns='urn:switch:yang:switch-state'/>", "-", false},
        FilterCase{"UnknownNamespace", "<config xmlns='urn:x'/>", "-", false},
        FilterCase{"BaseNamespace", "<config/>", "-", false},
        FilterCase{"WrongNamespaceBelow", "<agent xmlns='urn:x'/>", "-"},
        FilterCase{"UnknownElement", "<nothing/>", "-"}, FilterCase{"Container", "<agent/>", kAgent},
        FilterCase{"Leaf", "<agent><ipv4/></agent>", kAgent},
        FilterCase{"AbsentLeaf", "<interface><max-header-size/></interface>", "-"},
        FilterCase{"List", "<collector/>", kC1 + kC10 + kC2},
        FilterCase{"TwoLists", "<interface/><collector/>", kC1 + kC10 + kC2 + kEth10 + kEth2},
        FilterCase{"KeyMatch", "<collector><name>c1</name></collector>", kC1},
        FilterCase{"BlanksAround", "<collector>\n <name>\n c1 </name>\n</collector>", kC1},
        FilterCase{"NoKeyMatches", "<collector><name>c3</name></collector>", "-"},
        FilterCase{"KeyIsNoPrefix", "<collector><name>c</name></collector>", "-"},
        FilterCase{"TwoEntries",
                   "<collector><name>c1</name></collector><collector><name>c2</name></collector>", kC1 + kC2},
        FilterCase{"OtherLeafMatch", "<collector><ip>192.0.2.2</ip></collector>", kC1 + kC2},
        FilterCase{"AllMustMatch", "<collector><ip>192.0.2.2</ip><enabled>false</enabled></collector>", kC1},
        FilterCase{"DefaultIsNoValue", "<collector><enabled>true</enabled></collector>", "-"},
        FilterCase{"SameValueOtherwise", "<interface><sampling-rate>+512</sampling-rate></interface>", kEth2},
        FilterCase{"NoValueAtAll", "<interface><sampling-rate>many</sampling-rate></interface>", "-"},
        FilterCase{"Columns", "<collector><ip/></collector>",
                   "<collector><name>c1</name><ip>192.0.2.2</ip></collector>"
                   "<collector><name>c10</name><ip>192.0.2.10</ip></collector>"
                   "<collector><name>c2</name><ip>192.0.2.2</ip></collector>"},
        FilterCase{"KeysOnly", "<interface><name/></interface>",
                   "<interface><name>eth10</name></interface><interface><name>eth2</name></interface>"},
        FilterCase{"KeyAndColumn", "<interface><name>eth2</name><sampling-rate/></interface>",
                   "<interface><name>eth2</name><sampling-rate>512</sampling-rate></interface>"},
        FilterCase{"KeyAndAbsentColumn", "<interface><name>eth10</name><sampling-rate/></interface>",
                   "<interface><name>eth10</name></interface>"},
        FilterCase{"MatchAndColumn", "<collector><enabled>false</enabled><port/></collector>",
                   "<collector><name>c1</name><enabled>false</enabled></collector>"},
        FilterCase{
            "Nested",
            "<interface><flow-sampling-collector><name>c2</name></flow-sampling-collector></interface>",
            "<interface><name>eth2</name><flow-sampling-collector><name>c2</name></flow-sampling-collector>"
            "</interface>"},
        FilterCase{
            "NestedNothing",
            "<interface><flow-sampling-collector><name>c9</name></flow-sampling-collector></interface>", "-"},
        FilterCase{
            "KeyAndNestedNothing",
            "<interface><name>eth2</name><flow-sampling-collector><name>c9</name></flow-sampling-collector>"
            "</interface>",
            "<interface><name>eth2</name></interface>"},
        FilterCase{"OneEntryTwice",
                   "<interface><name>eth2</name><sampling-rate/></interface>"
                   "<interface><name>eth2</name><flow-sampling-collector/></interface>",
                   kEth2},
        FilterCase{"WholeAndPart", "<interface><name/></interface><interface/>", kEth10 + kEth2},
        FilterCase{"Attribute", "<agent x='1'/>", "-"},
        FilterCase{"QualifiedAttribute", "<agent nc:operation='create'/>", "-"},
        FilterCase{"AttributeOnAKey", "<collector><name x='1'>c1</name></collector>", "-"},
        FilterCase{"TextInAContainer", "<agent>192.0.2.9</agent>", "-"},
        FilterCase{"ChildOfALeaf", "<agent><ipv4><x/></ipv4></agent>", "-"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(DataWriter, WritesEntriesInTheOrderOfTheirKeysBytes)
{
    EXPECT_EQ(Filtered(std::nullopt), SflowData(kAgent + kC1 + kC10 + kC2 + kEth10 + kEth2));
}

TEST(DataWriter, WritesDefaultsAsTheModeSays)
{
    const auto filter = ReadFilter(Sflow("<collector><name>c10</name></collector>"));
    EXPECT_EQ(Filtered(filter, Defaults::kExplicit), SflowData(kC10));
    EXPECT_EQ(Filtered(filter, Defaults::kTrim),
              SflowData("<collector><name>c10</name><ip>192.0.2.10</ip></collector>"));
    EXPECT_EQ(Filtered(filter, Defaults::kReportAll),
              SflowData("<collector><name>c10</name><enabled>true</enabled><ip>192.0.2.10</ip>"
                        "<datagram-size>1400</datagram-size><port>6343</port></collector>"));
}

TEST(DataWriter, EscapesValues)
{
    lyd_node* raw = nullptr;
    const char* json = R"({"switch-state:state": {"system": {"fault": [{"number": "1", "text": "<&>"}]}}})";
    ASSERT_EQ(lyd_parse_data_mem(agent_tests::Schema().Context(), json, LYD_JSON, LYD_PARSE_ONLY, 0, &raw),
              LY_SUCCESS);
    const agent::Tree tree(raw);
    EXPECT_EQ(Filtered(tree.get(), std::nullopt),
              "<state xmlns=\"urn:switch:yang:switch-state\"><system><fault><number>1</number>"
              "<text>&lt;&amp;&gt;</text></fault></system></state>");
}

TEST(DataWriter, WritesNothingOfNoTree)
{
    EXPECT_EQ(Filtered(nullptr, std::nullopt, Defaults::kReportAll), "");
}

}  // namespace
