// SPDX-License-Identifier: Apache-2.0
// State as a tree: its order, its look-ups, and how two become one.

#include "agent/state/state_tree.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <string>
#include <vector>

#include "agent/agent_world.h"
#include "agent/clients/provider_node.h"

namespace agent_tests {
namespace {

const lysc_node* StateNode(const char* path) { return agent::FindProviderNode(Schema().Context(), path); }

const lysc_node* Child(const lysc_node* parent, const char* name)
{
    return lys_find_child(parent, parent->module, name, 0, 0, 0);
}

const lysc_node* SflowState() { return StateNode("/state/oam/sflow"); }

/// The names of a list's entries.
std::vector<std::string> Names(agent::StateTree& tree, const lysc_node* list, std::size_t most = 100)
{
    std::vector<std::string> names;
    tree.Entries(&tree.At(list->parent), list, [&](agent::StateTree::Handle entry) {
        tree.Values(entry, Child(list, "name"),
                    [&](std::string_view text, bool) { names.emplace_back(text); });
        return names.size() < most;
    });
    return names;
}

TEST(StateTree, TakesEntriesInOrderOnly)
{
    agent::StateTree tree;
    EXPECT_TRUE(tree.Empty());
    const lysc_node* list = Child(SflowState(), "interface");
    auto& sflow = tree.At(SflowState());
    EXPECT_FALSE(tree.Empty());
    EXPECT_NE(agent::StateTree::Append(sflow, list, {"b"}), nullptr);
    EXPECT_EQ(agent::StateTree::Append(sflow, list, {"b"}), nullptr);
    EXPECT_EQ(agent::StateTree::Append(sflow, list, {"a"}), nullptr);
    EXPECT_NE(agent::StateTree::Append(sflow, list, {"b1"}), nullptr);
    EXPECT_EQ(Names(tree, list), (std::vector<std::string>{"b", "b1"}));
    EXPECT_EQ(Names(tree, list, 1), (std::vector<std::string>{"b"})) << "the visitor has enough";
}

TEST(StateTree, IsEnteredFromTheTop)
{
    agent::StateTree tree;
    tree.At(SflowState()).leaves.push_back({Child(SflowState(), "agent-address"), tree.Keep("192.0.2.1")});
    std::string found;
    tree.Container(nullptr, StateNode("/state"), [&](agent::StateTree::Handle state) {
        tree.Container(state, StateNode("/state/system"), [&](agent::StateTree::Handle) {
            found += "system";
            return true;
        });
        tree.Container(state, StateNode("/state/oam"), [&](agent::StateTree::Handle oam) {
            tree.Container(oam, SflowState(), [&](agent::StateTree::Handle sflow) {
                tree.Values(sflow, Child(SflowState(), "agent-address"),
                            [&](std::string_view text, bool isDefault) { found += isDefault ? "" : text; });
                return true;
            });
            return true;
        });
        return true;
    });
    EXPECT_EQ(found, "192.0.2.1");
}

TEST(StateTree, AdoptsAnotherWithItsTexts)
{
    agent::StateTree tree;
    const lysc_node* processes = Child(StateNode("/state/system"), "process");
    agent::StateTree::Append(tree.At(StateNode("/state/system")), processes,
                             {tree.Keep("cdbd"), tree.Keep("1")});
    const lysc_node* list = Child(SflowState(), "collector");
    {
        agent::StateTree other;
        agent::StateTree::Append(other.At(SflowState()), list,
                                 {other.Keep(std::string("c1 of another tree"))});
        tree.Adopt(std::move(other));
    }
    EXPECT_EQ(Names(tree, list), (std::vector<std::string>{"c1 of another tree"}));
    EXPECT_EQ(Names(tree, processes), (std::vector<std::string>{"cdbd"}));
    std::size_t tops = 0;
    tree.Container(nullptr, StateNode("/state"), [&](agent::StateTree::Handle) { return ++tops > 0; });
    EXPECT_EQ(tops, 1U);
}

}  // namespace
}  // namespace agent_tests
