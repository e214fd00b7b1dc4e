// SPDX-License-Identifier: Apache-2.0
// RFC 8526: get-data and edit-data on the datastores of RFC 8342, origins, and the operations that name a
// datastore by its identity.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>

#include "agent/agent_world.h"
#include "agent/other_user.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const std::string kNmda = "urn:ietf:params:xml:ns:yang:ietf-netconf-nmda";
const std::string kDatastores = "xmlns:ds=\"urn:ietf:params:xml:ns:yang:ietf-datastores\"";

/// The leaf, in the namespace around it.
std::string Datastore(const std::string& name, const std::string& ns = kNmda)
{
    return "<datastore xmlns=\"" + ns + "\" " + kDatastores + ">ds:" + name + "</datastore>";
}

std::string GetData(const std::string& datastore, const std::string& more = "")
{
    return "<get-data xmlns=\"" + kNmda + "\" xmlns:or=\"urn:ietf:params:xml:ns:yang:ietf-origin\">" +
           Datastore(datastore) + more + "</get-data>";
}

std::string EditData(const std::string& content, const std::string& more = "",
                     const std::string& datastore = "candidate")
{
    return "<edit-data xmlns=\"" + kNmda + "\">" + Datastore(datastore) + more + "<config>" + content +
           "</config></edit-data>";
}

std::string Filter(const std::string& content) { return "<subtree-filter>" + content + "</subtree-filter>"; }

std::string Element(const std::string& name, const std::string& value)
{
    return "<" + name + ">" + value + "</" + name + ">";
}

class Nmda : public testing::Test {
protected:
    World m_world;
    netconf::Client m_client = m_world.Connect();

    std::string Read(const std::string& datastore, const std::string& more = "")
    {
        const auto reply = m_client.Call(GetData(datastore, more));
        EXPECT_TRUE(reply.ok) << reply.xml;
        return reply.xml;
    }
    void Commit(const std::string& content)
    {
        Do(m_client, netconf::EditConfig(Sflow(content)));
        Do(m_client, netconf::Commit());
    }
    /// eth1, whose default sampling rate a process has set to 512.
    void CommitInterface(const std::string& more = "")
    {
        Process process(m_world, "daemon");
        process.RegisterCallpoint();
        process.Ready();
        std::thread serving([&process] { process.Serve(1, 512); });
        Do(m_client, netconf::EditConfig(Sflow(Interface("eth1", more))));
        serving.join();
        Do(m_client, netconf::Commit());
    }
};

TEST_F(Nmda, IsAnnounced)
{
    EXPECT_THAT(
        m_client.ServerHello().capabilities,
        Contains(AllOf(HasSubstr("module=ietf-netconf-nmda"), EndsWith("&features=origin,with-defaults"))));
    const std::string xml =
        m_client
            .Call(
                "<get><filter><yang-library xmlns=\"urn:ietf:params:xml:ns:yang:ietf-yang-library\"/>"
                "</filter></get>")
            .xml;
    for (const char* name : {"candidate", "intended", "operational", "running"})
        EXPECT_THAT(xml, HasSubstr(">ietf-datastores:" + std::string(name) + "</name><schema>"));
    EXPECT_THAT(xml,
                AllOf(HasSubstr("<name>ietf-netconf-nmda</name>"), HasSubstr("<feature>origin</feature>")));
}

TEST_F(Nmda, GetDataReadsTheConfigurationOfEachDatastore)
{
    Commit(Collector("c1"));
    Do(m_client, netconf::EditConfig(Sflow(Collector("c2"))));
    const std::string ofRunning = Read("running");
    EXPECT_THAT(ofRunning, AllOf(HasSubstr("<data xmlns=\"" + kNmda + "\">"), HasSubstr("<name>c1</name>"),
                                 Not(HasSubstr("c2")), Not(HasSubstr("port")), Not(HasSubstr("<state"))));
    EXPECT_THAT(Read("candidate"), AllOf(HasSubstr("<name>c1</name>"), HasSubstr("<name>c2</name>")));
    const auto content = [](const std::string& xml) { return xml.substr(xml.find("<data")); };
    EXPECT_EQ(content(Read("intended")), content(ofRunning));
    EXPECT_THAT(Read("candidate", "<with-defaults>report-all</with-defaults>"),
                HasSubstr("<port>6343</port>"));
    EXPECT_THAT(Read("running", "<with-defaults>report-all-tagged</with-defaults>"),
                HasSubstr("<port wd:default=\"true\">6343</port>"));
}

