// SPDX-License-Identifier: Apache-2.0
// The readers of interfaces and of their collector lists.

#include "support.h"

namespace daemon_tests {
namespace {

using Flags = std::map<std::string, bool>;

class InterfaceReadersTest : public HandlerTest {
protected:
    bool Get(bool applyAll, const std::string& changedCollector, const std::string& name)
    {
        return inside::GetInterfaces(handler, Session(), applyAll, changedCollector, name);
    }
    const Flags& Attached(const std::string& interface, ECollector kind)
    {
        return StagedInterfaces()[interface].collectors[kind];
    }
    const Names& Removed(const std::string& interface, ECollector kind)
    {
        return StagedInterfaces()[interface].removedCollectors[kind];
    }
};

TEST_F(InterfaceReadersTest, EmptyListIsTheOnlyFalse)
{
    EXPECT_FALSE(Get(true, "", ""));
    ExpectLogs({Line(10, "GetInterfaces", "Entry Point"),
                Line(11, "GetInterfaces", "No interfaces available, nothing to do")});
    EXPECT_THAT(StagedInterfaces(), IsEmpty());
    EXPECT_THAT(Journal({"cdb"}), ElementsAre("cdb cdb_num_instances /config/oam/sflow/interface"));
}

TEST_F(InterfaceReadersTest, StagedInterfaceIsNotReadAgain)
{
    AddInterface("eth1");
    StagedInterfaces()["eth1"].update = true;
    EXPECT_TRUE(Get(true, "", "eth1"));
    ExpectLogs({Line(10, "GetInterfaces", "Entry Point"),
                Line(11, "GetInterfaces", "Data for interface eth1 already available")});
    EXPECT_THAT(Journal({"cdb"}), IsEmpty());
    EXPECT_EQ(StagedInterfaces(), (Interfaces{{"eth1", {0, 0, 0, {}, {}, true}}}));
}

TEST_F(InterfaceReadersTest, ReadsOneNamedInterfaceWithItsLists)
{
    AddCollector("c1", "192.0.2.1");
    AddCollector("c2", "192.0.2.2");
    AddInterface("eth1", {}, {"c1", "c2"});
    AddInterface("eth2", {"c1"});
    EXPECT_TRUE(Get(true, "", "eth1"));
    EXPECT_EQ(StagedInterfaces(),
              (Interfaces{{"eth1", {4096, 128, 20, {{}, {{"c1", true}, {"c2", true}}}, {}, false}}}));
    ExpectLogs({
        Line(10, "GetInterfaces", "Entry Point"),
        Line(11, "GetInterfaces",
             "Get data for interface eth1 (rate=4096, max_header_size=128, interval=20)"),
        Line(10, "GetInterfaceCollectors", "/config/oam/sflow/interface{eth1}/flow-sampling-collector"),
        Line(11, "GetInterfaceCollectors", "No collectors for interface eth1"),
        Line(10, "GetInterfaceCollectors", "/config/oam/sflow/interface{eth1}/counter-sampling-collector"),
        Line(11, "GetInterfaceCollectors", "Get 2 collector(s) for interface eth1"),
        Line(10, "GetCollector", "Get data for collector c1"),
        Line(10, "GetInterfaceCollectors", "Add collector c1 (idx = 1) to interface eth1"),
        Line(10, "GetCollector", "Get data for collector c2"),
        Line(10, "GetInterfaceCollectors", "Add collector c2 (idx = 1) to interface eth1"),
    });
    EXPECT_THAT(
        Journal({"cdb"}),
        ElementsAre("cdb cdb_get_object /config/oam/sflow/interface{eth1}",
                    "cdb cdb_num_instances /config/oam/sflow/interface{eth1}/flow-sampling-collector",
                    "cdb cdb_num_instances /config/oam/sflow/interface{eth1}/counter-sampling-collector",
                    "cdb cdb_get_objects /config/oam/sflow/interface{eth1}/counter-sampling-collector",
                    "cdb cdb_get_object /config/oam/sflow/collector{c1}",
                    "cdb cdb_get_object /config/oam/sflow/collector{c2}"));
    EXPECT_THAT(platform.unreleased, IsEmpty());
}

TEST_F(InterfaceReadersTest, ReadsAllInterfacesInOrderSampleBeforeCounter)
{
    AddCollector("c1", "192.0.2.1");
    AddInterface("eth2", {"c1"}, {"c1"});
    AddInterface("eth10", {"c1"});
    EXPECT_TRUE(Get(true, "", ""));
    std::vector<std::string> texts;
    for (const LogLine& line : platform.recorder.logs) {
        if (line.function != "GetCollector") texts.push_back(line.text);
    }
    EXPECT_THAT(
        texts,
        ElementsAre("Entry Point",
                    "Get data for interface eth10 (rate=4096, max_header_size=128, interval=20)",
                    "/config/oam/sflow/interface{eth10}/flow-sampling-collector",
                    "Get 1 collector(s) for interface eth10", "Add collector c1 (idx = 0) to interface eth10",
                    "/config/oam/sflow/interface{eth10}/counter-sampling-collector",
                    "No collectors for interface eth10",
                    "Get data for interface eth2 (rate=4096, max_header_size=128, interval=20)",
                    "/config/oam/sflow/interface{eth2}/flow-sampling-collector",
                    "Get 1 collector(s) for interface eth2", "Add collector c1 (idx = 0) to interface eth2",
                    "/config/oam/sflow/interface{eth2}/counter-sampling-collector",
                    "Get 1 collector(s) for interface eth2", "Add collector c1 (idx = 1) to interface eth2"));
    // One collector is read once, however many interfaces list it.
    const auto reads = Journal({"cdb"});
    EXPECT_EQ(std::count(reads.begin(), reads.end(), "cdb cdb_get_object /config/oam/sflow/collector{c1}"),
              1);
}

TEST_F(InterfaceReadersTest, InitialLoadPassesOverDisabledCollectors)
{
    AddCollector("off", "192.0.2.1", false);
    AddCollector("on", "192.0.2.2");
    AddInterface("eth1", {"off", "on"}, {"off"});
    Get(true, "", "");
    EXPECT_EQ(Attached("eth1", Sample), (Flags{{"on", true}}));
    EXPECT_THAT(Attached("eth1", Counter), IsEmpty());
    EXPECT_THAT(Removed("eth1", Sample), IsEmpty());
    EXPECT_THAT(Removed("eth1", Counter), IsEmpty());
}

TEST_F(InterfaceReadersTest, ApplyAllPassesOverADisabledCollectorEvenIfItIsTheChangedOne)
{
    AddCollector("off", "192.0.2.1", false);
    AddInterface("eth1", {"off"});
    Get(true, "off", "");
    EXPECT_THAT(Removed("eth1", Sample), IsEmpty());
}

TEST_F(InterfaceReadersTest, DisabledChangedCollectorIsDetachedWhereverItIsListed)
{
    AddCollector("c1", "192.0.2.1", false);
    AddCollector("c2", "192.0.2.2");
    AddCollector("c3", "192.0.2.3", false);
    AddInterface("eth1", {"c1", "c2", "c3"});
    AddInterface("eth2", {"c2"}, {"c1"});
    EXPECT_TRUE(Get(false, "c1", ""));
    EXPECT_EQ(StagedInterfaces(),
              (Interfaces{{"eth1", {4096, 128, 20, {{{"c2", false}}, {}}, {{"c1"}, {}}, false}},
                          {"eth2", {4096, 128, 20, {{{"c2", false}}, {}}, {{}, {"c1"}}, false}}}));
}

TEST_F(InterfaceReadersTest, DetachingLogsNothing)
{
    AddCollector("c1", "192.0.2.1", false);
    AddInterface("eth1", {"c1"});
    Get(false, "c1", "");
    for (const LogLine& line : platform.recorder.logs)
        EXPECT_THAT(line.text, testing::Not(testing::HasSubstr("emove")));
}

TEST_F(InterfaceReadersTest, EnabledChangedCollectorIsAttachedWhereverItIsListed)
{
    AddCollector("c1", "192.0.2.1");
    AddCollector("c2", "192.0.2.2");
    AddInterface("eth1", {"c1", "c2"});
    AddInterface("eth2", {}, {"c1"});
    AddInterface("eth3", {"c2"});
    Get(false, "c1", "");
    EXPECT_EQ(Attached("eth1", Sample), (Flags{{"c1", true}, {"c2", false}}));
    EXPECT_EQ(Attached("eth2", Counter), (Flags{{"c1", true}}));
    EXPECT_EQ(Attached("eth3", Sample), (Flags{{"c2", false}}));
}

TEST_F(InterfaceReadersTest, ReadOfAllOverwritesFieldsAndAddsToWhatIsStaged)
{
    AddCollector("c1", "192.0.2.1");
    AddInterface("eth1", {"c1"});
    interface_st& staged = StagedInterfaces()["eth1"];
    staged = {1, 2, 3, {{{"c0", true}, {"c1", true}}, {}}, {{"c7"}, {}}, true};
    Get(false, "", "");
    EXPECT_EQ(staged,
              (interface_st{4096, 128, 20, {{{"c0", true}, {"c1", false}}, {}}, {{"c7"}, {}}, false}));
}

}  // namespace
}  // namespace daemon_tests
