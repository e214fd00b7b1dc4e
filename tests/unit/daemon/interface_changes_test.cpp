// SPDX-License-Identifier: Apache-2.0
// Changes of interface entries and of their collector lists.

#include "support.h"

namespace daemon_tests {
namespace {

using Flags = std::map<std::string, bool>;

class InterfaceChangesTest : public HandlerTest {
protected:
    InterfaceChangesTest()
    {
        AddCollector("c1", "192.0.2.1");
        AddCollector("c2", "192.0.2.2");
        AddCollector("off", "192.0.2.3", false);
        OpenGate();
    }

    void ExpectChangeLogs(const std::vector<LogLine>& lines)
    {
        auto& logs = platform.recorder.logs;
        ASSERT_GE(logs.size(), 2U);
        logs.erase(logs.begin(), logs.begin() + 2);
        ExpectLogs(lines);
    }

    static constexpr char kEntry[] = "/config/oam/sflow/interface{eth0}";
    const std::string flowC1 = std::string(kEntry) + "/flow-sampling-collector{c1}";
    const std::string flowOff = std::string(kEntry) + "/flow-sampling-collector{off}";
    const std::string counterC1 = std::string(kEntry) + "/counter-sampling-collector{c1}";
    const interface_st deleted{0, 0, 0, {}, {{"all"}, {"all"}}, false};
};

TEST_F(InterfaceChangesTest, DeletingAnInterfaceThatIsStagedMarksIt)
{
    StagedInterfaces()["eth0"] = {4096, 128, 20, {{{"c1", true}, {"c2", false}}, {{"c1", true}}}, {}, true};
    EXPECT_EQ(Change(kEntry, MOP_DELETED), ITER_CONTINUE);
    EXPECT_EQ(StagedInterfaces(), (Interfaces{{"eth0", {4096, 128, 20, {}, {{"all"}, {"all"}}, false}}}));
    ExpectChangeLogs({Line(10, "HandleCfgInterface", "/config/oam/sflow/interface{eth0} (op = 2)"),
                      Line(10, "HandleCfgInterface", "Delete interface eth0")});
    EXPECT_THAT(Journal({"cdb", "session", "service"}), IsEmpty());
}

TEST_F(InterfaceChangesTest, DeletingAnInterfaceThatIsNotStagedCreatesTheMark)
{
    EXPECT_EQ(Change(kEntry, MOP_DELETED), ITER_CONTINUE);
    EXPECT_EQ(StagedInterfaces(), (Interfaces{{"eth0", deleted}}));
}

TEST_F(InterfaceChangesTest, CreatingAnInterfaceAttachesItsEnabledCollectors)
{
    AddInterface("eth0", {"c1", "off"});
    EXPECT_EQ(Change(kEntry, MOP_CREATED), ITER_RECURSE);
    EXPECT_EQ(StagedInterfaces(), (Interfaces{{"eth0", {4096, 128, 20, {{{"c1", true}}, {}}, {}, false}}}));
    EXPECT_EQ(platform.recorder.logs.at(2),
              Line(10, "HandleCfgInterface", std::string(kEntry) + " (op = 1)"));
    EXPECT_EQ(platform.recorder.logs.at(3), Line(10, "HandleCfgInterface", "Set interface eth0"));
    EXPECT_EQ(platform.recorder.logs.at(4), Line(10, "GetInterfaces", "Entry Point"));
    EXPECT_EQ(Journal({"session"}), (std::vector<std::string>{"session open 1 true", "session close"}));
}

TEST_F(InterfaceChangesTest, OtherOperationsStageTheCollectorsUnchanged)
{
    AddInterface("eth0", {"c1", "off"}, {"c2"});
    for (const confd_iter_op op : {MOP_MODIFIED, MOP_VALUE_SET}) {
        handler.StartCommit();
        EXPECT_EQ(Change(kEntry, op), ITER_RECURSE);
        EXPECT_EQ(StagedInterfaces(),
                  (Interfaces{{"eth0", {4096, 128, 20, {{{"c1", false}}, {{"c2", false}}}, {}, false}}}));
    }
}

TEST_F(InterfaceChangesTest, InterfaceIsReadOnceInACommit)
{
    AddInterface("eth0", {"c1"});
    Change(kEntry, MOP_CREATED);
    ForgetRecords();
    EXPECT_EQ(Change(kEntry, MOP_MODIFIED), ITER_RECURSE);
    EXPECT_THAT(Journal({"cdb"}), IsEmpty());
    EXPECT_EQ(StagedInterfaces()["eth0"].collectors[Sample], (Flags{{"c1", true}}));
}

TEST_F(InterfaceChangesTest, AddingAnEnabledCollectorToAListAttachesIt)
{
    AddInterface("eth0", {"c1", "c2"});
    Change(kEntry, MOP_MODIFIED);
    EXPECT_EQ(StagedInterfaces()["eth0"].collectors[Sample], (Flags{{"c1", false}, {"c2", false}}));
    ForgetRecords();
    EXPECT_EQ(Change(flowC1, MOP_CREATED), ITER_CONTINUE);
    EXPECT_EQ(StagedInterfaces()["eth0"].collectors[Sample], (Flags{{"c1", true}, {"c2", false}}));
    ExpectChangeLogs(
        {Line(10, "HandleCfgInterfaceCollector", "Get sample collector 'c1' for interface 'eth0' (op = 1)"),
         Line(10, "GetCollector", "Get data for collector c1"),
         Line(11, "GetCollector", "Data for collector c1 already available"),
         Line(10, "HandleCfgInterfaceCollector", "Add interface eth0 collector c1")});
    EXPECT_EQ(Journal({"session"}), (std::vector<std::string>{"session open 1 true", "session close"}));
}

TEST_F(InterfaceChangesTest, AttachingCreatesTheInterfaceRecord)
{
    Change(counterC1, MOP_CREATED);
    EXPECT_EQ(StagedInterfaces(), (Interfaces{{"eth0", {0, 0, 0, {{}, {{"c1", true}}}, {}, false}}}));
}

TEST_F(InterfaceChangesTest, AddingADisabledCollectorStagesNothing)
{
    EXPECT_EQ(Change(flowOff, MOP_CREATED), ITER_CONTINUE);
    EXPECT_THAT(StagedInterfaces(), IsEmpty());
    ExpectChangeLogs(
        {Line(10, "HandleCfgInterfaceCollector", "Get sample collector 'off' for interface 'eth0' (op = 1)"),
         Line(10, "GetCollector", "Get data for collector off")});
    EXPECT_EQ(Journal({"session"}), (std::vector<std::string>{"session open 1 true", "session close"}));
}

TEST_F(InterfaceChangesTest, RemovingACollectorStagesItWhateverItsState)
{
    for (const char* name : {"c1", "off", "unknown"}) {
        handler.StartCommit();
        ForgetRecords();
        EXPECT_EQ(Change(std::string(kEntry) + "/counter-sampling-collector{" + name + "}", MOP_DELETED),
                  ITER_CONTINUE);
        EXPECT_EQ(StagedInterfaces(), (Interfaces{{"eth0", {0, 0, 0, {}, {{}, {name}}, false}}}));
        ExpectChangeLogs(
            {Line(10, "HandleCfgInterfaceCollector",
                  std::string("Get counter collector '") + name + "' for interface 'eth0' (op = 2)"),
             Line(10, "HandleCfgInterfaceCollector",
                  std::string("Remove interface eth0 collector ") + name)});
        EXPECT_THAT(Journal({"cdb", "session"}), IsEmpty());
    }
}

TEST_F(InterfaceChangesTest, OtherOperationsOnAListEntryAreIgnored)
{
    EXPECT_EQ(Change(flowC1, MOP_MODIFIED), ITER_CONTINUE);
    ExpectChangeLogs(
        {Line(10, "HandleCfgInterfaceCollector", "Get sample collector 'c1' for interface 'eth0' (op = 3)"),
         Line(10, "HandleCfgInterfaceCollector", "Ignoring operation 3")});
    EXPECT_THAT(StagedInterfaces(), IsEmpty());
    EXPECT_THAT(Staged(), IsEmpty());
}

}  // namespace
}  // namespace daemon_tests
