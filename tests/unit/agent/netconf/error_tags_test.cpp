// SPDX-License-Identifier: Apache-2.0
// One refusal for each error-tag that a client can bring about, through a session, with what the
// standard requires to stand in its error-info; and that its path can be evaluated as it is written.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "agent/agent_world.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

using netconf::EditConfig;
using testing::HasSubstr;

std::string EditRpc(const std::string& content) { return InRpc(EditConfig(Sflow(content))); }

std::string Nested(int depth)
{
    std::string begin;
    std::string end;
    for (int i = 0; i < depth; ++i) {
        begin += "<a>";
        end += "</a>";
    }
    return "<get><filter>" + begin + end + "</filter></get>";
}

struct ErrorTagRow {
    const char* tag;
    const char* type;
    std::string message;
    std::vector<std::string> info;  // the names of what error-info must hold
    const char* path = "";          // where it ends; empty for an error without a path
    const char* said = "";          // part of the message
};

void PrintTo(const ErrorTagRow& row, std::ostream* out) { *out << row.tag; }

class ErrorTags : public testing::TestWithParam<ErrorTagRow> {
protected:
    World m_world;
    netconf::Client m_other = m_world.Connect();
    netconf::Client m_client = m_world.Connect();

    netconf::Reply Send(const std::string& message)
    {
        m_client.SendRaw("\n#" + std::to_string(message.size()) + "\n" + message + "\n##\n");
        return m_client.Receive();
    }
};

/// Every prefix of the path is declared where the path stands.
void ExpectDeclared(const std::string& xml, const std::string& path)
{
    const std::size_t begin = xml.find("<error-path");
    const std::string tag = xml.substr(begin, xml.find('>', begin) - begin);
    for (std::size_t at = path.find_first_of("/["); at != std::string::npos;
         at = path.find_first_of("/[", at + 1)) {
        const std::string rest = path.substr(at + 1);
        const std::size_t colon = rest.find(':');
        ASSERT_LT(colon, rest.find_first_of("/[=")) << path;
        EXPECT_THAT(tag, HasSubstr("xmlns:" + rest.substr(0, colon) + "=\"")) << path;
    }
}

/// RFC 6241, appendix A: which layers may give the error, and what its error-info must hold.
struct StandardRow {
    std::string types;
    std::vector<std::string> info;
};

const std::map<std::string, StandardRow>& Standard()
{
    static const std::map<std::string, StandardRow> kRows{
        {"in-use", {"protocol application", {}}},
        {"invalid-value", {"protocol application", {}}},
        {"too-big", {"transport rpc protocol application", {}}},
        {"missing-attribute", {"rpc protocol application", {"bad-attribute", "bad-element"}}},
        {"bad-attribute", {"rpc protocol application", {"bad-attribute", "bad-element"}}},
        {"unknown-attribute", {"rpc protocol application", {"bad-attribute", "bad-element"}}},
        {"missing-element", {"protocol application", {"bad-element"}}},
        {"bad-element", {"protocol application", {"bad-element"}}},
        {"unknown-element", {"protocol application", {"bad-element"}}},
        {"unknown-namespace", {"protocol application", {"bad-element", "bad-namespace"}}},
        {"access-denied", {"protocol application", {}}},
        {"lock-denied", {"protocol", {"session-id"}}},
        {"resource-denied", {"transport rpc protocol application", {}}},
        {"rollback-failed", {"protocol application", {}}},
        {"data-exists", {"application", {}}},
        {"data-missing", {"application", {}}},
        {"operation-not-supported", {"protocol application", {}}},
        {"operation-failed", {"rpc protocol application", {}}},
        {"malformed-message", {"rpc", {}}}};
    return kRows;
}

void ExpectByTheStandard(const netconf::RpcError& error, const std::string& xml)
{
    const auto row = Standard().find(error.tag);
    ASSERT_NE(row, Standard().end()) << xml;
    EXPECT_THAT(' ' + row->second.types + ' ', HasSubstr(' ' + error.type + ' ')) << xml;
    for (const std::string& name : row->second.info)
        EXPECT_THAT(error.info, testing::Contains(testing::Pair(name, testing::_))) << xml;
}

