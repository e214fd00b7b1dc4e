// SPDX-License-Identifier: Apache-2.0
// Hostile and malformed messages: which error each gets, where, and with what information.
// None of them reaches libyang.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "agent/agent_world.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

using Info = std::vector<std::pair<std::string, std::string>>;

std::string Times(std::size_t count, const std::string& text)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
}

std::string Numbered(std::size_t count, const std::string& before, const std::string& after)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += before + std::to_string(i) + after;
    return all;
}

/// Below the container sflow, as <error-path> has it.
std::string SflowPath(const std::string& below)
{
    return "/switch-config:config/switch-oam-sflow:oam/switch-oam-sflow:sflow" + below;
}

struct HostileRpc {
    const char* name;
    std::string message;
    const char* type;
    const char* tag;
    std::string path;
    Info info;
};

void PrintTo(const HostileRpc& each, std::ostream* out) { *out << each.name; }

class Hostile : public testing::TestWithParam<HostileRpc> {};

TEST_P(Hostile, IsRefusedWith)
{
    const auto result = agent::ReadRpc(Index(), GetParam().message, true);
    const auto* bad = std::get_if<agent::BadRpc>(&result);
    ASSERT_NE(bad, nullptr);
    EXPECT_EQ(bad->error.type, GetParam().type) << bad->error.message;
    EXPECT_EQ(bad->error.tag, GetParam().tag) << bad->error.message;
    EXPECT_EQ(bad->error.path, GetParam().path) << bad->error.message;
    EXPECT_EQ(bad->error.info, GetParam().info) << bad->error.message;
    EXPECT_FALSE(bad->error.message.empty());
    for (const char* name : {"switch-config", "switch-oam-sflow", "ietf-netconf"})
        EXPECT_EQ(bad->error.path.find(std::string(name) + ":") != std::string::npos,
                  std::any_of(bad->error.prefixes.begin(), bad->error.prefixes.end(),
                              [name](const auto& prefix) { return prefix.first == name; }))
            << name;
}

const std::string kCollectorPath = "/switch-oam-sflow:collector";
const std::string kCollector1Path = kCollectorPath + "[switch-oam-sflow:name='c1']";
const std::string kEditPath = "/ietf-netconf:rpc/ietf-netconf:edit-config";

std::string NameOfHostile(const testing::TestParamInfo<HostileRpc>& each) { return each.param.name; }

