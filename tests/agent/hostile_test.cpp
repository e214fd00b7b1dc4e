// SPDX-License-Identifier: Apache-2.0
// Messages that mean harm or make no sense: which error each gets, where, and with what information.
// None of them reaches libyang.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <ostream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "agent/agent_world.h"
#include "agent/rpc.h"

namespace agent_tests {
namespace {

using Info = std::vector<std::pair<std::string, std::string>>;

const std::string kCfg = "urn:switch:yang:switch-config";
const std::string kSf = "urn:switch:yang:switch-oam-sflow";

std::string InRpc(const std::string& operation, const std::string& attributes = "message-id=\"1\"")
{
    return "<rpc xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" " + attributes + ">" + operation +
           "</rpc>";
}

std::string InConfig(const std::string& config)
{
    return InRpc("<edit-config><target><candidate/></target><config>" + config + "</config></edit-config>");
}

std::string InSflow(const std::string& content) { return InConfig(Sflow(content)); }

std::string InFilter(const std::string& filter)
{
    return InRpc("<get-config><source><running/></source><filter>" + filter + "</filter></get-config>");
}

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
std::string Path(const std::string& below)
{
    return "/switch-config:config/switch-oam-sflow:oam/switch-oam-sflow:sflow" + below;
}

struct Case {
    const char* name;
    std::string message;
    const char* type;
    const char* tag;
    std::string path;
    Info info;
};

void PrintTo(const Case& each, std::ostream* out) { *out << each.name; }

class Hostile : public testing::TestWithParam<Case> {};

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

const std::string kC = "/switch-oam-sflow:collector";
const std::string kC1 = kC + "[switch-oam-sflow:name='c1']";
const std::string kEdit = "/ietf-netconf:rpc/ietf-netconf:edit-config";

std::string Name(const testing::TestParamInfo<Case>& each) { return each.param.name; }

INSTANTIATE_TEST_SUITE_P(
    Elements, Hostile,
    testing::Values(
        Case{"TwinsOneWithoutNamespace",
             InConfig("<a xmlns=\"\"/><a xmlns=\"urn:x\"/>"),
             "application",
             "unknown-namespace",
             "",
             {{"bad-element", "a"}, {"bad-namespace", ""}}},
        Case{"NoNamespaceInside",
             InSflow("<agent xmlns=\"\"/>"),
             "application",
             "unknown-namespace",
             Path(""),
             {{"bad-element", "agent"}, {"bad-namespace", ""}}},
        Case{"NoNamespaceAsParameter",
             InRpc("<commit><confirmed xmlns=\"\"/></commit>"),
             "protocol",
             "unknown-namespace",
             "/ietf-netconf:rpc/ietf-netconf:commit",
             {{"bad-element", "confirmed"}, {"bad-namespace", ""}}},
        Case{"UnknownNamespace",
             InSflow("<x xmlns=\"urn:x\"/>"),
             "application",
             "unknown-namespace",
             Path(""),
             {{"bad-element", "x"}, {"bad-namespace", "urn:x"}}},
        Case{"NamespaceOfAnotherModule",
             InConfig("<config xmlns=\"" + kSf + "\"/>"),
             "application",
             "unknown-element",
             "/switch-oam-sflow:config",
             {{"bad-element", "config"}}},
        Case{"UnknownAtTheTop",
             InConfig("<x xmlns=\"" + kCfg + "\"/>"),
             "application",
             "unknown-element",
             "/switch-config:x",
             {{"bad-element", "x"}}},
        Case{"Unknown",
             InSflow(Collector("c1", "<colour/>")),
             "application",
             "unknown-element",
             Path(kC1 + "/switch-oam-sflow:colour"),
             {{"bad-element", "colour"}}},
        Case{"ManyUnknown",
             InConfig(Times(2'000, "<a/>")),
             "application",
             "unknown-element",
             "/ietf-netconf:a",
             {{"bad-element", "a"}}},
        Case{"KeyTwice",
             InSflow("<collector><name>c7</name><name>c8</name><ip>192.0.2.1</ip></collector>"),
             "application",
             "bad-element",
             Path(kC + "[switch-oam-sflow:name='c7']/switch-oam-sflow:name"),
             {{"bad-element", "name"}}},
        Case{"KeyManyTimes",
             InSflow("<collector>" + Times(1'000, "<name>c1</name>") + "</collector>"),
             "application",
             "bad-element",
             Path(kC1 + "/switch-oam-sflow:name"),
             {{"bad-element", "name"}}},
        Case{"LeafManyTimes",
             InSflow("<collector><name>c1</name>" + Times(1'000, "<port>1</port>")),
             "application",
             "bad-element",
             Path(kC1 + "/switch-oam-sflow:port"),
             {{"bad-element", "port"}}},
        Case{"ContainerTwice",
             InSflow("<agent/><agent/>"),
             "application",
             "bad-element",
             Path("/switch-oam-sflow:agent"),
             {{"bad-element", "agent"}}},
        Case{"NoKey",
             InSflow(Times(2'000, "<collector/>")),
             "application",
             "missing-element",
             Path(kC),
             {{"bad-element", "name"}}},
        Case{"LeafWithElements",
             InSflow(Collector("c1", "<ip><a/></ip>")),
             "application",
             "unknown-element",
             Path(kC1 + "/switch-oam-sflow:ip"),
             {{"bad-element", "a"}}},
        Case{"ContainerWithText",
             InSflow("<agent>text</agent>"),
             "application",
             "bad-element",
             Path("/switch-oam-sflow:agent"),
             {{"bad-element", "agent"}}},
        Case{"ConfigWithText",
             InConfig("text"),
             "application",
             "bad-element",
             "",
             {{"bad-element", "config"}}},
        Case{"TextBetweenElements",
             InSflow("<agent/>text"),
             "application",
             "bad-element",
             Path(""),
             {{"bad-element", "sflow"}}},
        Case{"TextInRpc", InRpc("text<commit/>"), "protocol", "bad-element", "", {{"bad-element", "rpc"}}},
        Case{"State",
             InConfig("<state xmlns='urn:switch:yang:switch-state'/>"),
             "application",
             "invalid-value",
             "/switch-state:state",
             {{"bad-element", "state"}}},
        Case{"ManyUnknownParameters",
             InRpc("<commit>" + Times(2'000, "<a/>") + "</commit>"),
             "protocol",
             "unknown-element",
             "/ietf-netconf:rpc/ietf-netconf:commit/ietf-netconf:a",
             {{"bad-element", "a"}}},
        Case{"ParameterManyTimes",
             InRpc("<kill-session>" + Times(2'000, "<session-id>1</session-id>") + "</kill-session>"),
             "protocol",
             "bad-element",
             "/ietf-netconf:rpc/ietf-netconf:kill-session/ietf-netconf:session-id",
             {{"bad-element", "session-id"}}},
        Case{"EntryManyTimes",
             InSflow(Times(100, "<collector><name>c1</name></collector>")),
             "application",
             "bad-element",
             Path(kC1),
             {{"bad-element", "collector"}}},
        Case{"EntryManyTimesAmongOthers",
             InSflow(Times(9, Numbered(100, "<collector><name>c", "</name></collector>"))),
             "application",
             "bad-element",
             Path(kC + "[switch-oam-sflow:name='c0']"),
             {{"bad-element", "collector"}}},
        Case{"KeyInBothQuotes",
             InSflow("<collector><name>'\"</name><colour/></collector>"),
             "application",
             "unknown-element",
             Path(kC + "/switch-oam-sflow:colour"),
             {{"bad-element", "colour"}}}),
    Name);

INSTANTIATE_TEST_SUITE_P(
    Attributes, Hostile,
    testing::Values(
        Case{"UnqualifiedOperation",
             InSflow("<agent operation=\"delete\"/>"),
             "application",
             "unknown-attribute",
             Path("/switch-oam-sflow:agent"),
             {{"bad-attribute", "operation"}, {"bad-element", "agent"}}},
        Case{"OperationOfAnotherNamespace",
             InSflow("<agent xmlns:x=\"urn:x\" x:operation=\"delete\"/>"),
             "application",
             "unknown-attribute",
             Path("/switch-oam-sflow:agent"),
             {{"bad-attribute", "operation"}, {"bad-element", "agent"}}},
        Case{"UnknownAttribute",
             InSflow("<agent nc:colour=\"red\"/>"),
             "application",
             "unknown-attribute",
             Path("/switch-oam-sflow:agent"),
             {{"bad-attribute", "colour"}, {"bad-element", "agent"}}},
        Case{"DefaultAttribute",
             InSflow(Collector("c1",
                               "<port xmlns:wd=\"urn:ietf:params:xml:ns:netconf:default:1.0\" "
                               "wd:default=\"true\">6343</port>")),
             "application",
             "unknown-attribute",
             Path(kC1 + "/switch-oam-sflow:port"),
             {{"bad-attribute", "default"}, {"bad-element", "port"}}},
        Case{"BadOperation",
             InSflow("<agent nc:operation=\"melt\"/>"),
             "application",
             "bad-attribute",
             Path("/switch-oam-sflow:agent"),
             {{"bad-attribute", "operation"}, {"bad-element", "agent"}}},
        Case{"EmptyOperation",
             InSflow("<agent nc:operation=\"\"/>"),
             "application",
             "bad-attribute",
             Path("/switch-oam-sflow:agent"),
             {{"bad-attribute", "operation"}, {"bad-element", "agent"}}},
        Case{"OperationTwice",
             InSflow("<agent xmlns:b=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"delete\" "
                     "b:operation=\"merge\"/>"),
             "rpc",
             "malformed-message",
             "",
             {}},
        Case{"AttributeTwice",
             InRpc("<commit/>", "message-id='1' message-id='2'"),
             "rpc",
             "malformed-message",
             "",
             {}},
        Case{"OperationOnConfig",
             InRpc("<edit-config><target><candidate/></target><config "
                   "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"delete\"/>"
                   "</edit-config>"),
             "protocol",
             "unknown-attribute",
             kEdit + "/ietf-netconf:config",
             {{"bad-attribute", "operation"}, {"bad-element", "config"}}},
        Case{"ManyOnRpc",
             InRpc("<commit/>", "message-id='1' " + Numbered(200, "a", "='1' ")),
             "rpc",
             "too-big",
             "",
             {}},
        Case{"ManyPrefixedOnRpc",
             InRpc("<commit/>", "message-id='1' xmlns:p='urn:p' " + Numbered(200, "p:a", "='1' ")),
             "rpc",
             "too-big",
             "",
             {}},
        Case{"ManyNamespaces",
             InConfig("<a " + Numbered(200, "xmlns:n", "='urn:n' ") + "/>"),
             "rpc",
             "too-big",
             "",
             {}},
        Case{"ManyInAFilter", InFilter("<a " + Numbered(65, "a", "='1' ") + "/>"), "rpc", "too-big", "", {}},
        Case{"UnknownOnFilter",
             InRpc("<get><filter colour='red'/></get>"),
             "protocol",
             "unknown-attribute",
             "/ietf-netconf:rpc/ietf-netconf:get/ietf-netconf:filter",
             {{"bad-attribute", "colour"}, {"bad-element", "filter"}}}),
    Name);

INSTANTIATE_TEST_SUITE_P(
    Sizes, Hostile,
    testing::Values(
        Case{"LongText",
             InSflow(Collector("c1", "<ip>" + std::string(70'000, '1') + "</ip>")),
             "application",
             "too-big",
             Path(kC1 + "/switch-oam-sflow:ip"),
             {{"bad-element", "ip"}}},
        Case{"LongKey",
             InSflow("<collector><name>" + std::string(70'000, 'c') + "</name></collector>"),
             "application",
             "too-big",
             Path(kC + "/switch-oam-sflow:name"),
             {{"bad-element", "name"}}},
        Case{"LongTextInAFilter",
             InFilter("<a>" + std::string(70'000, 'c') + "</a>"),
             "protocol",
             "too-big",
             "",
             {{"bad-element", "filter"}}},
        Case{"LongAttribute",
             InRpc("<commit/>", "message-id='" + std::string(70'000, '1') + "'"),
             "rpc",
             "too-big",
             "",
             {}},
        Case{"LongName", InConfig("<" + std::string(2'000, 'a') + "/>"), "rpc", "too-big", "", {}},
        Case{"LongNamespace",
             InConfig("<a xmlns='urn:" + std::string(2'000, 'a') + "'/>"),
             "rpc",
             "too-big",
             "",
             {}},
        Case{"LargeFilter",
             InFilter(Times(70'000, "<a/>")),
             "protocol",
             "too-big",
             "",
             {{"bad-element", "filter"}}},
        Case{"DeepFilter", InFilter(Times(126, "<a>") + Times(126, "</a>")), "rpc", "too-big", "", {}}),
    Name);

TEST(HostileMessage, HasABoundOfElements)
{
    guard::Limits limits;
    limits.xml.elements = 10;
    const std::string message = InSflow(Numbered(3, "<collector><name>c", "</name></collector>"));
    const auto result = agent::ReadRpc(Index(), message, true, limits);
    EXPECT_EQ(std::get<agent::BadRpc>(result).error.tag, "too-big");
    EXPECT_TRUE(std::holds_alternative<agent::Rpc>(agent::ReadRpc(Index(), message, true)));
}

struct GoodCase {
    const char* name;
    std::string message;
};

class Harmless : public testing::TestWithParam<GoodCase> {};

TEST_P(Harmless, IsRead)
{
    const auto result = agent::ReadRpc(Index(), GetParam().message, true);
    const auto* bad = std::get_if<agent::BadRpc>(&result);
    EXPECT_EQ(bad, nullptr) << bad->error.tag << ": " << bad->error.message;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Harmless,
    testing::Values(
        GoodCase{"LanguageOfText", InSflow("<agent xml:lang=\"en\" xml:space='preserve'><ipv4 xml:lang='a>b' "
                                           "nc:operation='remove'/></agent>")},
        GoodCase{"LanguageOfRpc", InRpc("<commit xml:lang='en'/>", "message-id='1' xml:lang='en'")},
        GoodCase{"AnyAttributesOfRpc", InRpc("<commit/>", "message-id='1' a='b' xmlns:p='urn:p' p:c='d'")},
        GoodCase{"CharacterData", InSflow(Collector("c1", "<ip><![CDATA[192.0.2.1]]></ip>"))},
        GoodCase{"CharacterReferences", InSflow(Collector("c&#x31;", "<ip>192.0.2.&#49;</ip>"))},
        GoodCase{"Comments", InSflow("<!-- a --><agent><!-- b --></agent><!-- c -->")},
        GoodCase{"ProcessingInstructions", InSflow("<?a b?><agent><?c?></agent>")},
        GoodCase{"Prefixes", InConfig("<c:config xmlns:c=\"" + kCfg + "\"><s:oam xmlns:s=\"" + kSf +
                                      "\"><s:sflow/></s:oam></c:config>")},
        GoodCase{"Declaration", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + InSflow("")},
        GoodCase{"EntriesOfOneList", InSflow(Collector("c1") + Collector("c2"))},
        GoodCase{"EntryDeletedAndMadeAnew",
                 InSflow("<collector nc:operation='delete'><name>c1</name></collector>" + Collector("c1"))},
        GoodCase{"FilterOfNoNamespace", InFilter("<a xmlns=''/><a xmlns='urn:x' b='c'/><a/>")}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(HarmlessMessage, KeepsItsDataWhereTheLanguageIsCutOut)
{
    const auto result = agent::ReadRpc(
        Index(), InSflow("<agent xml:lang=\"en\"><ipv4 xml:lang='a>b' >192.0.2.7</ipv4></agent>"), true);
    const auto& rpc = std::get<agent::Rpc>(result);
    char* text = nullptr;
    ASSERT_EQ(lyd_print_mem(&text, rpc.operation.get(), LYD_XML, LYD_PRINT_SHRINK), LY_SUCCESS);
    EXPECT_THAT(std::string(text), testing::HasSubstr("<agent><ipv4>192.0.2.7</ipv4></agent>"));
    std::free(text);
}

}  // namespace
}  // namespace agent_tests
