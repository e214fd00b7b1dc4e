// SPDX-License-Identifier: Apache-2.0
// Messages that do not become requests: which error each gets.

#include "agent/netconf/rpc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>

#include "agent/agent_world.h"
#include "agent/rpc_text.h"

namespace {

using agent_tests::InRpc;
using agent_tests::kBase;

std::variant<agent::Rpc, agent::BadRpc> ReadMessage(const std::string& message, bool base11 = true)
{
    return agent::ReadRpc(agent_tests::Index(), message, base11);
}

struct BadRpcCase {
    const char* name;
    std::string message;
    const char* type;
    const char* tag;
    std::vector<std::pair<std::string, std::string>> info;
};

class BadRpcTest : public testing::TestWithParam<BadRpcCase> {};

std::string Deep()
{
    std::string text;
    for (int i = 0; i < 100'000; ++i) text += "<a xmlns='urn:x'>";
    for (int i = 0; i < 100'000; ++i) text += "</a>";
    return text;
}

/// Stands for Deep() in a message of the table, which the process of each test makes.
const std::string kDeep = "{deep}";

std::string WithDeep(std::string message)
{
    const auto place = message.find(kDeep);
    return place == std::string::npos ? message : message.replace(place, kDeep.size(), Deep());
}

TEST_P(BadRpcTest, IsRefusedWith)
{
    const auto result = ReadMessage(WithDeep(GetParam().message));
    const auto* bad = std::get_if<agent::BadRpc>(&result);
    ASSERT_NE(bad, nullptr);
    EXPECT_EQ(bad->error.type, GetParam().type) << bad->error.message;
    EXPECT_EQ(bad->error.tag, GetParam().tag) << bad->error.message;
    EXPECT_EQ(bad->error.info, GetParam().info) << bad->error.message;
    EXPECT_FALSE(bad->error.message.empty());
    EXPECT_EQ(bad->error.severity, "error");
}

const std::string kCandidate = "<target><candidate/></target>";

INSTANTIATE_TEST_SUITE_P(
    Table, BadRpcTest,
    testing::Values(
        BadRpcCase{"Empty", "", "rpc", "malformed-message", {}},
        BadRpcCase{"NoXml", "hello", "rpc", "malformed-message", {}},
        BadRpcCase{"Unclosed", InRpc("<get>"), "rpc", "malformed-message", {}},
        BadRpcCase{"UnclosedCommit", InRpc("<commit>"), "rpc", "malformed-message", {}},
        BadRpcCase{"NoUtf8", InRpc("<get>\xff</get>"), "rpc", "malformed-message", {}},
        BadRpcCase{"NoUtf8InAnEdit", InRpc("<commit>\xff</commit>"), "rpc", "malformed-message", {}},
        BadRpcCase{"DocumentType", "<!DOCTYPE rpc>" + InRpc("<get/>"), "rpc", "malformed-message", {}},
        BadRpcCase{"TooDeep",
                   InRpc("<edit-config>" + kCandidate + "<config>" + kDeep + "</config></edit-config>"),
                   "application",
                   "unknown-namespace",
                   {{"bad-element", "a"}, {"bad-namespace", "urn:x"}}},
        BadRpcCase{"TooDeepFilter", InRpc("<get><filter>" + kDeep + "</filter></get>"), "rpc", "too-big", {}},
        BadRpcCase{"NoRpc",
                   "<hello xmlns=\"" + kBase + "\"/>",
                   "protocol",
                   "unknown-element",
                   {{"bad-element", "hello"}}},
        BadRpcCase{"RpcOfAnotherNamespace",
                   "<rpc xmlns='urn:x' message-id='1'><get/></rpc>",
                   "protocol",
                   "unknown-element",
                   {{"bad-element", "rpc"}}},
        BadRpcCase{"NoMessageId",
                   "<rpc xmlns=\"" + kBase + "\"><get/></rpc>",
                   "rpc",
                   "missing-attribute",
                   {{"bad-attribute", "message-id"}, {"bad-element", "rpc"}}},
        BadRpcCase{
            "NoOperation", InRpc(""), "protocol", "missing-element", {{"bad-element", "rpcOperation"}}},
        BadRpcCase{"UnknownOperation",
                   InRpc("<make-tea/>"),
                   "protocol",
                   "operation-not-supported",
                   {{"bad-element", "make-tea"}}},
        BadRpcCase{"UnknownNamespace",
                   InRpc("<get xmlns='urn:x'/>"),
                   "protocol",
                   "operation-not-supported",
                   {{"bad-element", "get"}}},
        BadRpcCase{"DataForAnOperation",
                   InRpc("<config xmlns='urn:switch:yang:switch-config'/>"),
                   "protocol",
                   "operation-not-supported",
                   {{"bad-element", "config"}}},
        BadRpcCase{"TwoOperations",
                   InRpc("<commit/><commit/>"),
                   "protocol",
                   "unknown-element",
                   {{"bad-element", "commit"}}},
        BadRpcCase{"UnknownParameter",
                   InRpc("<commit><now/></commit>"),
                   "protocol",
                   "unknown-element",
                   {{"bad-element", "now"}}},
        BadRpcCase{"ParameterOfUnknownNamespace",
                   InRpc("<commit><now xmlns='urn:x'/></commit>"),
                   "protocol",
                   "unknown-namespace",
                   {{"bad-element", "now"}, {"bad-namespace", "urn:x"}}},
        BadRpcCase{"UnknownAttribute",
                   InRpc("<commit now='1'/>"),
                   "protocol",
                   "unknown-attribute",
                   {{"bad-attribute", "now"}, {"bad-element", "commit"}}},
        BadRpcCase{"MissingParameter",
                   InRpc("<kill-session/>"),
                   "protocol",
                   "missing-element",
                   {{"bad-element", "session-id"}}},
        BadRpcCase{"MissingSource",
                   InRpc("<get-config/>"),
                   "protocol",
                   "missing-element",
                   {{"bad-element", "source"}}},
        BadRpcCase{"TwoSources",
                   InRpc("<get-config><source><running/><candidate/></source></get-config>"),
                   "protocol",
                   "bad-element",
                   {{"bad-element", "candidate"}}},
        BadRpcCase{"UnknownSource",
                   InRpc("<get-config><source><startup/></source></get-config>"),
                   "protocol",
                   "unknown-element",
                   {{"bad-element", "startup"}}},
        BadRpcCase{"EditOfRunning",
                   InRpc("<edit-config><target><running/></target><config/></edit-config>"),
                   "protocol",
                   "unknown-element",
                   {{"bad-element", "running"}}},
        BadRpcCase{"BadValue",
                   InRpc("<kill-session><session-id>x</session-id></kill-session>"),
                   "protocol",
                   "invalid-value",
                   {{"bad-element", "session-id"}}},
        BadRpcCase{"ValueOutOfRange",
                   InRpc("<kill-session><session-id>0</session-id></kill-session>"),
                   "protocol",
                   "invalid-value",
                   {{"bad-element", "session-id"}}},
        BadRpcCase{"ParameterTwice",
                   InRpc("<kill-session><session-id>3</session-id><session-id>3</session-id></kill-session>"),
                   "protocol",
                   "bad-element",
                   {{"bad-element", "session-id"}}},
        BadRpcCase{"BadOption",
                   InRpc("<edit-config>" + kCandidate +
                         "<error-option>ignore</error-option><config/></edit-config>"),
                   "protocol",
                   "invalid-value",
                   {{"bad-element", "error-option"}}},
        BadRpcCase{"XPathFilter",
                   InRpc("<get><filter type='xpath' select='/x'/></get>"),
                   "protocol",
                   "bad-attribute",
                   {{"bad-attribute", "type"}, {"bad-element", "filter"}}},
        BadRpcCase{"TwoFilters",
                   InRpc("<get><filter/><filter/></get>"),
                   "protocol",
                   "bad-element",
                   {{"bad-element", "filter"}}}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(Rpc, NamesTheNamespaceOfAnOperation)
{
    const auto messageOf = [](const std::string& operation) {
        const auto result =
            ReadMessage("<b:rpc xmlns:b='" + kBase + "' message-id='1'>" + operation + "</b:rpc>");
        const auto* bad = std::get_if<agent::BadRpc>(&result);
        return bad == nullptr ? "" : bad->error.message;
    };
    EXPECT_EQ("there is no operation \"lock\" without a namespace; give it the namespace \"" + kBase + "\"",
              messageOf("<lock><target><candidate/></target></lock>"));
    EXPECT_EQ("there is no operation \"backup\" in the namespace \"" + kBase +
                  "\"; give it the namespace \"urn:switch:yang:switch-system\"",
              messageOf("<b:backup/>"));
    EXPECT_EQ("there is no operation \"make-tea\" in the namespace \"urn:x\"",
              messageOf("<make-tea xmlns='urn:x'/>"));
}

TEST(Rpc, GivesOldClientsNoTagThatTheyDoNotKnow)
{
    const auto result = ReadMessage("hello", false);
    EXPECT_EQ(std::get<agent::BadRpc>(result).error.tag, "operation-failed");
}

TEST(Rpc, KeepsTheAttributesForTheReply)
{
    const auto result =
        ReadMessage("<n:rpc xmlns:n=\"" + kBase +
                    "\" message-id=\"a&quot;&lt;\" xmlns:p=\"urn:p\" p:x=\"1\" p:y=\"2\" z=\"3\">"
                    "<n:commit/></n:rpc>");
    EXPECT_EQ(std::get<agent::Rpc>(result).attributes,
              " xmlns:n=\"" + kBase +
                  "\" xmlns:p=\"urn:p\" message-id=\"a&quot;&lt;\" p:x=\"1\" p:y=\"2\" z=\"3\"");
}

/// Also prefixes that no attribute uses; not the default namespace, which is the reply's own.
TEST(Rpc, KeepsThePrefixesForTheReply)
{
    const auto result =
        ReadMessage("<n:rpc xmlns:n=\"" + kBase +
                    "\" xmlns=\"urn:x\" xmlns:q=\"urn:q&amp;\" message-id=\"1\"><commit/></n:rpc>");
    EXPECT_EQ(std::get<agent::BadRpc>(result).attributes,
              " xmlns:n=\"" + kBase + "\" xmlns:q=\"urn:q&amp;\" message-id=\"1\"");
}

TEST(Rpc, KeepsTheAttributesOfABadOneToo)
{
    EXPECT_EQ(std::get<agent::BadRpc>(ReadMessage(InRpc("<make-tea/>", "message-id=\"7\""))).attributes,
              " message-id=\"7\"");
}

TEST(Rpc, FillsInTheOperationsDefaults)
{
    const auto result = ReadMessage(InRpc("<edit-config>" + kCandidate + "<config/></edit-config>"));
    const auto& rpc = std::get<agent::Rpc>(result);
    EXPECT_EQ(agent::ChildText(rpc.operation.get(), "default-operation"), "merge");
    EXPECT_EQ(agent::ChildText(rpc.operation.get(), "test-option"), "test-then-set");
    EXPECT_EQ(rpc.filter, std::nullopt);
}

}  // namespace