INSTANTIATE_TEST_SUITE_P(
    Elements, Hostile,
    testing::Values(
        HostileRpc{"TwinsOneWithoutNamespace",
                   InConfig("<a xmlns=\"\"/><a xmlns=\"urn:x\"/>"),
                   "application",
                   "unknown-namespace",
                   "",
                   {{"bad-element", "a"}, {"bad-namespace", ""}}},
        HostileRpc{"NoNamespaceInside",
                   InSflow("<agent xmlns=\"\"/>"),
                   "application",
                   "unknown-namespace",
                   SflowPath(""),
                   {{"bad-element", "agent"}, {"bad-namespace", ""}}},
        HostileRpc{"NoNamespaceAsParameter",
                   InRpc("<commit><confirmed xmlns=\"\"/></commit>"),
                   "protocol",
                   "unknown-namespace",
                   "/ietf-netconf:rpc/ietf-netconf:commit",
                   {{"bad-element", "confirmed"}, {"bad-namespace", ""}}},
        HostileRpc{"UnknownNamespace",
                   InSflow("<x xmlns=\"urn:x\"/>"),
                   "application",
                   "unknown-namespace",
                   SflowPath(""),
                   {{"bad-element", "x"}, {"bad-namespace", "urn:x"}}},
        HostileRpc{"NamespaceOfAnotherModule",
                   InConfig("<config xmlns=\"" + kSflowNamespace + "\"/>"),
                   "application",
                   "unknown-element",
                   "/switch-oam-sflow:config",
                   {{"bad-element", "config"}}},
        HostileRpc{"UnknownAtTheTop",
                   InConfig("<x xmlns=\"" + kConfigNamespace + "\"/>"),
                   "application",
                   "unknown-element",
                   "/switch-config:x",
                   {{"bad-element", "x"}}},
        HostileRpc{"Unknown",
                   InSflow(Collector("c1", "<colour/>")),
                   "application",
                   "unknown-element",
                   SflowPath(kCollector1Path + "/switch-oam-sflow:colour"),
                   {{"bad-element", "colour"}}},
        HostileRpc{"ManyUnknown",
                   InConfig(Times(2'000, "<a/>")),
                   "application",
                   "unknown-element",
                   "/ietf-netconf:a",
                   {{"bad-element", "a"}}},
        HostileRpc{"KeyTwice",
                   InSflow("<collector><name>c7</name><name>c8</name><ip>192.0.2.1</ip></collector>"),
                   "application",
                   "bad-element",
                   SflowPath(kCollectorPath + "[switch-oam-sflow:name='c7']/switch-oam-sflow:name"),
                   {{"bad-element", "name"}}},
        HostileRpc{"KeyManyTimes",
                   InSflow("<collector>" + Times(1'000, "<name>c1</name>") + "</collector>"),
                   "application",
                   "bad-element",
                   SflowPath(kCollector1Path + "/switch-oam-sflow:name"),
                   {{"bad-element", "name"}}},
        HostileRpc{"LeafManyTimes",
                   InSflow("<collector><name>c1</name>" + Times(1'000, "<port>1</port>")),
                   "application",
                   "bad-element",
                   SflowPath(kCollector1Path + "/switch-oam-sflow:port"),
                   {{"bad-element", "port"}}},
        HostileRpc{"ContainerTwice",
                   InSflow("<agent/><agent/>"),
                   "application",
                   "bad-element",
                   SflowPath("/switch-oam-sflow:agent"),
                   {{"bad-element", "agent"}}},
        HostileRpc{"NoKey",
                   InSflow(Times(2'000, "<collector/>")),
                   "application",
                   "missing-element",
                   SflowPath(kCollectorPath),
                   {{"bad-element", "name"}}},
        HostileRpc{"LeafWithElements",
                   InSflow(Collector("c1", "<ip><a/></ip>")),
                   "application",
                   "unknown-element",
                   SflowPath(kCollector1Path + "/switch-oam-sflow:ip"),
                   {{"bad-element", "a"}}},
        HostileRpc{"ContainerWithText",
                   InSflow("<agent>text</agent>"),
                   "application",
                   "bad-element",
                   SflowPath("/switch-oam-sflow:agent"),
                   {{"bad-element", "agent"}}},
        HostileRpc{"ConfigWithText",
                   InConfig("text"),
                   "application",
                   "bad-element",
                   "",
                   {{"bad-element", "config"}}},
        HostileRpc{"TextBetweenElements",
                   InSflow("<agent/>text"),
                   "application",
                   "bad-element",
                   SflowPath(""),
                   {{"bad-element", "sflow"}}},
        HostileRpc{
            "TextInRpc", InRpc("text<commit/>"), "protocol", "bad-element", "", {{"bad-element", "rpc"}}},
        HostileRpc{"State",
                   InConfig("<state xmlns='urn:switch:yang:switch-state'/>"),
                   "application",
                   "invalid-value",
                   "/switch-state:state",
                   {{"bad-element", "state"}}},
        HostileRpc{"ManyUnknownParameters",
                   InRpc("<commit>" + Times(2'000, "<a/>") + "</commit>"),
                   "protocol",
                   "unknown-element",
                   "/ietf-netconf:rpc/ietf-netconf:commit/ietf-netconf:a",
                   {{"bad-element", "a"}}},
        HostileRpc{"ParameterManyTimes",
                   InRpc("<kill-session>" + Times(2'000, "<session-id>1</session-id>") + "</kill-session>"),
                   "protocol",
                   "bad-element",
                   "/ietf-netconf:rpc/ietf-netconf:kill-session/ietf-netconf:session-id",
                   {{"bad-element", "session-id"}}},
        HostileRpc{"EntryManyTimes",
                   InSflow(Times(100, "<collector><name>c1</name></collector>")),
                   "application",
                   "bad-element",
                   SflowPath(kCollector1Path),
                   {{"bad-element", "collector"}}},
        HostileRpc{"EntryManyTimesAmongOthers",
                   InSflow(Times(9, Numbered(100, "<collector><name>c", "</name></collector>"))),
                   "application",
                   "bad-element",
                   SflowPath(kCollectorPath + "[switch-oam-sflow:name='c0']"),
                   {{"bad-element", "collector"}}},
        HostileRpc{"KeyInBothQuotes",
                   InSflow("<collector><name>'\"</name><colour/></collector>"),
                   "application",
                   "unknown-element",
                   SflowPath(kCollectorPath + "/switch-oam-sflow:colour"),
                   {{"bad-element", "colour"}}}),
    NameOfHostile);

INSTANTIATE_TEST_SUITE_P(
    Attributes, Hostile,
    testing::Values(
        HostileRpc{"UnqualifiedOperation",
                   InSflow("<agent operation=\"delete\"/>"),
                   "application",
                   "unknown-attribute",
                   SflowPath("/switch-oam-sflow:agent"),
                   {{"bad-attribute", "operation"}, {"bad-element", "agent"}}},
        HostileRpc{"OperationOfAnotherNamespace",
                   InSflow("<agent xmlns:x=\"urn:x\" x:operation=\"delete\"/>"),
                   "application",
                   "unknown-attribute",
                   SflowPath("/switch-oam-sflow:agent"),
                   {{"bad-attribute", "operation"}, {"bad-element", "agent"}}},
        HostileRpc{"UnknownAttribute",
                   InSflow("<agent nc:colour=\"red\"/>"),
                   "application",
                   "unknown-attribute",
                   SflowPath("/switch-oam-sflow:agent"),
                   {{"bad-attribute", "colour"}, {"bad-element", "agent"}}},
        HostileRpc{"DefaultAttribute",
                   InSflow(Collector("c1",
                                     "<port xmlns:wd=\"urn:ietf:params:xml:ns:netconf:default:1.0\" "
                                     "wd:default=\"maybe\">6343</port>")),
                   "application",
                   "bad-attribute",
                   SflowPath(kCollector1Path + "/switch-oam-sflow:port"),
                   {{"bad-attribute", "default"}, {"bad-element", "port"}}},
        HostileRpc{"BadOperation",
                   InSflow("<agent nc:operation=\"melt\"/>"),
                   "application",
                   "bad-attribute",
                   SflowPath("/switch-oam-sflow:agent"),
                   {{"bad-attribute", "operation"}, {"bad-element", "agent"}}},
        HostileRpc{"EmptyOperation",
                   InSflow("<agent nc:operation=\"\"/>"),
                   "application",
                   "bad-attribute",
                   SflowPath("/switch-oam-sflow:agent"),
                   {{"bad-attribute", "operation"}, {"bad-element", "agent"}}},
        HostileRpc{
            "OperationTwice",
            InSflow("<agent xmlns:b=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"delete\" "
                    "b:operation=\"merge\"/>"),
            "rpc",
            "malformed-message",
            "",
            {}},
        HostileRpc{"AttributeTwice",
                   InRpc("<commit/>", "message-id='1' message-id='2'"),
                   "rpc",
                   "malformed-message",
                   "",
                   {}},
        HostileRpc{"OperationOnConfig",
                   InRpc("<edit-config><target><candidate/></target><config "
                         "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"delete\"/>"
                         "</edit-config>"),
                   "protocol",
                   "unknown-attribute",
                   kEditPath + "/ietf-netconf:config",
                   {{"bad-attribute", "operation"}, {"bad-element", "config"}}},
        HostileRpc{"ManyOnRpc",
                   InRpc("<commit/>", "message-id='1' " + Numbered(200, "a", "='1' ")),
                   "rpc",
                   "too-big",
                   "",
                   {}},
        HostileRpc{"ManyPrefixedOnRpc",
                   InRpc("<commit/>", "message-id='1' xmlns:p='urn:p' " + Numbered(200, "p:a", "='1' ")),
                   "rpc",
                   "too-big",
                   "",
                   {}},
        HostileRpc{"ManyNamespaces",
                   InConfig("<a " + Numbered(200, "xmlns:n", "='urn:n' ") + "/>"),
                   "rpc",
                   "too-big",
                   "",
                   {}},
        HostileRpc{
            "ManyInAFilter", InFilter("<a " + Numbered(65, "a", "='1' ") + "/>"), "rpc", "too-big", "", {}},
        HostileRpc{"UnknownOnFilter",
                   InRpc("<get><filter colour='red'/></get>"),
                   "protocol",
                   "unknown-attribute",
                   "/ietf-netconf:rpc/ietf-netconf:get/ietf-netconf:filter",
                   {{"bad-attribute", "colour"}, {"bad-element", "filter"}}}),
    NameOfHostile);

INSTANTIATE_TEST_SUITE_P(
    Sizes, Hostile,
    testing::Values(
        HostileRpc{"LongText",
                   InSflow(Collector("c1", "<ip>" + std::string(70'000, '1') + "</ip>")),
                   "application",
                   "too-big",
                   SflowPath(kCollector1Path + "/switch-oam-sflow:ip"),
                   {{"bad-element", "ip"}}},
        HostileRpc{"LongKey",
                   InSflow("<collector><name>" + std::string(70'000, 'c') + "</name></collector>"),
                   "application",
                   "too-big",
                   SflowPath(kCollectorPath + "/switch-oam-sflow:name"),
                   {{"bad-element", "name"}}},
        HostileRpc{"LongTextInAFilter",
                   InFilter("<a>" + std::string(70'000, 'c') + "</a>"),
                   "protocol",
                   "too-big",
                   "",
                   {{"bad-element", "filter"}}},
        HostileRpc{"LongAttribute",
                   InRpc("<commit/>", "message-id='" + std::string(70'000, '1') + "'"),
                   "rpc",
                   "too-big",
                   "",
                   {}},
        HostileRpc{"LongName", InConfig("<" + std::string(2'000, 'a') + "/>"), "rpc", "too-big", "", {}},
        HostileRpc{"LongNamespace",
                   InConfig("<a xmlns='urn:" + std::string(2'000, 'a') + "'/>"),
                   "rpc",
                   "too-big",
                   "",
                   {}},
        HostileRpc{"LargeFilter",
                   InFilter(Times(70'000, "<a/>")),
                   "protocol",
                   "too-big",
                   "",
                   {{"bad-element", "filter"}}},
        HostileRpc{"DeepFilter", InFilter(Times(126, "<a>") + Times(126, "</a>")), "rpc", "too-big", "", {}}),
    NameOfHostile);

TEST(HostileMessage, HasABoundOfElements)
{
    guard::Limits limits;
    limits.xml.elements = 10;
    const std::string message = InSflow(Numbered(3, "<collector><name>c", "</name></collector>"));
    const auto result = agent::ReadRpc(Index(), message, true, limits);
    EXPECT_EQ(std::get<agent::BadRpc>(result).error.tag, "too-big");
    EXPECT_TRUE(std::holds_alternative<agent::Rpc>(agent::ReadRpc(Index(), message, true)));
}

}  // namespace
}  // namespace agent_tests
