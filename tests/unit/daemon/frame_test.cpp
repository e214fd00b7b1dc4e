// SPDX-License-Identifier: Apache-2.0
// The configuration handler's frame: subscription points, the manager gate, the initial load.

#include "support.h"

namespace daemon_tests {
namespace {

class FrameTest : public HandlerTest {
protected:
    FrameTest()
    {
        AddCollector("c1", "192.0.2.1");
        AddInterface("eth1", {"c1"});
    }

    void StageSomething()
    {
        Staged()["old"].send = true;
        StagedDeletions().insert("gone");
        StagedInterfaces()["eth9"].update = true;
    }
    bool NothingIsStaged()
    {
        return Staged().empty() && StagedDeletions().empty() && StagedInterfaces().empty();
    }

    const std::vector<ServiceCall> wholeLoad = {Call("SetAgentAddress", "0.0.0.0"),
                                                Call("AddCollector", "c1", "192.0.2.1", 6343, 1400),
                                                Call("UpdateInterface", "eth1", "c1", "", 4096, 2, 128, 20)};
};

TEST_F(FrameTest, SubscribesTheManagementAddressThenTheSFlowConfiguration)
{
    const auto& points = handler.GetSubscriptionPoints();
    ASSERT_EQ(points.size(), 2U);
    EXPECT_EQ(points[0].priority, 1);
    EXPECT_EQ(points[0].ns, 328607681);
    EXPECT_STREQ(points[0].path, "/config/interface/mgmt/ipv4/address/ip");
    EXPECT_EQ(points[0].flags, 16);
    EXPECT_EQ(points[1].priority, 2);
    EXPECT_EQ(points[1].ns, 116992694);
    EXPECT_STREQ(points[1].path, "/config/oam/sflow");
    EXPECT_EQ(points[1].flags, 16);
    EXPECT_EQ(&points, &inside::SubscriptionPoints(handler));
}

TEST_F(FrameTest, BothPointsReachTheOneDispatcher)
{
    Keypath keypath("/config/interface/mgmt{m0}/ipv4/address/ip");
    for (const auto& point : handler.GetSubscriptionPoints())
        EXPECT_EQ(point.callback(keypath.Get(), MOP_VALUE_SET, nullptr, nullptr), ITER_STOP);
    const LogLine wait = Line(12, "HandleCfg", "Manager is not available yet, wait for server found");
    ExpectLogs({wait, wait});
}

TEST_F(DaemonTest, ConstructorBuildsTheServiceAndIsSilentOtherwise)
{
    zlog_category_t* const category = qxmw_trace_init(nullptr, "test");
    ForgetRecords();
    {
        const SFlowConfigHandler handler(category);
        EXPECT_THAT(platform.recorder.journal, ElementsAre("service build"));
        ASSERT_TRUE(platform.found && platform.lost);
        EXPECT_TRUE(boost::any_cast<bool>(platform.found->second));
        EXPECT_FALSE(boost::any_cast<bool>(platform.lost->second));
        ForgetRecords();
    }
    EXPECT_THAT(platform.recorder.journal, ElementsAre("service delete"));
}

TEST_F(FrameTest, FoundLoadsInASessionOfItsOwnAndThenApplies)
{
    platform.ManagerFound();
    EXPECT_TRUE(inside::MgrAvailable(handler));
    ExpectCalls(wholeLoad);
    EXPECT_THAT(
        Journal({"session", "cdb"}),
        ElementsAre("session open 1 true", "cdb cdb_get /config/oam/sflow/agent/ipv4",
                    "cdb cdb_get /config/interface/mgmt[0]/ipv4/address/ip",
                    "cdb cdb_num_instances /config/oam/sflow/collector",
                    "cdb cdb_get_objects /config/oam/sflow/collector",
                    "cdb cdb_num_instances /config/oam/sflow/interface",
                    "cdb cdb_get_objects /config/oam/sflow/interface",
                    "cdb cdb_num_instances /config/oam/sflow/interface{eth1}/flow-sampling-collector",
                    "cdb cdb_get_objects /config/oam/sflow/interface{eth1}/flow-sampling-collector",
                    "cdb cdb_num_instances /config/oam/sflow/interface{eth1}/counter-sampling-collector",
                    "session close"));
    // The session is closed before anything staged is sent.
    const auto& journal = platform.recorder.journal;
    const auto close = std::find(journal.begin(), journal.end(), "session close");
    ASSERT_NE(close, journal.end());
    EXPECT_EQ(*(close + 1), "log 10 ApplyCommitConfig: Entry Point");
    EXPECT_THAT(platform.unreleased, IsEmpty());
}

TEST_F(FrameTest, FoundLogsItsSteps)
{
    platform.ManagerFound();
    const std::vector<LogLine>& logs = platform.recorder.logs;
    ASSERT_GE(logs.size(), 3U);
    EXPECT_EQ(logs[0], Line(10, "SetMgrStatus", "SFlowMgr server found"));
    EXPECT_EQ(logs[1], Line(11, "SetMgrStatus", "SFlowMgr server found, load initial config"));
    EXPECT_EQ(logs[2], Line(10, "LoadInitialConfig", "Entry Point"));
}

TEST_F(FrameTest, LostBeforeAnyFoundChangesNothing)
{
    platform.ManagerLost();
    ExpectLogs({Line(10, "SetMgrStatus", "SFlowMgr server lost"),
                Line(12, "SetMgrStatus", "SFlowMgr status did not change, nothing to do")});
    EXPECT_FALSE(inside::MgrAvailable(handler));
    ExpectCalls({});
}

TEST_F(FrameTest, FoundTwiceLoadsOnce)
{
    platform.ManagerFound();
    ForgetRecords();
    platform.ManagerFound();
    ExpectLogs({Line(10, "SetMgrStatus", "SFlowMgr server found"),
                Line(12, "SetMgrStatus", "SFlowMgr status did not change, nothing to do")});
    ExpectCalls({});
    EXPECT_THAT(Journal({"cdb", "session"}), IsEmpty());
    EXPECT_TRUE(inside::MgrAvailable(handler));
}

TEST_F(FrameTest, LostAfterFoundKeepsWhatIsStagedAndSendsNothing)
{
    platform.ManagerFound();
    const Collectors staged = Staged();
    ForgetRecords();
    platform.ManagerLost();
    ExpectLogs({Line(10, "SetMgrStatus", "SFlowMgr server lost")});
    ExpectCalls({});
    EXPECT_FALSE(inside::MgrAvailable(handler));
    EXPECT_EQ(Staged(), staged);
}

TEST_F(FrameTest, FoundLostFoundLoadsTwiceInAll)
{
    platform.ManagerFound();
    platform.ManagerLost();
    platform.ManagerFound();
    std::vector<ServiceCall> twice = wholeLoad;
    twice.insert(twice.end(), wholeLoad.begin(), wholeLoad.end());
    ExpectCalls(twice);
}

TEST_F(FrameTest, FoundWithoutAConnectionOnlyOpensTheGate)
{
    platform.confd.connected = false;
    platform.ManagerFound();
    ExpectLogs({Line(10, "SetMgrStatus", "SFlowMgr server found")});
    ExpectCalls({});
    EXPECT_TRUE(inside::MgrAvailable(handler));

    platform.confd.connected = true;
    handler.LoadInitialConfig(Session());
    handler.ApplyInitialConfig();
    ExpectCalls(wholeLoad);
}

TEST_F(FrameTest, FoundBeforeTheFrameworkExistsOnlyOpensTheGate)
{
    handler.SetConfdInterface(nullptr);
    platform.ManagerFound();
    ExpectLogs({Line(10, "SetMgrStatus", "SFlowMgr server found")});
    EXPECT_TRUE(inside::MgrAvailable(handler));
}

TEST_F(FrameTest, LoadBeforeFoundWaitsAndKeepsWhatIsStaged)
{
    StageSomething();
    handler.LoadInitialConfig(Session());
    ExpectLogs({Line(10, "LoadInitialConfig", "Entry Point"),
                Line(12, "LoadInitialConfig", "Manager is not available yet, wait for server found")});
    EXPECT_THAT(Journal({"cdb"}), IsEmpty());
    EXPECT_EQ(Staged().count("old"), 1U);
    EXPECT_EQ(StagedDeletions().count("gone"), 1U);
    EXPECT_EQ(StagedInterfaces().count("eth9"), 1U);
}

TEST_F(FrameTest, LoadEmptiesWhatIsStagedAndSendsTheAgentAddressOnly)
{
    OpenGate();
    StageSomething();
    handler.LoadInitialConfig(Session());
    EXPECT_THAT(Staged(), ElementsAre(testing::Key("c1")));
    EXPECT_THAT(StagedDeletions(), IsEmpty());
    EXPECT_THAT(StagedInterfaces(), ElementsAre(testing::Key("eth1")));
    ExpectCalls({wholeLoad[0]});
}

TEST_F(FrameTest, ApplyInitialConfigOnlyAppliesWhatIsStaged)
{
    handler.ApplyInitialConfig();
    ExpectLogs({Line(10, "ApplyCommitConfig", "Entry Point")});
    ExpectCalls({});
}

TEST_F(FrameTest, StartCommitEmptiesWhatIsStagedWhateverTheGate)
{
    for (const bool open : {false, true}) {
        if (open) OpenGate();
        StageSomething();
        handler.StartCommit();
        ExpectLogs({Line(10, "StartCommit", "Entry Point")});
        EXPECT_TRUE(NothingIsStaged());
        ExpectCalls({});
    }
}

TEST_F(FrameTest, StagedStateOutlivesItsApplication)
{
    OpenGate();
    handler.LoadInitialConfig(Session());
    handler.ApplyInitialConfig();
    EXPECT_FALSE(NothingIsStaged());
}

TEST_F(FrameTest, NoticeWithoutABoolThrows)
{
    EXPECT_THROW(platform.found->first(boost::any(1)), boost::bad_any_cast);
    EXPECT_THROW(platform.found->first(boost::any()), boost::bad_any_cast);
    ExpectLogs({});
    EXPECT_FALSE(inside::MgrAvailable(handler));
}

TEST_F(FrameTest, SessionThatCannotBeOpenedPropagatesAndLeavesTheGateOpen)
{
    platform.confd.refusal = "database is gone";
    EXPECT_THROW(platform.ManagerFound(), QxConfdSessionError);
    EXPECT_TRUE(inside::MgrAvailable(handler));
    ExpectCalls({});
    ExpectLogs({Line(10, "SetMgrStatus", "SFlowMgr server found"),
                Line(11, "SetMgrStatus", "SFlowMgr server found, load initial config")});
}

TEST_F(FrameTest, OneCommitFromStartToEnd)
{
    platform.ManagerFound();
    ForgetRecords();
    cdb.Set("/config/oam/sflow/interface{eth1}/sampling-rate", std::uint32_t{512});
    handler.StartCommit();
    EXPECT_EQ(Change("/config/oam/sflow/interface{eth1}", MOP_MODIFIED), ITER_RECURSE);
    EXPECT_EQ(Change("/config/oam/sflow/interface{eth1}/sampling-rate", MOP_VALUE_SET), ITER_CONTINUE);
    handler.ApplyCommitConfig();
    ExpectCalls({Call("UpdateInterface", "eth1", "", "", 512, 2, 128, 20)});
}

}  // namespace
}  // namespace daemon_tests