TEST_F(Nmda, OperationalHasTheValuesInUseAndTheState)
{
    CommitInterface("<polling-interval>30</polling-interval>");
    Do(m_client, netconf::EditConfig(Sflow(Collector("c2"))));
    const std::string xml = Read("operational");
    EXPECT_THAT(xml, HasSubstr("<polling-interval>30</polling-interval>"));
    EXPECT_THAT(xml, HasSubstr("<max-header-size>128</max-header-size>"));
    // It was not set: the interface is sampled at the rate of its speed.
    EXPECT_THAT(xml, HasSubstr("<sampling-rate>512</sampling-rate>"));
    EXPECT_THAT(xml, AllOf(HasSubstr("<netconf-state"), HasSubstr("<yang-library"),
                           Not(HasSubstr("<name>c2</name>"))));
    EXPECT_THAT(Read("running", "<with-defaults>report-all</with-defaults>"),
                Not(HasSubstr("<sampling-rate>")));
    // A content match sees the value in use too.
    EXPECT_THAT(
        Read("operational", Filter(Sflow("<interface><sampling-rate>512</sampling-rate></interface>"))),
        HasSubstr("<name>eth1</name>"));
}

TEST_F(Nmda, ConfigFilterChoosesConfigurationOrState)
{
    Commit(Collector("c1"));
    EXPECT_THAT(Read("operational", "<config-filter>true</config-filter>"),
                AllOf(HasSubstr("<name>c1</name>"), Not(HasSubstr("netconf-state"))));
    EXPECT_THAT(Read("operational", "<config-filter>false</config-filter>"),
                AllOf(HasSubstr("<netconf-state"), Not(HasSubstr("<name>c1</name>"))));
    for (const char* datastore : {"running", "candidate"}) {
        EXPECT_THAT(Read(datastore, "<config-filter>false</config-filter>"),
                    EndsWith("<data xmlns=\"" + kNmda + "\"/></rpc-reply>"));
        EXPECT_THAT(Read(datastore, "<config-filter>true</config-filter>"), HasSubstr("c1"));
    }
}

TEST_F(Nmda, FiltersBySubtree)
{
    Commit(Collector("c1") + Collector("c2"));
    EXPECT_THAT(Read("running", Filter(Sflow("<collector><name>c2</name></collector>"))),
                AllOf(HasSubstr("c2"), Not(HasSubstr("c1"))));
    EXPECT_THAT(Read("operational", Filter(Sflow("<collector><name>c2</name><port/></collector>"))),
                HasSubstr("<collector><name>c2</name><port>6343</port></collector>"));
    EXPECT_THAT(Read("running", "<subtree-filter/>"),
                EndsWith("<data xmlns=\"" + kNmda + "\"/></rpc-reply>"));
    const auto error =
        Refused(m_client, GetData("running", "<xpath-filter>/</xpath-filter>"), "unknown-element");
    EXPECT_THAT(error.message, HasSubstr("subtree-filter"));
    Refused(m_client, GetData("running", "<subtree-filter type=\"xpath\"/>"), "unknown-attribute");
}

