// SPDX-License-Identifier: Apache-2.0
// What a question selects.

#include "manager/status/state_wanted.h"

#include <gtest/gtest.h>

#include "ipc/cdb.pb.h"
#include "support/proto_text.h"

namespace manager {
namespace {

WantedState Wanted(const std::string& text)
{
    ipc::cdb::StateRequest::Part part;
    EXPECT_TRUE(support::FromText(text, part)) << text;
    return WantedState::From(part);
}

TEST(WantedState, IsEverythingWhereNothingIsSelected)
{
    const WantedState wanted = Wanted("path: '/state/oam/sflow'");
    EXPECT_TRUE(wanted.manager->Has("pid"));
    EXPECT_TRUE(wanted.agentAddress && wanted.subAgent);
    EXPECT_TRUE(wanted.collectors.Of("any")->Has("port"));
    EXPECT_TRUE(wanted.interfaces.Of("any")->Has("ifindex"));
    EXPECT_TRUE(wanted.problems.agent);
    EXPECT_TRUE(wanted.problems.collectors.Has("any"));
    EXPECT_TRUE(wanted.problems.interfaces.Has("any"));
}

TEST(WantedState, IsOneEntryWithItsKey)
{
    const WantedState wanted = Wanted("children { name: 'interface' keys { name: 'name' value: 'eth1' } }");
    EXPECT_FALSE(wanted.manager);
    EXPECT_FALSE(wanted.agentAddress || wanted.subAgent);
    EXPECT_TRUE(wanted.collectors.None());
    EXPECT_TRUE(wanted.interfaces.Of("eth1")->Has("ifindex"));
    EXPECT_EQ(nullptr, wanted.interfaces.Of("eth2"));
    EXPECT_TRUE(wanted.problems.interfaces.None());
}

TEST(WantedState, IsTheLeavesThatAreNamed)
{
    const WantedState wanted = Wanted(
        "children { name: 'interface' keys { name: 'name' value: 'eth1' } children { name: 'ifindex' } }"
        "children { name: 'interface' keys { name: 'name' value: 'eth1' } children { name: 'problem' } }"
        "children { name: 'manager' children { name: 'pid' } } children { name: 'manager' children { name: "
        "'since' } }"
        "children { name: 'agent-address' } children { name: 'sub-agent' }");
    EXPECT_TRUE(wanted.interfaces.Of("eth1")->Has("ifindex"));
    EXPECT_TRUE(wanted.interfaces.Of("eth1")->Has("problem"));
    EXPECT_FALSE(wanted.interfaces.Of("eth1")->Has("packets-seen"));
    EXPECT_TRUE(wanted.interfaces.Has("problem"));
    EXPECT_FALSE(wanted.interfaces.Has("packets-seen"));
    EXPECT_TRUE(wanted.manager->Has("pid") && wanted.manager->Has("since"));
    EXPECT_FALSE(wanted.manager->Has("session"));
    EXPECT_TRUE(wanted.agentAddress && wanted.subAgent);
}

TEST(WantedState, OfEveryEntryIsWantedOfTheNamedOnesToo)
{
    const WantedState wanted = Wanted(
        "children { name: 'collector' keys { name: 'name' value: 'c1' } children { name: 'port' } }"
        "children { name: 'collector' children { name: 'errors' } }"
        "children { name: 'collector' children { name: 'sending' } }");
    EXPECT_TRUE(wanted.collectors.Of("c1")->Has("port"));
    EXPECT_TRUE(wanted.collectors.Of("c1")->Has("errors"));
    EXPECT_TRUE(wanted.collectors.Of("c2")->Has("errors"));
    EXPECT_TRUE(wanted.collectors.Of("c2")->Has("sending"));
    EXPECT_FALSE(wanted.collectors.Of("c2")->Has("port"));
}

TEST(WantedState, IsTheProblemsOfASubjectOrAName)
{
    const auto problems = [](const std::string& keys) {
        return Wanted("children { name: 'problem' " + keys + "}").problems;
    };
    const std::string name = "keys { name: 'name' value: 'x' }";
    const auto all = problems("");
    EXPECT_TRUE(all.agent && all.collectors.all && all.interfaces.all);
    const auto collectors = problems("keys { name: 'subject' value: 'collector' }");
    EXPECT_TRUE(!collectors.agent && collectors.collectors.all && collectors.interfaces.None());
    const auto named = problems(name);
    EXPECT_TRUE(!named.agent && named.collectors.Has("x") && named.interfaces.Has("x"));
    EXPECT_FALSE(named.collectors.Has("y") || named.interfaces.Has("y"));
    const auto one = problems("keys { name: 'subject' value: 'interface' } " + name);
    EXPECT_TRUE(!one.agent && one.collectors.None() && one.interfaces.Has("x"));
    const auto reason = problems("keys { name: 'reason' value: 'refused' }");
    EXPECT_TRUE(reason.agent && reason.collectors.all && reason.interfaces.all);
}

TEST(WantedState, IsNothingOfWhatTheManagerDoesNotHave)
{
    const WantedState wanted = Wanted("children { name: 'fans' }");
    EXPECT_FALSE(wanted.manager || wanted.agentAddress || wanted.problems.agent);
    EXPECT_TRUE(wanted.collectors.None() && wanted.interfaces.None());
}

}  // namespace
}  // namespace manager
