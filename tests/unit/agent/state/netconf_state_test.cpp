// SPDX-License-Identifier: Apache-2.0
// What a client learns of the server itself: /netconf-state and get-schema (RFC 6022), and the YANG library
// (RFC 8525).

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "agent/agent_world.h"
#include "agent/data/schema_list.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kMonitoring = "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring";
const std::string kLibrary = "urn:ietf:params:xml:ns:yang:ietf-yang-library";

std::vector<std::string> Found(const std::string& text, const std::string& expression)
{
    std::vector<std::string> found;
    const std::regex pattern(expression);
    for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at)
        found.push_back((*at)[1]);
    return found;
}

class NetconfStateTest : public testing::Test {
protected:
    World m_world;
    netconf::Client m_client = m_world.Connect();

    std::string State(const std::string& inner)
    {
        const auto reply = m_client.Call("<get><filter><netconf-state xmlns=\"" + kMonitoring + "\">" +
                                         inner + "</netconf-state></filter></get>");
        EXPECT_TRUE(reply.ok) << reply.xml;
        return reply.xml;
    }
    /// A counter of this client's session, or of all.
    int Count(const std::string& where, const std::string& counter)
    {
        const auto found = Found(State(where), "<" + counter + ">([0-9]+)</" + counter + ">");
        EXPECT_EQ(found.size(), 1U);
        return found.empty() ? -1 : std::stoi(found[0]);
    }
    [[nodiscard]] std::string Own() const
    {
        return "<sessions><session><session-id>" + std::to_string(m_client.SessionId()) +
               "</session-id></session></sessions>";
    }
};

TEST_F(NetconfStateTest, HasTheCapabilitiesOfTheHello)
{
    const auto shown = Found(State("<capabilities/>"), "<capability>([^<]*)</capability>");
    std::vector<std::string> wanted;
    for (const std::string& each : m_client.ServerHello().capabilities)
        wanted.push_back(std::regex_replace(each, std::regex("&"), "&amp;"));
    EXPECT_EQ(shown, wanted);
}

TEST_F(NetconfStateTest, ShowsWhoHasLockedWhat)
{
    auto other = m_world.Connect();
    EXPECT_THAT(State("<datastores/>"),
                HasSubstr("<datastore><name>candidate</name></datastore><datastore><name>running</name>"
                          "</datastore>"));
    Do(other, netconf::Lock("running"));
    const std::string xml = State("<datastores><datastore><name>running</name></datastore></datastores>");
    EXPECT_THAT(xml, HasSubstr("<locked-by-session>" + std::to_string(other.SessionId()) + "</"));
    EXPECT_EQ(Found(xml, "<locked-time>([0-9T:.Z-]+)</locked-time>").size(), 1U);
    Do(other, netconf::Unlock("running"));
    EXPECT_THAT(State("<datastores/>"), Not(HasSubstr("locked")));
}

TEST_F(NetconfStateTest, ShowsTheSessions)
{
    auto other = m_world.Connect();
    const std::string xml = State("<sessions/>");
    const auto ids = Found(xml, "<session-id>([0-9]+)</session-id>");
    EXPECT_THAT(
        ids, testing::ElementsAre(std::to_string(m_client.SessionId()), std::to_string(other.SessionId())));
    EXPECT_THAT(xml, HasSubstr("<transport xmlns:switch-system=\"urn:switch:yang:switch-system\">"
                               "switch-system:netconf-unix-socket</transport>"));
    EXPECT_EQ(Found(xml, "<username>([^<]+)</username>").size(), 2U);
    EXPECT_EQ(Found(xml, "<login-time>([^<]+)</login-time>").size(), 2U);
    EXPECT_THAT(xml, Not(HasSubstr("source-host")));
    EXPECT_THAT(State(Own()), Not(HasSubstr("<session-id>" + std::to_string(other.SessionId()))));
}

TEST_F(NetconfStateTest, CountsByTheStandard)
{
    const int before = Count(Own(), "in-rpcs");
    m_client.Call("<make-tea/>");                                         // a good <rpc>, refused
    const std::string bad = "<rpc xmlns=\"" + kBase + "\"><get/></rpc>";  // no message-id: not a good one
    m_client.SendRaw("\n#" + std::to_string(bad.size()) + "\n" + bad + "\n##\n");
    m_client.Receive();
    EXPECT_EQ(Count(Own(), "in-rpcs"), before + 2);
    EXPECT_EQ(Count(Own(), "in-bad-rpcs"), 1);
    EXPECT_EQ(Count(Own(), "out-rpc-errors"), 2);
    EXPECT_EQ(Count(Own(), "out-notifications"), 0);
}

TEST_F(NetconfStateTest, KeepsTheCountsOfSessionsThatHaveEnded)
{
    const int sessions = Count("<statistics/>", "in-sessions");
    const int dropped = Count("<statistics/>", "dropped-sessions");
    {
        auto other = m_world.Connect();
        other.Call("<make-tea/>");
        Do(other, netconf::CloseSession());
    }
    {
        auto other = m_world.Connect();
    }
    auto killed = m_world.Connect();
    Do(m_client, netconf::KillSession(killed.SessionId()));
    // The end of a connection is seen a little later.
    while (Count("<statistics/>", "dropped-sessions") == dropped) std::this_thread::yield();
    EXPECT_EQ(Count("<statistics/>", "dropped-sessions"), dropped + 1);
    EXPECT_EQ(Count("<statistics/>", "in-sessions"), sessions + 3);
    EXPECT_GE(Count("<statistics/>", "out-rpc-errors"), 1);
    EXPECT_EQ(Found(State("<statistics/>"), "<netconf-start-time>([^<]+)<").size(), 1U);
}