TEST_F(Nmda, MaxDepthBoundsTheLevelsOfWhatIsSelected)
{
    Commit(Collector("c1") + Collector("c2", "<ip>192.0.2.2</ip><port>7000</port>"));
    const auto depth = [](int levels) { return Element("max-depth", std::to_string(levels)); };
    EXPECT_THAT(Read("running", depth(1)),
                EndsWith("><config xmlns=\"urn:switch:yang:switch-config\"></config></data></rpc-reply>"));
    const std::string whole = Filter(Sflow(""));
    EXPECT_THAT(Read("running", whole + depth(1)), HasSubstr("<sflow></sflow>"));
    // An entry has its keys, or it would be none.
    EXPECT_THAT(Read("running", whole + depth(2)),
                HasSubstr("<collector><name>c1</name></collector><collector><name>c2</name></collector>"));
    EXPECT_THAT(Read("running", whole + depth(3)), HasSubstr("<port>7000</port>"));
    const std::string one = Filter(Sflow("<collector><name>c2</name></collector>"));
    EXPECT_THAT(Read("candidate", one + depth(1)),
                HasSubstr("<sflow><collector><name>c2</name></collector></sflow>"));
    EXPECT_THAT(Read("candidate", one + depth(2)), HasSubstr("<port>7000</port>"));
    EXPECT_THAT(Read("candidate", one + "<max-depth>unbounded</max-depth>"), HasSubstr("<port>7000</port>"));
    const std::string state = Read("operational", "<config-filter>false</config-filter>" + depth(1));
    EXPECT_THAT(state, HasSubstr("<netconf-state xmlns=\"urn:ietf:params:xml:ns:yang:"
                                 "ietf-netconf-monitoring\"></netconf-state>"));
    Refused(m_client, GetData("running", "<max-depth>0</max-depth>"), "invalid-value");
}

TEST_F(Nmda, WithOriginTagsTheConfigurationOfOperational)
{
    CommitInterface("<polling-interval>20</polling-interval>");
    const std::string xml = Read("operational", "<with-origin/>");
    EXPECT_THAT(xml, HasSubstr(" xmlns:or=\"urn:ietf:params:xml:ns:yang:ietf-origin\""));
    EXPECT_THAT(xml, HasSubstr("<config xmlns=\"urn:switch:yang:switch-config\" or:origin=\"or:intended\">"));
    EXPECT_THAT(xml, HasSubstr("<max-header-size or:origin=\"or:default\">128</max-header-size>"));
    EXPECT_THAT(xml, HasSubstr("<sampling-rate or:origin=\"or:default\">512</sampling-rate>"));
    EXPECT_THAT(xml, HasSubstr("<polling-interval>20</polling-interval>"));  // set, to the default's value
    EXPECT_THAT(xml, HasSubstr("<default-sampling-rate>512</default-sampling-rate>"));
    EXPECT_THAT(Read("operational", "<config-filter>false</config-filter><with-origin/>"),
                Not(HasSubstr("or:origin=")));  // state has none
    EXPECT_THAT(Read("operational", "<with-origin/>" + Filter(Sflow("<interface><name/></interface>"))),
                HasSubstr("or:origin=\"or:intended\""));
    for (const char* datastore : {"running", "candidate", "intended"})
        Refused(m_client, GetData(datastore, "<with-origin/>"), "invalid-value");
}

TEST_F(Nmda, FiltersByOrigin)
{
    CommitInterface("<polling-interval>30</polling-interval>");
    const std::string configured = "<config-filter>true</config-filter>";
    const auto only = [&](const std::string& origin) {
        return Read("operational", configured + Element("origin-filter", origin));
    };
    const auto without = [&](const std::string& origin) {
        return Read("operational", configured + Element("negated-origin-filter", origin));
    };
    const auto bySetting = AllOf(HasSubstr("polling-interval"), Not(HasSubstr("max-header-size")));
    const auto byDefault = AllOf(HasSubstr("<interface><name>eth1</name><sampling-rate>512</sampling-rate>"
                                           "<max-header-size>128</max-header-size></interface>"),
                                 Not(HasSubstr("polling-interval")));
    const auto nothing = EndsWith("<data xmlns=\"" + kNmda + "\"/></rpc-reply>");
    EXPECT_THAT(only("or:intended"), bySetting);
    EXPECT_THAT(without("or:default"), bySetting);
    EXPECT_THAT(only("or:default"), byDefault);
    EXPECT_THAT(without("or:intended"), byDefault);
    EXPECT_THAT(only("or:learned"), nothing);
    EXPECT_THAT(without("or:default</negated-origin-filter><negated-origin-filter>or:intended"), nothing);
    EXPECT_THAT(without("or:system"), AllOf(HasSubstr("polling-interval"), HasSubstr("max-header-size")));
    EXPECT_THAT(only("or:intended</origin-filter><origin-filter>or:default"),
                AllOf(HasSubstr("polling-interval"), HasSubstr("max-header-size")));
    // Below what a subtree filter selects, and on its last level.
    EXPECT_THAT(
        Read("operational", Filter(Sflow("<interface/>")) + "<origin-filter>or:default</origin-filter>"),
        byDefault);
    EXPECT_THAT(
        Read("operational", Filter(Sflow("<interface/>")) + "<max-depth>1</max-depth>"
                                                            "<origin-filter>or:default</origin-filter>"),
        nothing);
    EXPECT_THAT(Read("operational", Filter(Sflow("<interface><name/><polling-interval/></interface>")) +
                                        "<origin-filter>or:default</origin-filter>"),
                nothing);
    // State has no origin, and is not filtered by it.
    EXPECT_THAT(Read("operational", "<origin-filter>or:learned</origin-filter>"),
                HasSubstr("<netconf-state"));
    Refused(m_client, GetData("running", "<origin-filter>or:default</origin-filter>"), "invalid-value");
    for (const char* none : {"or:nonsense", "or:origin"})  // the second is what origins are derived from
        Refused(m_client, GetData("operational", Element("origin-filter", none)), "invalid-value");
    Refused(m_client,
            GetData("operational",
                    "<origin-filter>or:default</origin-filter>"
                    "<negated-origin-filter>or:system</negated-origin-filter>"),
            "bad-element");
}

