// SPDX-License-Identifier: Apache-2.0
// Subtree filters and the order and form of data, as tables: filter, what it leaves of one tree.

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <string>
#include <variant>

#include "agent/agent_world.h"
#include "agent/data_source_tree.h"
#include "agent/data_writer.h"
#include "agent/rpc.h"
#include "agent/yang_tree.h"

namespace {

using agent::Defaults;
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

std::optional<agent::SubtreeFilter> Read(const std::string& filter)
{
    auto rpc = agent::ReadRpc(agent_tests::Index(),
                              "<rpc xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" message-id=\"1\"><get>"
                              "<filter>" +
                                  filter + "</filter></get></rpc>",
                              true);
    EXPECT_TRUE(std::holds_alternative<agent::Rpc>(rpc)) << filter;
    return std::get<agent::Rpc>(std::move(rpc)).filter;
}

const agent::DataSchema& DataSchema()
{
    static const agent::DataSchema schema(agent_tests::Schema());
    return schema;
}

std::string Written(const lyd_node* tree, const std::optional<agent::SubtreeFilter>& filter,
                    Defaults defaults = Defaults::kExplicit)
{
    agent::TreeSource source(tree);
    agent::WriteOptions options{.defaults = defaults};
    std::string out;
    std::optional<agent::FilterPlan> plan;
    if (filter) plan = std::get<agent::FilterPlan>(agent::FilterPlan::Make(DataSchema(), *filter));
    if (plan) options.filter = &*plan;
    agent::WriteData(DataSchema(), source, options, out);
    return out;
}

std::string Written(const std::optional<agent::SubtreeFilter>& filter,
                    Defaults defaults = Defaults::kExplicit)
{
    return Written(ParsedData().get(), filter, defaults);
}

/// What Sflow() makes, without the declaration that only requests have.
std::string Expected(const std::string& content)
{
    std::string text = Sflow(content);
    const std::string declaration = " xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\"";
    return text.erase(text.find(declaration), declaration.size());
}

struct Case {
    const char* name;
    std::string filter;
    std::string expected;  // in sflow; "-": nothing at all
    bool wrapped = true;   // the filter stands in sflow
};

class FilterTest : public testing::TestWithParam<Case> {};

TEST_P(FilterTest, Selects)
{
    const Case& param = GetParam();
    const auto filter = Read(param.wrapped ? Sflow(param.filter) : param.filter);
    EXPECT_EQ(Written(filter), param.expected == "-" ? "" : Expected(param.expected));
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
        Case{"Empty", "", "-", false},
        Case{"EmptyContainment", "", kAgent + kC1 + kC10 + kC2 + kEth10 + kEth2},
        Case{"Root", "<config xmlns='urn:switch:yang:switch-config'/>",
             kAgent + kC1 + kC10 + kC2 + kEth10 + kEth2, false},
        Case{"AnyNamespace", "<config xmlns=''/>", kAgent + kC1 + kC10 + kC2 + kEth10 + kEth2, false},
        Case{"OtherNamespace", "<config xmlns='urn:switch:yang:switch-state'/>", "-", false},
        Case{"OtherModule", "<state xmlns='urn:switch:yang:switch-state'/>", "-", false},
        Case{"UnknownNamespace", "<config xmlns='urn:x'/>", "-", false},
        Case{"BaseNamespace", "<config/>", "-", false},
        Case{"WrongNamespaceBelow", "<agent xmlns='urn:x'/>", "-"}, Case{"UnknownElement", "<nothing/>", "-"},
        Case{"Container", "<agent/>", kAgent}, Case{"Leaf", "<agent><ipv4/></agent>", kAgent},
        Case{"AbsentLeaf", "<interface><max-header-size/></interface>", "-"},
        Case{"List", "<collector/>", kC1 + kC10 + kC2},
        Case{"TwoLists", "<interface/><collector/>", kC1 + kC10 + kC2 + kEth10 + kEth2},
        Case{"KeyMatch", "<collector><name>c1</name></collector>", kC1},
        Case{"BlanksAround", "<collector>\n <name>\n c1 </name>\n</collector>", kC1},
        Case{"NoKeyMatches", "<collector><name>c3</name></collector>", "-"},
        Case{"KeyIsNoPrefix", "<collector><name>c</name></collector>", "-"},
        Case{"TwoEntries", "<collector><name>c1</name></collector><collector><name>c2</name></collector>",
             kC1 + kC2},
        Case{"OtherLeafMatch", "<collector><ip>192.0.2.2</ip></collector>", kC1 + kC2},
        Case{"AllMustMatch", "<collector><ip>192.0.2.2</ip><enabled>false</enabled></collector>", kC1},
        Case{"DefaultIsNoValue", "<collector><enabled>true</enabled></collector>", "-"},
        Case{"SameValueOtherwise", "<interface><sampling-rate>+512</sampling-rate></interface>", kEth2},
        Case{"NoValueAtAll", "<interface><sampling-rate>many</sampling-rate></interface>", "-"},
        Case{"Columns", "<collector><ip/></collector>",
             "<collector><name>c1</name><ip>192.0.2.2</ip></collector>"
             "<collector><name>c10</name><ip>192.0.2.10</ip></collector>"
             "<collector><name>c2</name><ip>192.0.2.2</ip></collector>"},
        Case{"KeysOnly", "<interface><name/></interface>",
             "<interface><name>eth10</name></interface><interface><name>eth2</name></interface>"},
        Case{"KeyAndColumn", "<interface><name>eth2</name><sampling-rate/></interface>",
             "<interface><name>eth2</name><sampling-rate>512</sampling-rate></interface>"},
        Case{"KeyAndAbsentColumn", "<interface><name>eth10</name><sampling-rate/></interface>",
             "<interface><name>eth10</name></interface>"},
        Case{"MatchAndColumn", "<collector><enabled>false</enabled><port/></collector>",
             "<collector><name>c1</name><enabled>false</enabled></collector>"},
        Case{"Nested",
             "<interface><flow-sampling-collector><name>c2</name></flow-sampling-collector></interface>",
             "<interface><name>eth2</name><flow-sampling-collector><name>c2</name></flow-sampling-collector>"
             "</interface>"},
        Case{"NestedNothing",
             "<interface><flow-sampling-collector><name>c9</name></flow-sampling-collector></interface>",
             "-"},
        Case{"KeyAndNestedNothing",
             "<interface><name>eth2</name><flow-sampling-collector><name>c9</name></flow-sampling-collector>"
             "</interface>",
             "<interface><name>eth2</name></interface>"},
        Case{"OneEntryTwice",
             "<interface><name>eth2</name><sampling-rate/></interface>"
             "<interface><name>eth2</name><flow-sampling-collector/></interface>",
             kEth2},
        Case{"WholeAndPart", "<interface><name/></interface><interface/>", kEth10 + kEth2},
        Case{"Attribute", "<agent x='1'/>", "-"},
        Case{"QualifiedAttribute", "<agent nc:operation='create'/>", "-"},
        Case{"AttributeOnAKey", "<collector><name x='1'>c1</name></collector>", "-"},
        Case{"TextInAContainer", "<agent>192.0.2.9</agent>", "-"},
        Case{"ChildOfALeaf", "<agent><ipv4><x/></ipv4></agent>", "-"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(DataWriter, WritesEntriesInTheOrderOfTheirKeysBytes)
{
    EXPECT_EQ(Written(std::nullopt), Expected(kAgent + kC1 + kC10 + kC2 + kEth10 + kEth2));
}

TEST(DataWriter, WritesDefaultsAsTheModeSays)
{
    const auto filter = Read(Sflow("<collector><name>c10</name></collector>"));
    EXPECT_EQ(Written(filter, Defaults::kExplicit), Expected(kC10));
    EXPECT_EQ(Written(filter, Defaults::kTrim),
              Expected("<collector><name>c10</name><ip>192.0.2.10</ip></collector>"));
    EXPECT_EQ(Written(filter, Defaults::kReportAll),
              Expected("<collector><name>c10</name><enabled>true</enabled><ip>192.0.2.10</ip>"
                       "<datagram-size>1400</datagram-size><port>6343</port></collector>"));
}

TEST(DataWriter, EscapesValues)
{
    lyd_node* raw = nullptr;
    const char* json = R"({"switch-state:state": {"system": {"fault": [{"number": "1", "text": "<&>"}]}}})";
    ASSERT_EQ(lyd_parse_data_mem(agent_tests::Schema().Context(), json, LYD_JSON, LYD_PARSE_ONLY, 0, &raw),
              LY_SUCCESS);
    const agent::Tree tree(raw);
    EXPECT_EQ(Written(tree.get(), std::nullopt),
              "<state xmlns=\"urn:switch:yang:switch-state\"><system><fault><number>1</number>"
              "<text>&lt;&amp;&gt;</text></fault></system></state>");
}

TEST(DataWriter, WritesNothingOfNoTree)
{
    EXPECT_EQ(Written(nullptr, std::nullopt, Defaults::kReportAll), "");
}

}  // namespace
