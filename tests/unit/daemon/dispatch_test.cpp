// SPDX-License-Identifier: Apache-2.0
// The change dispatcher: recognition and routing of changed nodes.

#include "support.h"

namespace daemon_tests {
namespace {

constexpr char kEntryCollector[] = "/config/oam/sflow/collector{c1}";
constexpr char kEntryInterface[] = "/config/oam/sflow/interface{eth1}";

class DispatchTest : public HandlerTest {
protected:
    DispatchTest()
    {
        AddCollector("c1", "192.0.2.1");
        AddInterface("eth1", {"c1"});
        OpenGate();
    }
    // The functions that logged, in order, each once for consecutive lines.
    std::vector<std::string> Functions()
    {
        std::vector<std::string> functions;
        for (const LogLine& line : platform.recorder.logs) {
            if (functions.empty() || functions.back() != line.function) functions.push_back(line.function);
        }
        return functions;
    }
};

TEST_F(HandlerTest, ChangesAreRefusedWhileTheManagerIsAway)
{
    for (const char* path : {kEntryCollector, kEntryInterface}) {
        for (const confd_iter_op op : {MOP_CREATED, MOP_DELETED, MOP_MODIFIED}) {
            EXPECT_EQ(Change(path, op), ITER_STOP);
            ExpectLogs({Line(12, "HandleCfg", "Manager is not available yet, wait for server found")});
        }
    }
    EXPECT_THAT(Staged(), IsEmpty());
    EXPECT_THAT(StagedDeletions(), IsEmpty());
    EXPECT_THAT(StagedInterfaces(), IsEmpty());
    EXPECT_THAT(Journal({"cdb", "session", "kpath", "service"}), IsEmpty());
}

TEST_F(DispatchTest, KeypathIsLoggedWithTheOperation)
{
    Change("/config/oam/sflow/interface{eth1}/sampling-rate", MOP_VALUE_SET);
    ExpectLogs({Line(10, "HandleCfg", "keypath: /config/oam/sflow/interface{eth1}/sampling-rate, op = 4"),
                Line(10, "HandleCfg", "Found tag in pos = 0")});
}

TEST_F(DispatchTest, KeypathIsFormattedInto8192ZeroedBytes)
{
    const std::string path = "/config/oam/sflow/interface{" + std::string(9000, 'x') + "}/sampling-rate";
    DirtyStack();
    Change(path, MOP_VALUE_SET);
    EXPECT_EQ(platform.recorder.logs.at(0),
              Line(10, "HandleCfg", "keypath: " + path.substr(0, 8191) + ", op = 4"));
    EXPECT_EQ(platform.dirtyBuffers, 0);
}

TEST_F(DispatchTest, KeypathIsFormattedOnlyWhenItIsLogged)
{
    platform.recorder.lowestLevel = 11;
    Change("/config/oam/sflow/interface{eth1}/sampling-rate", MOP_VALUE_SET);
    EXPECT_THAT(Journal({"kpath"}), IsEmpty());
    ExpectLogs({});
    EXPECT_TRUE(StagedInterfaces()["eth1"].update);
}

TEST_F(DispatchTest, EmptyKeypathIsPassedOver)
{
    Keypath keypath("");
    EXPECT_EQ(Change(keypath, MOP_MODIFIED), ITER_CONTINUE);
    ExpectLogs({Line(10, "HandleCfg", "keypath: , op = 3")});
}

TEST_F(DispatchTest, KeypathWithoutASchemaElementIsPassedOver)
{
    Keypath keypath(kEntryCollector);
    keypath->len = 1;  // the key only
    EXPECT_EQ(Change(keypath, MOP_DELETED), ITER_CONTINUE);
    ExpectLogs({Line(10, "HandleCfg", "keypath: {c1}, op = 2")});
    EXPECT_THAT(StagedDeletions(), IsEmpty());
}

TEST_F(DispatchTest, TagOfAListEntryIsAtPositionOne)
{
    Change(kEntryCollector, MOP_CREATED);
    EXPECT_EQ(platform.recorder.logs.at(1), Line(10, "HandleCfg", "Found tag in pos = 1"));
}

TEST_F(DispatchTest, UnknownTagIsIgnoredAloud)
{
    EXPECT_EQ(Change("/config:735/odd:77", MOP_MODIFIED), ITER_CONTINUE);
    ExpectLogs({Line(10, "HandleCfg", "keypath: , op = 3"), Line(10, "HandleCfg", "Found tag in pos = 0"),
                Line(12, "HandleCfg", "Ignoring: 77")});
    EXPECT_THAT(Journal({"cdb", "session", "service"}), IsEmpty());
}

TEST_F(DispatchTest, ContainersAndTheFourthInterfaceLeafAreIgnored)
{
    struct {
        const char* path;
        std::uint32_t tag;
    } const rows[] = {
        {"/config/oam/sflow/agent", fakes::FindNode("/config/oam/sflow/agent")->tag},
        {"/config/oam/sflow/interface{eth1}/default-sampling-rate",
         fakes::FindNode("/config/oam/sflow/interface/default-sampling-rate")->tag},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Change(row.path, MOP_MODIFIED), ITER_CONTINUE) << row.path;
        EXPECT_EQ(platform.recorder.logs.back(),
                  Line(12, "HandleCfg", "Ignoring: " + std::to_string(row.tag)));
    }
    EXPECT_THAT(StagedInterfaces(), IsEmpty());
}

TEST_F(DispatchTest, CollectorEntryIsRouted)
{
    EXPECT_EQ(Change(kEntryCollector, MOP_CREATED), ITER_RECURSE);
    EXPECT_EQ(Change(kEntryCollector, MOP_MODIFIED), ITER_RECURSE);
    EXPECT_EQ(Change(kEntryCollector, MOP_DELETED), ITER_CONTINUE);
    EXPECT_THAT(Functions(), ElementsAre("HandleCfg", "HandleCfgCollector", "HandleCfg", "HandleCfgCollector",
                                         "HandleCfg", "HandleCfgCollector"));
    EXPECT_THAT(StagedDeletions(), ElementsAre("c1"));
}

TEST_F(DispatchTest, InterfaceEntryIsRouted)
{
    EXPECT_EQ(Change(kEntryInterface, MOP_CREATED), ITER_RECURSE);
    EXPECT_EQ(Change(kEntryInterface, MOP_MODIFIED), ITER_RECURSE);
    EXPECT_EQ(Change(kEntryInterface, MOP_DELETED), ITER_CONTINUE);
    EXPECT_EQ(platform.recorder.logs.at(2),
              Line(10, "HandleCfgInterface", std::string(kEntryInterface) + " (op = 1)"));
}

TEST_F(DispatchTest, EachInterfaceLeafMarksTheInterfaceAndNothingElse)
{
    for (const char* leaf : {"sampling-rate", "max-header-size", "polling-interval"}) {
        handler.StartCommit();
        ForgetRecords();
        EXPECT_EQ(Change("/config/oam/sflow/interface{eth5}/" + std::string(leaf), MOP_VALUE_SET),
                  ITER_CONTINUE);
        EXPECT_EQ(StagedInterfaces(), (Interfaces{{"eth5", {0, 0, 0, {}, {}, true}}})) << leaf;
        EXPECT_THAT(Journal({"cdb", "session", "service"}), IsEmpty());
        EXPECT_THAT(Functions(), ElementsAre("HandleCfg"));
        EXPECT_EQ(platform.recorder.logs.size(), 2U);
    }
    EXPECT_THAT(Staged(), IsEmpty());
}

TEST_F(DispatchTest, CollectorListEntriesAreRoutedWithInterfaceAndKind)
{
    struct {
        const char* list;
        const char* word;
        ECollector kind;
    } const rows[] = {{"flow-sampling-collector", "sample", Sample},
                      {"counter-sampling-collector", "counter", Counter}};
    for (const auto& row : rows) {
        handler.StartCommit();
        ForgetRecords();
        const std::string path = std::string(kEntryInterface) + "/" + row.list + "{c1}";
        EXPECT_EQ(Change(path, MOP_CREATED), ITER_CONTINUE);
        EXPECT_EQ(platform.recorder.logs.at(2),
                  Line(10, "HandleCfgInterfaceCollector",
                       std::string("Get ") + row.word + " collector 'c1' for interface 'eth1' (op = 1)"));
        EXPECT_EQ(StagedInterfaces()["eth1"].collectors[row.kind],
                  (std::map<std::string, bool>{{"c1", true}}));
        EXPECT_EQ(Change(path, MOP_DELETED), ITER_CONTINUE);
        EXPECT_EQ(StagedInterfaces()["eth1"].removedCollectors[row.kind], Names{"c1"});
        EXPECT_EQ(Change(path, MOP_MODIFIED), ITER_CONTINUE);
    }
}

TEST_F(DispatchTest, EnabledLeafIsRoutedWithTheNewValueWhateverTheOperation)
{
    EXPECT_EQ(static_cast<int>(ChangeEnabled("c1", true)), 5);
    EXPECT_EQ(platform.recorder.logs.at(2),
              Line(10, "HandleCfgEnabled", "/config/oam/sflow/collector{c1}/enabled = 1)"));
    Keypath keypath(std::string(kEntryCollector) + "/enabled");
    confd_value_t value{};
    value.type = C_BOOL;
    value.val.boolean = 0;
    ForgetRecords();
    EXPECT_EQ(static_cast<int>(Change(keypath, MOP_DELETED, &value)), 5);
    EXPECT_EQ(platform.recorder.logs.at(2),
              Line(10, "HandleCfgEnabled", "/config/oam/sflow/collector{c1}/enabled = 0)"));
}

TEST_F(DispatchTest, AddressLeavesUnderSchemaElementsReadTheAgentAddressAnew)
{
    cdb.Set("/config/oam/sflow/agent/ipv4", Address("192.0.2.9"));
    for (const char* path : {"/config/oam/sflow/agent/ipv4", "/config/interface/mgmt{m0}/ipv4/address/ip"}) {
        EXPECT_EQ(static_cast<int>(Change(path, MOP_VALUE_SET)), 5) << path;
        ExpectCalls({Call("SetAgentAddress", "192.0.2.9")});
        EXPECT_THAT(
            Journal({"session", "cdb"}),
            ElementsAre("session open 1 true", "cdb cdb_get /config/oam/sflow/agent/ipv4", "session close"));
        ForgetRecords();
    }
}

TEST_F(DispatchTest, AgentAddressIsReadAgainWhenItIsDeletedToo)
{
    EXPECT_EQ(static_cast<int>(Change("/config/oam/sflow/agent/ipv4", MOP_DELETED)), 5);
    ExpectCalls({Call("SetAgentAddress", "0.0.0.0")});
}

TEST_F(DispatchTest, CollectorLeavesSendAnEnabledCollectorAgain)
{
    for (const char* leaf : {"ip", "datagram-size", "port"}) {
        handler.StartCommit();
        ForgetRecords();
        EXPECT_EQ(Change(std::string(kEntryCollector) + "/" + leaf, MOP_VALUE_SET), ITER_CONTINUE) << leaf;
        EXPECT_EQ(Staged(), (Collectors{{"c1", {true, Word("192.0.2.1"), 1400, 6343, true}}})) << leaf;
        EXPECT_THAT(Journal({"session", "cdb"}),
                    ElementsAre("session open 1 true", "cdb cdb_get_object /config/oam/sflow/collector{c1}",
                                "session close"));
        ExpectCalls({});
    }
}

TEST_F(DispatchTest, AddressLeafNamedIpv4UnderACollectorIsTheCollectorsToo)
{
    Keypath keypath(std::string(kEntryCollector) + "/ip");
    keypath->v[0][0].val.xmltag.tag = fakes::FindNode("/config/oam/sflow/agent/ipv4")->tag;
    EXPECT_EQ(Change(keypath, MOP_VALUE_SET), ITER_CONTINUE);
    EXPECT_TRUE(Staged()["c1"].send);
    ExpectCalls({});
}

TEST_F(DispatchTest, CollectorLeafOfADisabledCollectorTakesTheSendingBack)
{
    Staged()["c1"] = {false, 1, 2, 3, true};
    EXPECT_EQ(Change(std::string(kEntryCollector) + "/port", MOP_VALUE_SET), ITER_CONTINUE);
    EXPECT_EQ(Staged(), (Collectors{{"c1", {false, 1, 2, 3, false}}}));
}

TEST_F(DispatchTest, SeveralLeavesOfOneCollectorReadItOnce)
{
    for (const char* leaf : {"ip", "datagram-size", "port"})
        Change(std::string(kEntryCollector) + "/" + leaf, MOP_VALUE_SET);
    EXPECT_THAT(Journal({"cdb"}), ElementsAre("cdb cdb_get_object /config/oam/sflow/collector{c1}"));
}

TEST_F(DispatchTest, KeysEndAtTheirFirstNul)
{
    Keypath keypath(kEntryCollector);
    keypath.SetText(0, std::string("c1\0x", 4));
    EXPECT_EQ(Change(keypath, MOP_DELETED), ITER_CONTINUE);
    EXPECT_THAT(StagedDeletions(), ElementsAre("c1"));
}

TEST_F(DispatchTest, EverySessionIsClosed)
{
    Change(kEntryInterface, MOP_CREATED);
    Change(std::string(kEntryInterface) + "/flow-sampling-collector{c1}", MOP_CREATED);
    Change(std::string(kEntryCollector) + "/port", MOP_VALUE_SET);
    Change("/config/oam/sflow/agent/ipv4", MOP_VALUE_SET);
    ChangeEnabled("c1", true);
    EXPECT_EQ(cdb.OpenSessions(), 0U);
    EXPECT_THAT(platform.unreleased, IsEmpty());
}

}  // namespace
}  // namespace daemon_tests
