// SPDX-License-Identifier: Apache-2.0
// Changes of the agent address, of collectors and of their enabled flag.

#include "support.h"

namespace daemon_tests {
namespace {

class ChangesTest : public HandlerTest {
protected:
    ChangesTest() { OpenGate(); }

    // The log of one change, without the dispatcher's own two lines.
    void ExpectChangeLogs(const std::vector<LogLine>& lines)
    {
        auto& logs = platform.recorder.logs;
        ASSERT_GE(logs.size(), 2U);
        logs.erase(logs.begin(), logs.begin() + 2);
        ExpectLogs(lines);
    }

    static constexpr char kAgent[] = "/config/oam/sflow/agent/ipv4";
    static constexpr char kManagement[] = "/config/interface/mgmt{m0}/ipv4/address/ip";
};

TEST_F(ChangesTest, ConfiguredAgentAddressIsSentAtOnce)
{
    cdb.Set(kAgent, Address("192.0.2.9"));
    Change(kAgent, MOP_VALUE_SET);
    ExpectCalls({Call("SetAgentAddress", "192.0.2.9")});
    EXPECT_EQ(platform.recorder.journal.back(), "session close");
    ExpectChangeLogs(
        {Line(10, "HandleCfgAgent", "Entry Point"), Line(10, "HandleCfgAgent", "Set Agent IP to 192.0.2.9")});
}

TEST_F(ChangesTest, AgentAddressIsLoggedBeforeItIsSent)
{
    cdb.Set(kAgent, Address("192.0.2.9"));
    Change(kAgent, MOP_VALUE_SET);
    const auto journal = Journal({"log", "service"});
    ASSERT_GE(journal.size(), 2U);
    EXPECT_EQ(journal[journal.size() - 2], "log 10 HandleCfgAgent: Set Agent IP to 192.0.2.9");
    EXPECT_EQ(journal.back(), "service SetAgentAddress(\"192.0.2.9\")");
}

TEST_F(ChangesTest, WithoutAnAgentAddressTheManagementAddressServes)
{
    cdb.Create("/config/interface/mgmt{m0}");
    cdb.Set(kManagement, AddressAndLength("10.0.0.5/24"));
    cdb.Create("/config/interface/mgmt{m1}");
    cdb.Set("/config/interface/mgmt{m1}/ipv4/address/ip", AddressAndLength("10.0.0.6/24"));
    Change(kAgent, MOP_DELETED);
    ExpectCalls({Call("SetAgentAddress", "10.0.0.5")});
    ExpectChangeLogs({Line(10, "HandleCfgAgent", "Entry Point"),
                      Line(10, "HandleCfgAgent",
                           "Using outband mgmt ip address (/config/oam/sflow/agent/ipv4 does not exist)"),
                      Line(10, "HandleCfgAgent", "Set Agent IP to 10.0.0.5")});
    EXPECT_THAT(Journal({"cdb"}), ElementsAre("cdb cdb_get /config/oam/sflow/agent/ipv4",
                                              "cdb cdb_get /config/interface/mgmt[0]/ipv4/address/ip"));
}

TEST_F(ChangesTest, AnyFailureOfTheAgentReadFallsBack)
{
    cdb.Set(kAgent, Address("192.0.2.9"));
    cdb.Return("cdb_get", kAgent, CONFD_ERR, "lock timed out");
    Change(kAgent, MOP_VALUE_SET);
    EXPECT_EQ(platform.recorder.logs.at(3),
              Line(10, "HandleCfgAgent", "Using outband mgmt ip address (lock timed out)"));
}

TEST_F(ChangesTest, WithoutAnyAddressZeroIsSent)
{
    Change(kAgent, MOP_DELETED);
    ExpectCalls({Call("SetAgentAddress", "0.0.0.0")});
    ExpectChangeLogs(
        {Line(10, "HandleCfgAgent", "Entry Point"),
         Line(10, "HandleCfgAgent",
              "Using outband mgmt ip address (/config/oam/sflow/agent/ipv4 does not exist)"),
         Line(10, "HandleCfgAgent",
              "Using default ip address (/config/interface/mgmt[0]/ipv4/address/ip does not exist)"),
         Line(10, "HandleCfgAgent", "Set Agent IP to 0.0.0.0")});
}

TEST_F(ChangesTest, ValueIsReleasedOnceAndIsEmptyWhenNothingWasRead)
{
    DirtyStack();
    Change(kAgent, MOP_DELETED);
    EXPECT_THAT(platform.released, ElementsAre(C_NOEXISTS));
    cdb.Create("/config/interface/mgmt{m0}");
    cdb.Set(kManagement, AddressAndLength("10.0.0.5/24"));
    Change(kAgent, MOP_DELETED);
    EXPECT_THAT(platform.released, ElementsAre(C_NOEXISTS, C_IPV4_AND_PLEN));
    cdb.Set(kAgent, Address("192.0.2.9"));
    Change(kAgent, MOP_VALUE_SET);
    EXPECT_THAT(platform.released, ElementsAre(C_NOEXISTS, C_IPV4_AND_PLEN, C_IPV4));
}

TEST_F(ChangesTest, ChangeOfTheManagementAddressSendsTheConfiguredAgentAgain)
{
    cdb.Set(kAgent, Address("192.0.2.9"));
    Keypath keypath(kManagement);
    EXPECT_EQ(static_cast<int>(handler.GetSubscriptionPoints()[0].callback(keypath.Get(), MOP_VALUE_SET,
                                                                           nullptr, nullptr)),
              5);
    ExpectCalls({Call("SetAgentAddress", "192.0.2.9")});
}

TEST_F(ChangesTest, DeletingACollectorStagesItsNameOnly)
{
    AddInterface("eth1", {"c1"});
    Staged()["c1"] = {true, 1, 2, 3, true};
    EXPECT_EQ(Change("/config/oam/sflow/collector{c1}", MOP_DELETED), ITER_CONTINUE);
    ExpectChangeLogs({Line(10, "HandleCfgCollector", "/config/oam/sflow/collector{c1} (op = 2)"),
                      Line(10, "HandleCfgCollector", "Add collector 'c1' to delete list")});
    EXPECT_THAT(StagedDeletions(), ElementsAre("c1"));
    EXPECT_EQ(Staged(), (Collectors{{"c1", {true, 1, 2, 3, true}}}));
    EXPECT_THAT(StagedInterfaces(), IsEmpty());
    EXPECT_THAT(Journal({"cdb", "session", "service"}), IsEmpty());
}

TEST_F(ChangesTest, OtherOperationsOnACollectorStageNothing)
{
    for (const confd_iter_op op : {MOP_CREATED, MOP_MODIFIED, MOP_VALUE_SET}) {
        EXPECT_EQ(Change("/config/oam/sflow/collector{c1}", op), ITER_RECURSE);
        ExpectChangeLogs({Line(10, "HandleCfgCollector",
                               "/config/oam/sflow/collector{c1} (op = " + std::to_string(op) + ")")});
    }
    EXPECT_THAT(Staged(), IsEmpty());
    EXPECT_THAT(StagedDeletions(), IsEmpty());
    EXPECT_THAT(Journal({"cdb", "session", "service"}), IsEmpty());
}

TEST_F(ChangesTest, DisablingACollectorDetachesItEverywhereAndDeletesIt)
{
    AddCollector("c1", "192.0.2.1", false);
    AddCollector("c2", "192.0.2.2");
    AddInterface("eth1", {"c1", "c2"});
    AddInterface("eth2", {}, {"c1"});
    EXPECT_EQ(static_cast<int>(ChangeEnabled("c1", false)), 5);
    EXPECT_EQ(StagedInterfaces(),
              (Interfaces{{"eth1", {4096, 128, 20, {{{"c2", false}}, {}}, {{"c1"}, {}}, false}},
                          {"eth2", {4096, 128, 20, {}, {{}, {"c1"}}, false}}}));
    EXPECT_THAT(StagedDeletions(), ElementsAre("c1"));
    EXPECT_FALSE(Staged()["c1"].send);
    EXPECT_EQ(platform.recorder.logs.at(2),
              Line(10, "HandleCfgEnabled", "/config/oam/sflow/collector{c1}/enabled = 0)"));
    EXPECT_EQ(platform.recorder.logs.back(),
              Line(10, "HandleCfgEnabled", "Del collector 'c1', ip = 0x10200c0, enabled: 0"));
    ExpectCalls({});
}

TEST_F(ChangesTest, DisablingLeavesSendAsItIs)
{
    AddCollector("c1", "192.0.2.1", false);
    Staged()["c1"] = {false, 1, 2, 3, true};
    ChangeEnabled("c1", false);
    EXPECT_TRUE(Staged()["c1"].send);
}

TEST_F(ChangesTest, EnablingACollectorSendsAndAttachesIt)
{
    AddCollector("c1", "192.0.2.1");
    AddCollector("c2", "192.0.2.2");
    AddInterface("eth1", {"c1", "c2"});
    EXPECT_EQ(static_cast<int>(ChangeEnabled("c1", true)), 5);
    EXPECT_EQ(Staged(), (Collectors{{"c1", {true, Word("192.0.2.1"), 1400, 6343, true}},
                                    {"c2", {true, Word("192.0.2.2"), 1400, 6343, false}}}));
    EXPECT_EQ(StagedInterfaces(),
              (Interfaces{{"eth1", {4096, 128, 20, {{{"c1", true}, {"c2", false}}, {}}, {}, false}}}));
    EXPECT_THAT(StagedDeletions(), IsEmpty());
    EXPECT_EQ(platform.recorder.logs.back(),
              Line(10, "HandleCfgEnabled", "Add collector 'c1', ip = 0x10200c0, enabled: 1"));
    ExpectCalls({});
}

TEST_F(ChangesTest, EnablingWithoutAnyInterfaceStillSendsTheCollector)
{
    AddCollector("c1", "192.0.2.1");
    ChangeEnabled("c1", true);
    EXPECT_TRUE(Staged()["c1"].send);
    EXPECT_THAT(StagedInterfaces(), IsEmpty());
    EXPECT_THAT(Journal({"session", "cdb"}),
                ElementsAre("session open 1 true", "cdb cdb_num_instances /config/oam/sflow/interface",
                            "cdb cdb_get_object /config/oam/sflow/collector{c1}", "session close"));
}

TEST_F(ChangesTest, DeliveredValueDecidesNotTheRecords)
{
    AddCollector("c1", "192.0.2.1", true);
    ChangeEnabled("c1", false);
    EXPECT_THAT(StagedDeletions(), ElementsAre("c1"));
    handler.StartCommit();
    AddCollector("c1", "192.0.2.1", false);
    ChangeEnabled("c1", true);
    EXPECT_TRUE(Staged()["c1"].send);
    EXPECT_FALSE(Staged()["c1"].enabled);
}

}  // namespace
}  // namespace daemon_tests
