// SPDX-License-Identifier: Apache-2.0
// Subtree filters as what is asked of a provider, as a table: it may be more than the filter selects, never
// less.

#include "agent/state/state_selection.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "agent/agent_world.h"
#include "agent/clients/provider_node.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

/// "interface[name=eth1](ifindex problem)"
std::string Text(const google::protobuf::RepeatedPtrField<ipc::cdb::StateSelection>& selections)
{
    std::string text;
    for (const auto& selection : selections) {
        text += (text.empty() ? "" : " ") + selection.name();
        for (const auto& key : selection.keys()) text += "[" + key.name() + "=" + key.value() + "]";
        if (!selection.children().empty()) text += "(" + Text(selection.children()) + ")";
    }
    return text;
}

/// "nothing", "everything", or what is selected.
std::string Selected(const std::optional<agent::SubtreeFilter>& filter)
{
    const auto* container = agent::FindProviderNode(Schema().Context(), "/state/oam/sflow");
    const auto wanted = agent::SelectState(container, filter);
    if (!wanted) return "nothing";
    return wanted->children.empty() ? "everything" : Text(wanted->children);
}

struct SelectionRow {
    const char* name;
    std::string sflow;  // what stands in the filter's <sflow>
    std::string selected;
};

class Selection : public testing::TestWithParam<SelectionRow> {};

TEST_P(Selection, IsOfTheFilter)
{
    EXPECT_EQ(GetParam().selected,
              Selected(ReadFilter("<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow>" +
                                  GetParam().sflow + "</sflow></oam></state>")));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Each, Selection, testing::Values(
    SelectionRow{"Whole", "", "everything"},
    SelectionRow{"OneList", "<interface/>", "interface"},
    SelectionRow{"OneEntry", "<interface><name>eth1</name></interface>", "interface[name=eth1]"},
    SelectionRow{"OneLeafOfOneEntry", "<interface><name> eth1 </name><ifindex/></interface>", "interface[name=eth1](name ifindex)"},
    SelectionRow{"OneLeafOfEvery", "<interface><ifindex/></interface>", "interface(ifindex)"},
    SelectionRow{"KeysOfEvery", "<interface><name/></interface>", "interface(name)"},
    SelectionRow{"SeveralEntries", "<interface><name>a</name></interface><interface><name>b</name></interface>", "interface[name=a] interface[name=b]"},
    SelectionRow{"ConditionOnALeaf", "<interface><packet-source>none</packet-source></interface>", "interface"},
    SelectionRow{"ConditionOnALeafAndASelection", "<interface><packet-source>none</packet-source><name/></interface>", "interface(packet-source name)"},
    SelectionRow{"ConditionAtTheContainer", "<agent-address>192.0.2.1</agent-address><interface/>", "agent-address interface"},
    SelectionRow{"OnlyAConditionAtTheContainer", "<agent-address>192.0.2.1</agent-address>", "everything"},
    SelectionRow{"SomeKeysOfSeveral", "<problem><subject>interface</subject><name>eth1</name></problem>", "problem[subject=interface][name=eth1]"},
    SelectionRow{"OneLeafOfAContainer", "<manager><pid/></manager>", "manager(pid)"},
    SelectionRow{"TwoLists", "<collector/><interface><name>eth1</name></interface>", "collector interface[name=eth1]"},
    SelectionRow{"WhatIsNotThere", "<fan/>", "nothing"},
    SelectionRow{"WhatIsNotThereInAList", "<interface><fan/></interface>", "nothing"},
    SelectionRow{"AnotherNamespace", "<interface xmlns=\"urn:x\"/>", "nothing"},
    SelectionRow{"AnyNamespace", "<interface xmlns=\"\"/>", "interface"},
    SelectionRow{"AnAttribute", "<interface xmlns:x=\"urn:x\" x:y=\"1\"/>", "nothing"},
    SelectionRow{"AnAttributeAtAKey", "<interface xmlns:x=\"urn:x\"><name x:y=\"1\">eth1</name><ifindex/></interface>", "interface(ifindex)"},
    SelectionRow{"TextInAContainer", "<manager>text</manager><interface/>", "interface"},
    SelectionRow{"BelowALeaf", "<interface><ifindex><deeper/></ifindex></interface>", "interface(ifindex)"},
    SelectionRow{"TwoWaysToOneList", "<interface><ifindex/></interface><interface/>", "interface(ifindex) interface"}),
    [](const auto& each) { return std::string(each.param.name); });
// clang-format on

TEST(Selections, OfNoFilterAreEverythingAndOfAnEmptyOneNothing)
{
    EXPECT_EQ(Selected(std::nullopt), "everything");
    EXPECT_EQ(Selected(agent::SubtreeFilter{}), "nothing");
}

TEST(Selections, AreTheSamePreparedOrNot)
{
    const auto filter = ReadFilter(
        "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><interface/></sflow></oam></state>");
    const auto* sflow = agent::FindProviderNode(Schema().Context(), "/state/oam/sflow");
    const auto* system = agent::FindProviderNode(Schema().Context(), "/state/system");
    agent::StateSelections prepared(filter), bare(filter);
    prepared.Prepare({sflow, system});
    for (agent::StateSelections* selections : {&prepared, &bare})
        for (int time = 0; time < 2; ++time) {
            const auto wanted = selections->Take(sflow);
            ASSERT_TRUE(wanted);
            EXPECT_EQ("interface", Text(wanted->children)) << "time " << time;
            EXPECT_FALSE(selections->Take(system));
        }
}

TEST(Selections, DependOnTheContainersAbove)
{
    const std::string ns = " xmlns=\"urn:switch:yang:switch-state\"";
    EXPECT_EQ(Selected(ReadFilter("<state" + ns + "/>")), "everything");
    EXPECT_EQ(Selected(ReadFilter("<state" + ns + "><oam/></state>")), "everything");
    EXPECT_EQ(Selected(ReadFilter("<state" + ns + "><system/></state>")), "nothing");
    EXPECT_EQ(Selected(ReadFilter("<config xmlns=\"urn:switch:yang:switch-config\"/>")), "nothing");
    EXPECT_EQ(Selected(ReadFilter("<state" + ns + "><oam><sflow><interface/></sflow></oam></state><state" +
                                  ns + "><oam><sflow><collector/></sflow></oam></state>")),
              "interface collector");
    EXPECT_EQ(Selected(ReadFilter("<state" + ns + "><oam><sflow><interface/></sflow><sflow/></oam></state>")),
              "everything");
}

TEST(Selections, BeyondABoundAreEverything)
{
    std::string sflow;
    for (int i = 0; i < 5000; ++i)
        sflow += "<interface><name>eth" + std::to_string(i) + "</name></interface>";
    EXPECT_EQ(Selected(ReadFilter("<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow>" + sflow +
                                  "</sflow></oam></state>")),
              "everything");
}

}  // namespace
}  // namespace agent_tests
