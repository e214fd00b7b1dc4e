// SPDX-License-Identifier: Apache-2.0
// RFC 6243: defaults that are tagged, in answers and in edits.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <string>

#include "agent/agent_world.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

using netconf::EditConfig;
using testing::HasSubstr;
using testing::Not;

const std::string kTag = "urn:ietf:params:xml:ns:netconf:default:1.0";

std::string Tagged(const std::string& leaf, const std::string& value, const std::string& attributes = "",
                   const std::string& tag = "true")
{
    return "<" + leaf + " xmlns:wd=\"" + kTag + "\" wd:default=\"" + tag + "\"" + attributes + ">" + value +
           "</" + leaf + ">";
}

class WithDefaults : public testing::Test {
protected:
    World m_world;
    netconf::Client m_client = m_world.Connect();

    std::string Read(const std::string& source)
    {
        return m_client
            .Call(
                "<get-config><source><" + source +
                "/></source><with-defaults xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults\">"
                "report-all-tagged</with-defaults></get-config>")
            .xml;
    }
    std::string Candidate() { return Config(m_client, "candidate"); }
    void Edit(const std::string& content) { Do(m_client, EditConfig(Sflow(content))); }
};

TEST_F(WithDefaults, AreTaggedWhereTheyWereNotSet)
{
    Edit(Collector("c1", "<ip>192.0.2.1</ip><port>6343</port>"));
    const std::string xml = Read("candidate");
    EXPECT_THAT(xml, HasSubstr("<data xmlns:wd=\"" + kTag + "\">"));
    EXPECT_THAT(xml, HasSubstr("<enabled wd:default=\"true\">true</enabled>"));
    EXPECT_THAT(xml, HasSubstr("<ip>192.0.2.1</ip>"));
    EXPECT_THAT(xml, HasSubstr("<port>6343</port>"));  // has the default's value, but was set
    const auto& capabilities = m_client.ServerHello().capabilities;
    EXPECT_THAT(capabilities,
                testing::Contains(AllOf(HasSubstr("with-defaults:1.0"), HasSubstr("report-all-tagged"))));
}

TEST_F(WithDefaults, AreTaggedByGetToo)
{
    Edit(Collector("c1"));
    Do(m_client, netconf::Commit());
    const std::string xml =
        m_client
            .Call("<get><filter>" + Sflow("<collector><name>c1</name></collector>") +
                  "</filter><with-defaults xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults\">"
                  "report-all-tagged</with-defaults></get>")
            .xml;
    EXPECT_THAT(xml, HasSubstr("<data xmlns:wd=\"" + kTag + "\">"));
    EXPECT_THAT(xml, HasSubstr("<port wd:default=\"true\">6343</port>"));
}

/// What was read with tags may be sent back, and is then as it was.
TEST_F(WithDefaults, ComeBackAsTheyWere)
{
    Edit(Collector("c1", "<ip>192.0.2.1</ip><port>6343</port>"));
    const std::string before = Candidate();
    const std::string xml = Read("candidate");
    const std::size_t begin = xml.find("<config");
    const std::string content = xml.substr(begin, xml.rfind("</data>") - begin);
    const std::string around = "<config xmlns:wd=\"" + kTag + "\">" + content + "</config>";
    Do(m_client, "<edit-config><target><candidate/></target><default-operation>replace</default-operation>" +
                     around + "</edit-config>");
    EXPECT_EQ(Candidate(), before);
    Do(m_client, "<copy-config><target><candidate/></target><source>" + around + "</source></copy-config>");
    EXPECT_EQ(Candidate(), before);
    Do(m_client, "<validate><source>" + around + "</source></validate>");
}

