// SPDX-License-Identifier: Apache-2.0
// What a commit's staged state becomes at the sFlow service.

#include <cstdio>
#include <stdexcept>

#include "support.h"

namespace daemon_tests {
namespace {

class ApplyTest : public HandlerTest {
protected:
    void Apply() { handler.ApplyCommitConfig(); }
    static LogLine ApplyLine(const std::string& text) { return Line(10, "ApplyCommitConfig", text); }
    static LogLine InterfaceLine(const std::string& text)
    {
        return Line(10, "ApplyCommitConfigInterface", text);
    }
    const LogLine entry = ApplyLine("Entry Point");
    const LogLine eth1 = InterfaceLine("Apply interface eth1 configuration");
};

TEST_F(ApplyTest, NothingStagedIsNothingSent)
{
    Apply();
    ExpectLogs({entry});
    ExpectCalls({});
}

TEST_F(ApplyTest, SendDecidesAboutACollectorNotEnabled)
{
    Staged()["a"] = {true, Word("192.0.2.1"), 1400, 6343, false};
    Staged()["b"] = {false, Word("192.0.2.2"), 1000, 7000, true};
    Apply();
    ExpectCalls({Call("AddCollector", "b", "192.0.2.2", 7000, 1000)});
}

TEST_F(ApplyTest, CollectorIsLoggedAroundItsCall)
{
    Staged()["c1"] = {true, Word("192.0.2.1"), 1400, 6343, true};
    Apply();
    char service[64];
    std::snprintf(service, sizeof service, "%p", static_cast<void*>(platform.service));
    EXPECT_THAT(Journal({"log", "service"}),
                ElementsAre("log 10 ApplyCommitConfig: Entry Point",
                            std::string("log 10 ApplyCommitConfig: Send collector c1 (svc: ") + service + ")",
                            "service AddCollector(\"c1\", \"192.0.2.1\", 6343, 1400)",
                            "log 10 ApplyCommitConfig: Collector ip 192.0.2.1"));
}

TEST_F(ApplyTest, SettingsTravelWithTheFirstCollectorAndTheRestIsAdded)
{
    StagedInterfaces()["eth1"] = {4096,         128,  20, {{{"c1", true}, {"c2", true}}, {{"c3", true}}},
                                  {{"c0"}, {}}, false};
    Apply();
    ExpectCalls({Call("UpdateInterface", "eth1", "c1", "", 4096, 2, 128, 20),
                 Call("AddSampleCollector", "eth1", "c2"), Call("AddCounterCollector", "eth1", "c3"),
                 Call("RemoveSampleCollector", "eth1", "c0")});
    ExpectLogs({entry, eth1, InterfaceLine("Update interface eth1"),
                InterfaceLine("Add sample collector c2 to interface eth1"), eth1,
                InterfaceLine("Add counter collector c3 to interface eth1"),
                ApplyLine("Remove sample collector c0 from interface eth1")});
}

TEST_F(ApplyTest, UpdateDoesNotMatterWhenACollectorIsAttached)
{
    for (const bool update : {false, true}) {
        StagedInterfaces()["eth1"] = {1, 2, 3, {{{"c1", true}}, {}}, {}, update};
        Apply();
        ExpectCalls({Call("UpdateInterface", "eth1", "c1", "", 1, 2, 2, 3)});
    }
}

TEST_F(ApplyTest, InterfaceWithoutCollectorsButWithARemovalIsUnset)
{
    StagedInterfaces()["eth1"] = {4096, 128, 20, {}, {{"c1"}, {}}, true};
    Apply();
    ExpectCalls({Call("UnsetInterface", "eth1")});
    ExpectLogs({entry, eth1, eth1, ApplyLine("Unset interface eth1 (no collectors)")});
}

TEST_F(ApplyTest, RemovalOfACounterCollectorUnsetsToo)
{
    StagedInterfaces()["eth1"] = {4096, 128, 20, {}, {{}, {"c1"}}, false};
    Apply();
    ExpectCalls({Call("UnsetInterface", "eth1")});
}

TEST_F(ApplyTest, DeletedInterfaceIsUnsetAndItsMarkNeverSent)
{
    StagedInterfaces()["eth1"] = {0, 0, 0, {}, {{"all"}, {"all"}}, false};
    Apply();
    ExpectCalls({Call("UnsetInterface", "eth1")});
}

TEST_F(ApplyTest, InterfaceWithoutCollectorsAndRemovalsIsNotSentEvenToUpdate)
{
    StagedInterfaces()["eth1"] = {4096, 128, 20, {}, {}, true};
    Apply();
    ExpectCalls({});
    ExpectLogs({entry, eth1, eth1});
}

TEST_F(ApplyTest, CollectorsWithoutApplyFlagSendTheSettingsWhenTheyChanged)
{
    StagedInterfaces()["eth1"] = {4096, 128, 20, {{{"c1", false}}, {{"c2", false}}}, {{"c3"}, {"c4", "c5"}},
                                  true};
    Apply();
    ExpectCalls({Call("UpdateInterface", "eth1", "", "", 4096, 2, 128, 20),
                 Call("RemoveSampleCollector", "eth1", "c3"), Call("RemoveCounterCollector", "eth1", "c4"),
                 Call("RemoveCounterCollector", "eth1", "c5")});
    ExpectLogs({entry, eth1, InterfaceLine("Sample collector c1 is not enabled, skip it"), eth1,
                InterfaceLine("Counter collector c2 is not enabled, skip it"),
                ApplyLine("Update interface eth1"),
                ApplyLine("Remove sample collector c3 from interface eth1"),
                ApplyLine("Remove counter collector c4 from interface eth1"),
                ApplyLine("Remove counter collector c5 from interface eth1")});
}

// Either kind alone keeps the interface: it is not unset, and its settings are sent.
TEST_F(ApplyTest, UnchangedCollectorsOfOneKindKeepTheInterface)
{
    const std::map<std::string, bool> unchanged = {{"c1", false}};
    for (const ECollector kind : {Sample, Counter}) {
        for (const bool update : {false, true}) {
            interface_st& interface = StagedInterfaces()["eth1"];
            interface = {4096, 128, 20, {}, {{"c3"}, {}}, update};
            interface.collectors[kind] = unchanged;
            Apply();
            std::vector<ServiceCall> calls;
            if (update) calls.push_back(Call("UpdateInterface", "eth1", "", "", 4096, 2, 128, 20));
            calls.push_back(Call("RemoveSampleCollector", "eth1", "c3"));
            ExpectCalls(calls);
        }
    }
}

TEST_F(ApplyTest, CollectorsWithoutApplyFlagAndChangeSendTheRemovalsOnly)
{
    StagedInterfaces()["eth1"] = {4096, 128, 20, {{{"c1", false}}, {}}, {{"c3"}, {}}, false};
    Apply();
    ExpectCalls({Call("RemoveSampleCollector", "eth1", "c3")});
}

TEST_F(ApplyTest, SingleCounterCollectorRidesOnTheUpdate)
{
    StagedInterfaces()["eth1"] = {4096, 128, 20, {{}, {{"c3", true}}}, {}, false};
    Apply();
    ExpectCalls({Call("UpdateInterface", "eth1", "", "c3", 4096, 2, 128, 20)});
    ExpectLogs({entry, eth1, eth1, InterfaceLine("Update interface eth1")});
}

TEST_F(ApplyTest, CounterCollectorRidesWhenNoSampleCollectorHasTheFlag)
{
    StagedInterfaces()["eth1"] = {4096, 128, 20, {{{"c1", false}}, {{"c2", true}, {"c3", true}}}, {}, true};
    Apply();
    ExpectCalls({Call("UpdateInterface", "eth1", "", "c2", 4096, 2, 128, 20),
                 Call("AddCounterCollector", "eth1", "c3")});
}

TEST_F(ApplyTest, CollectorsAreDeletedAfterEveryInterfaceHasLetGo)
{
    StagedDeletions() = {"c1", "c0"};
    StagedInterfaces()["eth1"] = {4096, 128, 20, {{{"c2", false}}, {}}, {{"c1"}, {}}, false};
    StagedInterfaces()["eth2"] = {4096, 128, 20, {}, {{"c1"}, {}}, false};
    Staged()["c9"] = {true, Word("192.0.2.9"), 1400, 6343, true};
    Apply();
    ExpectCalls({Call("AddCollector", "c9", "192.0.2.9", 6343, 1400),
                 Call("RemoveSampleCollector", "eth1", "c1"), Call("UnsetInterface", "eth2"),
                 Call("DeleteCollector", "c0"), Call("DeleteCollector", "c1")});
    ASSERT_GE(platform.recorder.logs.size(), 2U);
    EXPECT_EQ(platform.recorder.logs.back(), ApplyLine("Delete  collector c1"));
}

TEST_F(ApplyTest, ApplyingTwiceSendsTwice)
{
    StagedDeletions() = {"c1"};
    Apply();
    Apply();
    ExpectCalls({Call("DeleteCollector", "c1"), Call("DeleteCollector", "c1")});
}

TEST_F(ApplyTest, NamesAscendByBytes)
{
    for (const char* name : {"eth2", "eth10"}) StagedInterfaces()[name] = {1, 2, 3, {}, {{"x"}, {}}, false};
    Apply();
    ExpectCalls({Call("UnsetInterface", "eth10"), Call("UnsetInterface", "eth2")});
}

TEST_F(ApplyTest, IsSentWhateverTheManagerGateSays)
{
    StagedDeletions() = {"c1"};
    EXPECT_FALSE(inside::MgrAvailable(handler));
    Apply();
    ExpectCalls({Call("DeleteCollector", "c1")});
}

TEST_F(ApplyTest, ExceptionOfTheServiceLeavesTheRestUnsentAndStaged)
{
    StagedDeletions() = {"c1", "c2"};
    platform.onServiceCall = [] { throw std::runtime_error("service"); };
    EXPECT_THROW(Apply(), std::runtime_error);
    ExpectCalls({Call("DeleteCollector", "c1")});
    EXPECT_THAT(StagedDeletions(), ElementsAre("c1", "c2"));
}

TEST_F(ApplyTest, InterfaceIsAppliedFromACopyAndClearsTheCallersFlag)
{
    interface_st interface {
        4096, 128, 20, {{{"c1", true}}, {}}, {}, false
    };
    bool pending = true;
    inside::ApplyCommitConfigInterface(handler, "eth1", interface, Counter, pending);
    EXPECT_TRUE(pending);
    inside::ApplyCommitConfigInterface(handler, "eth1", interface, Sample, pending);
    EXPECT_FALSE(pending);
    inside::ApplyCommitConfigInterface(handler, "eth1", interface, Sample, pending);
    ExpectCalls({Call("UpdateInterface", "eth1", "c1", "", 4096, 2, 128, 20),
                 Call("AddSampleCollector", "eth1", "c1")});
    ExpectLogs({eth1, eth1, InterfaceLine("Update interface eth1"), eth1,
                InterfaceLine("Add sample collector c1 to interface eth1")});
}

}  // namespace
}  // namespace daemon_tests