/// The bounds of all filters; and a long message, whose filter is resolved beside the loop.
TEST_F(Nmda, FiltersAreBounded)
{
    Commit(Collector("c1"));
    const auto filter = [](int count) {
        std::string entries;
        for (int i = 1; i <= count; ++i)
            entries += "<collector><name>c" + std::to_string(i) + "</name></collector>";
        return Filter(Sflow(entries));
    };
    for (const char* datastore : {"running", "candidate", "operational"})
        EXPECT_THAT(Read(datastore, filter(5'000)), HasSubstr("<name>c1</name>"));
    const auto error = Refused(m_client, GetData("running", filter(40'000)), "too-big");
    EXPECT_THAT(error.info, Contains(std::pair<std::string, std::string>("bad-element", "subtree-filter")));
}

TEST_F(Nmda, ManyOriginFiltersAreRefused)
{
    std::string many;
    for (int i = 0; i < 100'000; ++i) many += "<origin-filter>or:default</origin-filter>";
    Refused(m_client, GetData("operational", many), "too-big");
}

TEST_F(Nmda, GetDataRefusesWhatItDoesNotHave)
{
    for (const char* name : {"startup", "conventional", "dynamic"}) {
        const auto error = Refused(m_client, GetData(name), "invalid-value");
        EXPECT_THAT(error.message, HasSubstr("operational"));
    }
    Refused(m_client, GetData("nonsense"), "invalid-value");
    Refused(m_client, "<get-data xmlns=\"" + kNmda + "\"/>", "missing-element");
    Refused(m_client, GetData("operational", "<with-defaults>trim</with-defaults>"), "invalid-value");
}

TEST_F(Nmda, EditDataEditsTheCandidate)
{
    Do(m_client, EditData(Sflow(Collector("c1") + Collector("c2"))));
    EXPECT_THAT(Config(m_client, "candidate"), AllOf(HasSubstr("c1"), HasSubstr("c2")));
    EXPECT_THAT(Config(m_client, "running"), Not(HasSubstr("c1")));
    Do(m_client, EditData(Sflow("<collector nc:operation=\"delete\"><name>c1</name></collector>")));
    EXPECT_THAT(Config(m_client, "candidate"), AllOf(Not(HasSubstr("c1")), HasSubstr("c2")));
    Do(m_client, EditData(Sflow(Collector("c3")), "<default-operation>replace</default-operation>"));
    EXPECT_THAT(Config(m_client, "candidate"), AllOf(HasSubstr("c3"), Not(HasSubstr("c2"))));
    Refused(m_client, EditData(Sflow("<collector nc:operation=\"delete\"><name>c2</name></collector>")),
            "data-missing");
    const auto error = Refused(m_client, EditData(Sflow(Collector("c4", "<port>0</port>"))), "invalid-value");
    EXPECT_THAT(error.path, EndsWith(":port"));
    EXPECT_THAT(Config(m_client, "candidate"), Not(HasSubstr("c4")));
    Do(m_client, netconf::Commit());
    EXPECT_THAT(Config(m_client, "running"), HasSubstr("c3"));
}

/// It has no test-option: what is valid only together may come in parts.
TEST_F(Nmda, EditDataLeavesTheTestToValidate)
{
    const std::string collector = Collector("c1", "");  // its address is missing
    Refused(m_client, netconf::EditConfig(Sflow(collector)), "missing-element");
    Do(m_client, EditData(Sflow(collector)));
    Refused(m_client, netconf::Validate(), "missing-element");
    Do(m_client, EditData(Sflow(Collector("c1"))));
    Do(m_client, netconf::Commit());
}

TEST_F(Nmda, EditDataRefusesWhatCanNotBeEdited)
{
    for (const char* name : {"running", "intended", "operational", "startup"}) {
        const auto error = Refused(m_client, EditData(Sflow(Collector("c1")), "", name), "invalid-value");
        EXPECT_THAT(error.message, HasSubstr("candidate"));
    }
    Refused(m_client, "<edit-data xmlns=\"" + kNmda + "\">" + Datastore("candidate") + "</edit-data>",
            "missing-element");
    Refused(m_client, EditData("<x xmlns=\"urn:switch:yang:switch-config\"/>"), "unknown-element");
    Refused(m_client, EditData("<state xmlns=\"urn:switch:yang:switch-state\"/>"), "invalid-value");
    auto other = m_world.Connect();
    Do(other, netconf::Lock("candidate"));
    Refused(m_client, EditData(Sflow(Collector("c1"))), "in-use");
}

TEST_F(Nmda, LockUnlockAndValidateTakeTheIdentityOfADatastore)
{
    const auto on = [](const std::string& operation, const std::string& where, const std::string& name) {
        return Element(operation, Element(where, Datastore(name)));
    };
    auto other = m_world.Connect();
    for (const char* name : {"running", "candidate"}) {
        Do(m_client, on("lock", "target", name));
        Refused(other, netconf::Lock(name), "lock-denied");
        Do(m_client, on("unlock", "target", name));
        Do(other, netconf::Lock(name));
        Do(other, netconf::Unlock(name));
    }
    for (const char* name : {"operational", "intended", "startup"}) {
        Refused(m_client, on("lock", "target", name), "invalid-value");
        Refused(m_client, on("unlock", "target", name), "invalid-value");
    }
    Do(m_client, EditData(Sflow(Collector("c1", ""))));
    Refused(m_client, on("validate", "source", "candidate"), "missing-element");
    Do(m_client, on("validate", "source", "running"));
    Do(m_client, on("validate", "source", "intended"));
    Refused(m_client, on("validate", "source", "operational"), "invalid-value");
}

/// The rules that bind get-config and edit-config.
class DataBoundByRules : public BoundByRules {
protected:
    DataBoundByRules()
        : BoundByRules(
              "<rule><name>c</name><path>/c:config/s:oam/s:sflow/s:collector[s:name='hidden']</"
              "path><access-operations>*</access-operations><action>deny</action></rule>"
              "<rule><name>d</name><path>/c:config/s:oam/s:sflow/s:collector</"
              "path><access-operations>create</access-operations><action>permit</action></rule>")
    {
    }
};

TEST_F(DataBoundByRules, ByGetDataAndEditData)
{
    Do(m_root, EditData(Sflow(Collector("hidden") + Collector("shown"))));
    Do(m_root, netconf::Commit());
    for (const char* datastore : {"running", "candidate", "intended", "operational"}) {
        EXPECT_THAT(m_root.Call(GetData(datastore)).xml, HasSubstr("<name>hidden</name>"));
        EXPECT_THAT(m_bound->Call(GetData(datastore)).xml,
                    AllOf(HasSubstr("<name>shown</name>"), Not(HasSubstr("<name>hidden</name>"))));
    }
    Do(*m_bound, EditData(Sflow(Collector("new"))));
    Refused(*m_bound, EditData(Sflow(Collector("shown", "<ip>192.0.2.9</ip>"))), "access-denied");
}

}  // namespace
}  // namespace agent_tests