TEST_F(WithDefaults, InAnEditUnsetTheLeaf)
{
    Edit(Collector("c1", "<ip>192.0.2.1</ip><port>7000</port>"));
    Edit(Collector("c1", Tagged("port", "6343")));
    EXPECT_THAT(Candidate(), Not(HasSubstr("port")));
    Edit(Collector("c1", Tagged("port", "6343")));  // as it is
    Edit(Collector("c1", Tagged("port", "7000", "", "false")));
    EXPECT_THAT(Candidate(), HasSubstr("<port>7000</port>"));
    Edit(Collector("c1", Tagged("port", "06343", " nc:operation=\"replace\"", "1")));  // the same number
    EXPECT_THAT(Candidate(), Not(HasSubstr("port")));
    // In an entry that the edit makes.
    Edit(Collector("c2", "<ip>192.0.2.2</ip>" + Tagged("enabled", "true")));
    EXPECT_THAT(Candidate(), Not(HasSubstr("enabled")));
}

TEST_F(WithDefaults, OfAnotherValueAreRefused)
{
    Edit(Collector("c1", "<ip>192.0.2.1</ip><port>7000</port>"));
    const auto error =
        Refused(m_client, EditConfig(Sflow(Collector("c1", Tagged("port", "7000")))), "invalid-value");
    EXPECT_THAT(error.path, HasSubstr("port"));
    // A leaf without a default has none to be tagged.
    Refused(m_client, EditConfig(Sflow(Collector("c1", Tagged("ip", "192.0.2.1")))), "invalid-value");
    Refused(m_client, EditConfig(Sflow(Collector("c1", Tagged("port", "6343", " nc:operation=\"create\"")))),
            "data-exists");
    Refused(m_client, EditConfig(Sflow(Collector("c1", Tagged("port", "6343", " nc:operation=\"delete\"")))),
            "bad-attribute");
    Refused(m_client, EditConfig(Sflow(Collector("c1", Tagged("port", "6343", "", "yes")))), "bad-attribute");
    // A bad value elsewhere is told by its own name.
    EXPECT_THAT(
        Refused(
            m_client,
            EditConfig(Sflow(Collector("c1", Tagged("port", "6343") + "<datagram-size>1</datagram-size>"))),
            "invalid-value")
            .path,
        HasSubstr("datagram-size"));
    EXPECT_THAT(Candidate(), HasSubstr("<port>7000</port>"));
}

TEST_F(WithDefaults, TagLeavesOnly)
{
    const std::string tag = " xmlns:wd=\"" + kTag + "\" wd:default=\"true\"";
    Refused(m_client, EditConfig(Sflow("<agent" + tag + "/>")), "unknown-attribute");
    Refused(m_client, EditConfig(Sflow("<collector" + tag + "><name>c1</name></collector>")),
            "unknown-attribute");
    Refused(m_client, EditConfig(Sflow("<collector><name" + tag + ">c1</name></collector>")),
            "unknown-attribute");
    Refused(m_client, EditConfig(Sflow(Collector("c1", "<port default=\"true\">6343</port>"))),
            "unknown-attribute");
}

/// Two prefixes of the namespace, one that is declared again, one that is written with a reference, and one
/// in a text: none of them confuses the reader.
TEST_F(WithDefaults, HoweverTheNamespaceIsDeclared)
{
    Edit(Collector("c1", "<ip>192.0.2.1</ip><port>7000</port>"));
    Edit("<collector xmlns:a=\"" + kTag + "\" xmlns:b=\"" + kTag +
         "\"><name>c1</name>"
         "<port b:default=\"true\">6343</port>" +
         Tagged("enabled", "true") + "</collector>");
    EXPECT_THAT(Candidate(), Not(HasSubstr("port")));
    const auto reply = m_client.Call(EditConfig(
        Sflow("<collector><name>c1</name><port xmlns:wd=\"&#117;rn:ietf:params:xml:ns:netconf:default:1.0\" "
              "wd:default=\"true\">6343</port></collector>")));
    EXPECT_FALSE(reply.xml.empty());
    Do(m_client, "<discard-changes/>");
}

}  // namespace
}  // namespace agent_tests
