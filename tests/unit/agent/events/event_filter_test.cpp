// SPDX-License-Identifier: Apache-2.0
#include "agent/events/event_filter.h"

#include <gtest/gtest.h>

#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

using agent::EventElement;

constexpr std::string_view kFilterNs = "urn:example:events";

EventElement Leaf(std::string_view name, std::string text) { return {kFilterNs, name, std::move(text)}; }

EventElement Change()
{
    EventElement edit{kFilterNs, "edit"};
    edit.children = {Leaf("target", "/a"), Leaf("operation", "create")};
    EventElement other{kFilterNs, "edit"};
    other.children = {Leaf("target", "/b"), Leaf("operation", "delete")};
    EventElement change{kFilterNs, "change"};
    change.children = {Leaf("datastore", "running"), edit, other};
    return change;
}

bool Selected(const std::string& filter) { return agent::Selects(*ReadFilter(filter), Change()); }

TEST(EventFilter, SelectsByTheEventsName)
{
    EXPECT_TRUE(Selected("<change xmlns=\"urn:example:events\"/>"));
    EXPECT_TRUE(Selected("<change xmlns=\"\"/>")) << "without a namespace: any";
    EXPECT_FALSE(Selected("<change xmlns=\"urn:example:other\"/>"));
    EXPECT_FALSE(Selected("<other xmlns=\"urn:example:events\"/>"));
    EXPECT_TRUE(Selected("<other xmlns=\"urn:example:events\"/><change xmlns=\"urn:example:events\"/>"));
    EXPECT_FALSE(Selected("")) << "an empty filter selects nothing";
}

TEST(EventFilter, SelectsByContent)
{
    const auto inChange = [](const std::string& inner) {
        return Selected("<change xmlns=\"urn:example:events\">" + inner + "</change>");
    };
    EXPECT_TRUE(inChange("<datastore>running</datastore>"));
    EXPECT_FALSE(inChange("<datastore>startup</datastore>"));
    EXPECT_TRUE(inChange("<edit><target>/b</target></edit>"));
    EXPECT_FALSE(inChange("<edit><target>/c</target></edit>"));
    EXPECT_TRUE(inChange("<edit><target>/b</target><operation>delete</operation></edit>"));
    EXPECT_FALSE(inChange("<edit><target>/b</target><operation>create</operation></edit>"))
        << "both must hold of one edit";
    EXPECT_TRUE(inChange("<nothing/><edit/>")) << "one of several selections is enough";
    EXPECT_FALSE(inChange("<nothing/>"));
    EXPECT_FALSE(inChange("<datastore>startup</datastore><edit/>")) << "a content match must hold";
    EXPECT_FALSE(inChange("<edit>text</edit>")) << "an element with children has no text";
}

TEST(EventFilter, AnAttributeMatchMatchesNothing)
{
    EXPECT_FALSE(Selected("<change xmlns=\"urn:example:events\" x=\"1\"/>"));
}

TEST(EventFilter, CountsAllElements)
{
    EXPECT_EQ(0U, agent::CountElements({}));
    EXPECT_EQ(4U, agent::CountElements(*ReadFilter("<a xmlns=\"u:u\"><b/><c>1</c></a><d xmlns=\"u:u\"/>")));
}

}  // namespace
}  // namespace agent_tests