TEST_P(ErrorTags, IsGiven)
{
    const ErrorTagRow& row = GetParam();
    Do(m_client, EditConfig(Sflow(Collector("c1"))));
    Do(m_client, netconf::Commit());
    Do(m_other, "<lock><target><running/></target></lock>");
    const netconf::Reply reply = Send(row.message);
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    const netconf::RpcError& error = reply.errors[0];
    EXPECT_EQ(error.tag, row.tag) << reply.xml;
    EXPECT_EQ(error.type, row.type) << reply.xml;
    EXPECT_EQ(error.severity, "error");
    ExpectByTheStandard(error, reply.xml);
    EXPECT_THAT(error.message, HasSubstr(row.said));
    for (const std::string& name : row.info)
        EXPECT_THAT(error.info, testing::Contains(testing::Pair(name, testing::Ne("")))) << reply.xml;
    EXPECT_EQ(error.path.empty(), std::string_view(row.path).empty()) << reply.xml;
    EXPECT_TRUE(error.path.ends_with(row.path)) << reply.xml;
    if (!error.path.empty()) ExpectDeclared(reply.xml, error.path);
    Do(m_client, "<discard-changes/>");
}

const std::string kC1Begin = "<collector><name>c1</name>";

INSTANTIATE_TEST_SUITE_P(
    Table, ErrorTags,
    testing::Values(
        ErrorTagRow{"in-use", "protocol", InRpc("<commit/>"), {}},
        ErrorTagRow{"invalid-value",
                    "application",
                    EditRpc(kC1Begin + "<port>70000</port></collector>"),
                    {},
                    "/switch-oam-sflow:port",
                    "\"70000\""},
        ErrorTagRow{"invalid-value",
                    "protocol",
                    InRpc("<kill-session><session-id>x</session-id></kill-session>"),
                    {},
                    "/ietf-netconf:rpc/ietf-netconf:kill-session/ietf-netconf:session-id",
                    "\"x\""},
        ErrorTagRow{"too-big",
                    "application",
                    EditRpc(kC1Begin + "<port>" + std::string(70'000, '1') + "</port></collector>"),
                    {},
                    "/switch-oam-sflow:port"},
        ErrorTagRow{"too-big", "rpc", InRpc(Nested(200)), {}, "", "128"},
        ErrorTagRow{"too-big",
                    "protocol",
                    InRpc("<get-config><source><running/></source><filter><config xmlns='urn:x'>" +
                          std::string(70'000, 'x') + "</config></filter></get-config>"),
                    {}},
        ErrorTagRow{
            "bad-attribute",
            "protocol",
            InRpc("<get-config><source><running/></source><filter type='xpath' select='/'/></get-config>"),
            {"bad-attribute", "bad-element"},
            "",
            "\"xpath\""},
        ErrorTagRow{"operation-not-supported",
                    "protocol",
                    InRpc("<copy-config><target><candidate/></target><source><running/></source>"
                          "<with-defaults xmlns='urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults'>"
                          "trim</with-defaults></copy-config>"),
                    {"bad-element"},
                    "",
                    "explicit"},
        ErrorTagRow{"missing-attribute", "rpc", InRpc("<commit/>", ""), {"bad-attribute", "bad-element"}},
        ErrorTagRow{"bad-attribute",
                    "application",
                    EditRpc("<agent nc:operation='melt'/>"),
                    {"bad-attribute", "bad-element"},
                    "/switch-oam-sflow:agent",
                    "\"melt\""},
        ErrorTagRow{"bad-attribute",
                    "application",
                    EditRpc("<collector><name nc:operation='delete'>c1</name></collector>"),
                    {"bad-attribute", "bad-element"},
                    "/switch-oam-sflow:name"},
        ErrorTagRow{"unknown-attribute",
                    "application",
                    EditRpc("<agent operation='delete'/>"),
                    {"bad-attribute", "bad-element"},
                    "/switch-oam-sflow:agent"},
        ErrorTagRow{"missing-element",
                    "application",
                    EditRpc("<collector/>"),
                    {"bad-element"},
                    "/switch-oam-sflow:collector"},
        ErrorTagRow{"missing-element",
                    "protocol",
                    InRpc("<kill-session/>"),
                    {"bad-element"},
                    "/ietf-netconf:rpc/ietf-netconf:kill-session/ietf-netconf:session-id"},
        ErrorTagRow{"missing-element",
                    "protocol",
                    InRpc("<get-config/>"),
                    {"bad-element"},
                    "/ietf-netconf:rpc/ietf-netconf:get-config/ietf-netconf:source"},
        ErrorTagRow{"missing-element",
                    "protocol",
                    InRpc("<edit-config><target><candidate/></target></edit-config>"),
                    {"bad-element"},
                    "/ietf-netconf:rpc/ietf-netconf:edit-config/ietf-netconf:config"},
        ErrorTagRow{"missing-element", "protocol", InRpc(""), {"bad-element"}},
        ErrorTagRow{"unknown-element", "protocol", "<hello xmlns='" + kBase + "'/>", {"bad-element"}},
        ErrorTagRow{"bad-attribute",
                    "application",
                    EditRpc("<collector><name>c1</name><port xmlns:wd='"
                            "urn:ietf:params:xml:ns:netconf:default:1.0' wd:default='perhaps'>1</port>"
                            "</collector>"),
                    {"bad-attribute", "bad-element"},
                    "/switch-oam-sflow:port",
                    "\"perhaps\""},
        ErrorTagRow{"unknown-attribute",
                    "application",
                    InRpc("<copy-config><target><candidate/></target><source><config>" +
                          Sflow("<agent nc:operation='delete'/>") + "</config></source></copy-config>"),
                    {"bad-attribute", "bad-element"},
                    "/switch-oam-sflow:agent"},
        ErrorTagRow{"bad-element",
                    "application",
                    EditRpc(kC1Begin + "<name>c2</name></collector>"),
                    {"bad-element"},
                    "/switch-oam-sflow:collector[switch-oam-sflow:name='c1']/switch-oam-sflow:name"},
        ErrorTagRow{"unknown-element",
                    "application",
                    EditRpc(kC1Begin + "<colour/></collector>"),
                    {"bad-element"},
                    "/switch-oam-sflow:colour"},
        ErrorTagRow{"unknown-namespace",
                    "application",
                    EditRpc("<x xmlns='urn:x'/>"),
                    {"bad-element", "bad-namespace"},
                    "/switch-oam-sflow:sflow"},
        ErrorTagRow{
            "lock-denied", "protocol", InRpc("<lock><target><running/></target></lock>"), {"session-id"}},
        ErrorTagRow{"data-exists",
                    "application",
                    EditRpc("<collector nc:operation='create'><name>c1</name></collector>"),
                    {},
                    "/switch-oam-sflow:collector[switch-oam-sflow:name='c1']"},
        ErrorTagRow{"data-missing",
                    "application",
                    EditRpc("<collector nc:operation='delete'><name>c9</name></collector>"),
                    {},
                    "/switch-oam-sflow:collector[switch-oam-sflow:name='c9']"},
        ErrorTagRow{"operation-not-supported", "protocol", InRpc("<make-tea/>"), {"bad-element"}},
        ErrorTagRow{
            "operation-failed", "protocol", InRpc("<unlock><target><running/></target></unlock>"), {}},
        ErrorTagRow{"malformed-message", "rpc", InRpc("<commit>"), {}}),
    [](const auto& each) {
        std::string name = each.param.tag + std::to_string(each.index);
        for (char& c : name)
            if (c == '-') c = '_';
        return name;
    });

/// As the client would evaluate it on what it has got; libyang takes module names for prefixes.
TEST(ErrorPaths, SelectTheNode)
{
    World world;
    netconf::Client client = world.Connect();
    Do(client, EditConfig(Sflow(Collector("c1"))));
    const auto error =
        Refused(client, EditConfig(Sflow("<collector nc:operation='create'><name>c1</name></collector>")),
                "data-exists");
    lyd_node* tree = nullptr;
    ASSERT_EQ(lyd_parse_data_mem(Schema().Context(), Config(client, "candidate").c_str(), LYD_XML,
                                 LYD_PARSE_ONLY, 0, &tree),
              LY_SUCCESS);
    ly_set* found = nullptr;
    ASSERT_EQ(lyd_find_xpath(tree, error.path.c_str(), &found), LY_SUCCESS) << error.path;
    EXPECT_EQ(found->count, 1U) << error.path;
    ly_set_free(found, nullptr);
    lyd_free_all(tree);
}

TEST(ManyErrors, AreAllTold)
{
    World world;
    netconf::Client client = world.Connect();
    const netconf::Reply reply = client.Call(
        EditConfig(Sflow("<collector><name>c1</name></collector><collector><name>c2</name></collector>")));
    EXPECT_FALSE(reply.ok);
    ASSERT_EQ(reply.errors.size(), 2U) << reply.xml;
    for (const auto& error : reply.errors) ExpectDeclared(reply.xml, error.path);
}

}  // namespace
}  // namespace agent_tests
