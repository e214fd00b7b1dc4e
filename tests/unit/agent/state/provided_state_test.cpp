// SPDX-License-Identifier: Apache-2.0
// What a provider may send, and what makes its answer void.

#include "agent/state/provided_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "agent/agent_world.h"
#include "agent/clients/provider_node.h"
#include "agent/data/value_check.h"
#include "support/proto_text.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;

constexpr const char* kPath = "/state/oam/sflow";

class Provided : public testing::Test {
protected:
    /// In a part of protobuf's text form: what stands in the node at the path.
    std::string Take(const std::string& names, const std::string& node, bool more = false)
    {
        std::string text = "trees { path: '/state/oam/sflow' node { " + node + " } }";
        for (std::size_t at = 0; at < names.size();) {
            const std::size_t end = std::min(names.find(' ', at), names.size());
            text += " names: '" + names.substr(at, end - at) + "'";
            at = end + 1;
        }
        ipc::cdb::StateReply part;
        EXPECT_TRUE(support::FromText(text, part)) << text;
        part.set_more(more);
        return m_state.Take(part);
    }

    /// The values of a leaf in the container, or in the entry of a list with these keys.
    std::vector<std::string> Values(const std::string& leaf, const std::string& list = "",
                                    std::vector<std::string_view> keys = {})
    {
        std::vector<std::string> values;
        const lysc_node* sflow = agent::FindProviderNode(Schema().Context(), kPath);
        const auto child = [](const lysc_node* parent, const std::string& name) {
            return lys_find_child(parent, parent->module, name.c_str(), 0, 0, 0);
        };
        const auto add = [&](std::string_view text, bool) { values.emplace_back(text); };
        agent::StateTree::Handle at = &m_state.Tree().At(sflow);
        if (list.empty()) {
            m_state.Tree().Values(at, child(sflow, leaf), add);
            return values;
        }
        const lysc_node* schema = child(sflow, list);
        m_state.Tree().Entry(at, schema, keys, [&](agent::StateTree::Handle entry) {
            m_state.Tree().Values(entry, child(schema, leaf), add);
            return true;
        });
        return values;
    }

    agent::ProvidedState m_state{Schema().Context(), {{kPath}}};
};

using Texts = std::vector<std::string>;

TEST_F(Provided, IsKeptAsItIs)
{
    EXPECT_EQ("", Take("agent-address interface ifindex flow-collector",
                       "leaves: 0 values: '192.0.2.1' children { name: 1 keys: 'eth1' leaves: [2, 3, 3] "
                       "values: ['7', 'c1', 'c2'] } children { name: 1 keys: 'eth10' }"));
    EXPECT_EQ(Texts{"192.0.2.1"}, Values("agent-address"));
    EXPECT_EQ(Texts{"7"}, Values("ifindex", "interface", {"eth1"}));
    EXPECT_EQ((Texts{"c1", "c2"}), Values("flow-collector", "interface", {"eth1"}));
    EXPECT_EQ(Texts{"eth10"}, Values("name", "interface", {"eth10"}));
    EXPECT_EQ(Texts{}, Values("ifindex", "interface", {"eth10"}));
    EXPECT_EQ(Texts{}, Values("ifindex", "interface", {"eth2"}));
}

TEST_F(Provided, ComesInPartsOfOneTree)
{
    EXPECT_EQ("", Take("manager pid", "children { name: 0 leaves: 1 values: '1' }", true));
    EXPECT_EQ("", Take("interface", "children { name: 0 keys: 'a' } children { name: 0 keys: 'b' }", true));
    EXPECT_EQ("", Take("x interface", "children { name: 1 keys: 'c' }", true))
        << "a table of names of its own";
    EXPECT_EQ("", Take("manager session", "children { name: 0 leaves: 1 values: 'none' }"));
    EXPECT_EQ(Texts{"b"}, Values("name", "interface", {"b"}));
    EXPECT_EQ(Texts{"c"}, Values("name", "interface", {"c"}));
}

struct Bad {
    const char* name;
    const char* names;
    std::string node;
    std::string problem;
};

class BadState : public Provided, public testing::WithParamInterface<Bad> {};