std::string GetSchema(const std::string& name, const std::string& more = "")
{
    return "<get-schema xmlns=\"" + kMonitoring + "\"><identifier>" + name + "</identifier>" + more +
           "</get-schema>";
}

/// All that is listed can be got, and libyang reads it; and all that there is, is listed.
TEST_F(NetconfStateTest, ListsTheSchemasThatCanBeGot)
{
    const std::string xml = State("<schemas/>");
    const auto names = Found(xml, "<identifier>([^<]+)</identifier>");
    const auto versions = Found(xml, "<version>([^<]*)</version>|<version/>");
    ASSERT_EQ(names.size(), versions.size());
    EXPECT_EQ(names.size(), agent::SchemasOf(Schema().Context()).size());
    EXPECT_EQ(Found(xml, "<format>(yang)</format>").size(), names.size());
    EXPECT_EQ(Found(xml, "<location>(NETCONF)</location>").size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto reply = m_client.Call(GetSchema(names[i], "<version>" + versions[i] + "</version>"));
        ASSERT_TRUE(reply.ok) << names[i] << reply.xml;
        EXPECT_THAT(reply.xml, HasSubstr("module " + names[i]));
    }
    for (const auto& module : Schema().Modules()) EXPECT_THAT(names, testing::Contains(module.name));
}

TEST_F(NetconfStateTest, GivesSchemasByTheirRevisionAndFormat)
{
    const std::string revision = "<version>2011-06-01</version>";
    EXPECT_TRUE(m_client.Call(GetSchema("ietf-netconf")).ok);
    EXPECT_TRUE(m_client.Call(GetSchema("ietf-netconf", revision + "<format>yang</format>")).ok);
    EXPECT_TRUE(m_client.Call(GetSchema("ietf-yang-types")).ok);  // imported only
    Refused(m_client, GetSchema("ietf-netconf", "<version>1999-01-01</version>"), "invalid-value");
    Refused(m_client, GetSchema("ietf-netconf", revision + "<format>yin</format>"), "invalid-value");
    Refused(m_client, GetSchema("../../etc/passwd"), "invalid-value");
    Refused(m_client, GetSchema(""), "invalid-value");
}

/// Modules that no test of the agent has: a submodule, and two revisions of one module.
TEST(SchemaList, HasSubmodulesAndAllRevisions)
{
    ly_ctx* context = nullptr;
    ASSERT_EQ(ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY, &context), LY_SUCCESS);
    const auto give = [](const char*, const char*, const char* submodule, const char*, void*,
                         LYS_INFORMAT* format, const char** text, ly_module_imp_data_free_clb* release) {
        *format = LYS_IN_YANG;
        *release = nullptr;
        *text = submodule != nullptr
                    ? "submodule part { belongs-to whole { prefix w; } revision 2020-02-02; }"
                    : nullptr;
        return *text == nullptr ? LY_ENOT : LY_SUCCESS;
    };
    ly_ctx_set_module_imp_clb(context, give, nullptr);
    for (const char* text : {"module whole { namespace 'urn:w'; prefix w; include part; }",
                             "module twice { namespace 'urn:t'; prefix t; revision 2020-01-01; }"})
        ASSERT_EQ(lys_parse_mem(context, text, LYS_IN_YANG, nullptr), LY_SUCCESS) << text;
    std::set<std::string> names;
    for (const auto& each : agent::SchemasOf(context)) {
        names.insert(std::string(each.name) + "@" + std::string(each.revision));
        const auto text = agent::YangOf(each);
        ASSERT_TRUE(text) << each.name;
        EXPECT_THAT(*text, HasSubstr("module " + std::string(each.name)));
    }
    EXPECT_THAT(names, testing::IsSupersetOf({"whole@", "part@2020-02-02", "twice@2020-01-01"}));
    ly_ctx_destroy(context);
}

class YangLibrary : public NetconfStateTest {
protected:
    std::string Library(const std::string& container)
    {
        return m_client.Call("<get><filter><" + container + " xmlns=\"" + kLibrary + "\"/></filter></get>")
            .xml;
    }
};

TEST_F(YangLibrary, NamesTheModulesFeaturesAndDatastores)
{
    const std::string xml = Library("yang-library");
    EXPECT_THAT(xml, HasSubstr("<content-id>" + Schema().ContentId() + "</content-id>"));
    const auto names = Found(xml, "<name>([^<]+)</name>");
    for (const auto& module : Schema().Modules()) EXPECT_THAT(names, testing::Contains(module.name));
    EXPECT_THAT(xml, HasSubstr("<feature>rollback-on-error</feature>"));
    EXPECT_THAT(xml, HasSubstr("<name xmlns:ietf-datastores=\"urn:ietf:params:xml:ns:yang:ietf-datastores\">"
                               "ietf-datastores:running</name>"));
    EXPECT_THAT(xml, Not(HasSubstr("file:")));  // places on the switch are no client's business
    const std::string capability =
        "urn:ietf:params:netconf:capability:yang-library:1.1?revision=2019-01-04"
        "&content-id=" +
        Schema().ContentId();
    EXPECT_THAT(m_client.ServerHello().capabilities, testing::Contains(capability));
}

TEST_F(YangLibrary, HasTheOldTreeToo)
{
    const std::string xml = Library("modules-state");
    EXPECT_THAT(xml, HasSubstr("<module-set-id>" + Schema().ContentId() + "</module-set-id>"));
    EXPECT_THAT(xml, HasSubstr("<conformance-type>implement</conformance-type>"));
    EXPECT_THAT(xml, Not(HasSubstr("file:")));
}

}  // namespace
}  // namespace agent_tests