TEST_P(BadState, IsRefusedAndNamed)
{
    EXPECT_THAT(Take(GetParam().names, GetParam().node), HasSubstr(GetParam().problem));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Each, BadState, testing::Values(
    Bad{"UnknownLeaf", "fan", "leaves: 0 values: '1'", "/state/oam/sflow has no leaf \"fan\""},
    Bad{"UnknownList", "fan", "children { name: 0 keys: '1' }", "has no container or list \"fan\""},
    Bad{"NumberOfNoName", "manager", "children { name: 1 }", "has no container or list number 1"},
    Bad{"LeafOfNoName", "manager", "leaves: 4000000000 values: ''", "has no leaf number 4000000000"},
    Bad{"ContainerAsALeaf", "manager", "leaves: 0 values: '1'", "manager is no leaf"},
    Bad{"LeafAsAContainer", "agent-address", "children { name: 0 }", "no container or list \"agent-address\""},
    Bad{"ContainerWithKeys", "manager", "children { name: 0 keys: 'a' }", "manager has keys"},
    Bad{"EntryWithoutKey", "interface", "children { name: 0 }", "interface has an entry without name"},
    Bad{"EntryWithTooManyKeys", "interface", "children { name: 0 keys: ['a', 'b'] }", "too many keys"},
    Bad{"KeyAmongTheLeaves", "interface name", "children { name: 0 keys: 'a' leaves: 1 values: 'a' }", "interface{a}/name is a key"},
    Bad{"KeyOfTheWrongType", "interface", "children { name: 0 keys: 'a b' }", "whose name can't be \"a b\""},
    Bad{"FewerValuesThanLeaves", "agent-address", "leaves: [0, 0] values: '192.0.2.1'", "has 2 leaves and 1 values"},
    Bad{"LeafTwice", "manager pid", "children { name: 0 leaves: [1, 1] values: ['1', '1'] }", "manager/pid is there twice"},
    Bad{"LeafTwiceInTwoPlaces", "manager pid", "children { name: 0 leaves: 1 values: '1' } children { name: 0 leaves: 1 values: '1' }", "manager/pid is there twice"},
    Bad{"EntryTwice", "interface", "children { name: 0 keys: 'a' } children { name: 0 keys: 'a' }", "interface{a} is there twice"},
    Bad{"EntriesOutOfOrder", "interface", "children { name: 0 keys: 'b' } children { name: 0 keys: 'a' }", "interface{a} is there twice, or behind"},
    Bad{"IntegerTooLarge", "interface ifindex", "children { name: 0 keys: 'a' leaves: 1 values: '4294967296' }", "interface{a}/ifindex can't be"},
    Bad{"NoInteger", "manager pid", "children { name: 0 leaves: 1 values: '1x' }", "pid can't be \"1x\""},
    Bad{"NegativeCounter", "manager operations", "children { name: 0 leaves: 1 values: '-1' }", "operations can't be"},
    Bad{"NoBoolean", "manager connected", "children { name: 0 leaves: 1 values: 'yes' }", "connected can't be"},
    Bad{"NoEnumeration", "manager session", "children { name: 0 leaves: 1 values: 'open' }", "session can't be"},
    Bad{"NoDate", "manager since", "children { name: 0 leaves: 1 values: 'yesterday' }", "since can't be"},
    Bad{"NoSuchDay", "manager since", "children { name: 0 leaves: 1 values: '2026-13-01T00:00:00Z' }", "since can't be"},
    Bad{"NoAddress", "agent-address", "leaves: 0 values: '192.0.2.256'", "agent-address can't be"},
    Bad{"NoUtf8", "interface", "children { name: 0 keys: '\\xff' }", "whose name can't be"},
    Bad{"HugeValue", "manager journal", "children { name: 0 leaves: 1 values: '" + std::string(100'000, 'x') + "' }", "journal can't be \"xxx"}),
    [](const auto& each) { return std::string(each.param.name); });
// clang-format on

TEST_F(Provided, ForAnotherPathIsRefused)
{
    ipc::cdb::StateReply part;
    part.add_trees()->set_path("/state/system");
    EXPECT_THAT(m_state.Take(part), HasSubstr("/state/system"));
}

TEST_F(Provided, NestedDeeplyIsRefused)
{
    std::string node = "children { name: 0 }";
    for (int depth = 0; depth < 50; ++depth) node = "children { name: 0 " + node + " }";
    EXPECT_THAT(Take("manager", node), HasSubstr("manager has no container or list \"manager\""));
}

TEST_F(Provided, WithoutEndIsRefused)
{
    EXPECT_EQ("", Take("interface", "children { name: 0 keys: 'a' }", true));
    EXPECT_THAT(Take("interface", "", true), HasSubstr("nothing"));
    EXPECT_EQ("", Take("", "")) << "the last part may be empty";
}

TEST_F(Provided, BeyondABoundIsRefused)
{
    const std::string value(agent::ProvidedState::kMaxValue, 'x');
    ipc::cdb::StateReply part;
    part.add_names("manager");
    part.add_names("limitation");
    part.set_more(true);
    auto& tree = *part.add_trees();
    tree.set_path(kPath);
    auto& manager = *tree.mutable_node()->add_children();
    for (int i = 0; i < 64; ++i) {
        manager.add_leaves(1);
        manager.add_values(value);
    }
    std::string problem;
    std::size_t taken = 0;
    for (; problem.empty() && taken < 100; ++taken) problem = m_state.Take(part);
    EXPECT_THAT(problem, HasSubstr("too large"));
    EXPECT_LE(taken * 64 * value.size(), agent::ProvidedState::kMaxBytes + 64 * value.size());
    ipc::cdb::StateReply names;
    for (int i = 0; i <= agent::ProvidedState::kMaxNames; ++i) names.add_names("x");
    EXPECT_THAT(agent::ProvidedState(Schema().Context(), {{kPath}}).Take(names), HasSubstr("names"));
}

TEST_F(Provided, HasTextsThatFitXml)
{
    EXPECT_EQ("",
              Take("manager limitation", "children { name: 0 leaves: 1 values: 'a\\001b\\377c\\xc3\\xa4' }"));
    const lysc_node* sflow = agent::FindProviderNode(Schema().Context(), kPath);
    const lysc_node* manager = lys_find_child(sflow, sflow->module, "manager", 0, 0, 0);
    std::string text;
    m_state.Tree().Container(&m_state.Tree().At(sflow), manager, [&](agent::StateTree::Handle at) {
        m_state.Tree().Values(at, lys_find_child(manager, manager->module, "limitation", 0, 0, 0),
                              [&](std::string_view value, bool) { text = value; });
        return true;
    });
    EXPECT_EQ("a?b?c\u00E4", text);
}

/// What libyang takes, the checker takes too and the other way round, and both write it alike.
TEST(ValueCheck, AgreesWithLibyang)
{
    agent::ValueChecker checker(Schema().Context());
    const char* kTexts[] = {"",
                            "0",
                            "-0",
                            "+5",
                            "05",
                            "1",
                            "65535",
                            "65536",
                            "-1",
                            "true",
                            "false",
                            "none",
                            "loaded",
                            "4294967295",
                            "4294967296",
                            "18446744073709551615",
                            "18446744073709551616",
                            "1.5",
                            " 1",
                            "1 ",
                            "0x10",
                            "a",
                            "192.0.2.1",
                            "192.0.2.1%eth0",
                            "eth1",
                            "eth 1",
                            "-2147483648",
                            "2147483648"};
    std::size_t compared = 0;
    const auto compare = [&](const lysc_node* leaf) {
        for (const char* text : kTexts) {
            const char* canonical = nullptr;
            const bool fits = lyd_value_validate(Schema().Context(), leaf, text, std::strlen(text), nullptr,
                                                 nullptr, &canonical) == LY_SUCCESS;
            const auto checked = checker.Check(leaf, text);
            EXPECT_EQ(fits, checked.has_value()) << leaf->name << " " << text;
            if (fits && checked) {
                EXPECT_EQ(canonical, std::string(*checked)) << leaf->name << " " << text;
            }
            if (fits) lydict_remove(Schema().Context(), canonical);
            ++compared;
        }
    };
    const std::function<void(const lysc_node*)> visit = [&](const lysc_node* node) {
        if ((node->nodetype & LYD_NODE_TERM) != 0) compare(node);
        for (const lysc_node* child = lysc_node_child(node); child != nullptr; child = child->next)
            visit(child);
    };
    visit(agent::FindProviderNode(Schema().Context(), "/state"));
    EXPECT_GT(compared, 1000U);
}

TEST(ValueCheck, TakesDatesAsTheyAre)
{
    agent::ValueChecker checker(Schema().Context());
    const lysc_node* manager = agent::FindProviderNode(Schema().Context(), "/state/oam/sflow/manager");
    const lysc_node* since = lys_find_child(manager, manager->module, "since", 0, 0, 0);
    for (const char* date : {"2026-11-21T06:00:11.123Z", "2026-11-21T06:00:11Z", "2026-02-28T23:59:60+13:45",
                             "2026-11-21T06:00:11.000001-00:00"})
        EXPECT_EQ(date, checker.Check(since, date).value_or("refused"));
    for (const char* date :
         {"2026-11-21 06:00:11Z", "2026-11-21T06:00:11", "2026-11-21T24:00:11Z", "2026-11-21T06:60:11Z",
          "2026-11-32T06:00:11Z", "2026-11-21T06:00:11.Z", "26-11-21T06:00:11Z"})
        EXPECT_FALSE(checker.Check(since, date)) << date;
}

}  // namespace
}  // namespace agent_tests
