// SPDX-License-Identifier: Apache-2.0
// What each operation of an edit does to the candidate.

#include "fixture.h"

namespace tests {
namespace {

using cdb::DefaultOperation;
using cdb::ErrorTag;
using Strings = std::vector<std::string>;

std::string Collector(const std::string& name, const std::string& rest = "<ip>192.0.2.1</ip>",
                      const std::string& attributes = "")
{
    return "<collector " + attributes + "><name>" + name + "</name>" + rest + "</collector>";
}

std::string Interface(const std::string& name, const std::string& rest = "",
                      const std::string& attributes = "")
{
    return "<interface " + attributes + "><name>" + name + "</name>" + rest + "</interface>";
}

class Edits : public DatastoreTest {
protected:
    [[nodiscard]] std::string Candidate() const { return Shown(CandidateTree().get()); }
    [[nodiscard]] std::string Running() const { return Shown(RunningTree().get()); }
};

constexpr const char* kOne =
    "config\n"
    "  oam\n"
    "    sflow\n"
    "      collector c1\n"
    "        ip 192.0.2.1\n"
    "        name c1\n";

TEST_F(Edits, AnEmptyStoreGivesEmptyTrees)
{
    EXPECT_EQ(Candidate(), "");
    EXPECT_EQ(Running(), "");
    EXPECT_FALSE(datastore->Changed());
}

TEST_F(Edits, MergeCreatesAndKeepsWhatItDoesNotMention)
{
    Edit(Sflow(Collector("c1")));
    EXPECT_EQ(Candidate(), kOne);
    EXPECT_EQ(Running(), "");
    Edit(Sflow(Collector("c1", "<port>7</port>")));
    EXPECT_EQ(Candidate(),
              "config\n"
              "  oam\n"
              "    sflow\n"
              "      collector c1\n"
              "        ip 192.0.2.1\n"
              "        name c1\n"
              "        port 7\n");
}

TEST_F(Edits, DeletingALeafGivesItsDefaultBack)
{
    Edit(Sflow(Collector("c1", "<ip>192.0.2.1</ip><port>7</port>")));
    Edit(Sflow(Collector("c1", "<port nc:operation='delete'/>")));
    EXPECT_EQ(Candidate(), kOne);
}

TEST_F(Edits, ReplaceOfAnEntryDropsWhatItDoesNotMention)
{
    Edit(Sflow(Collector("c1", "<ip>192.0.2.9</ip><port>7</port>")));
    Edit(Sflow(Collector("c1", "<ip>192.0.2.1</ip>", "nc:operation='replace'")));
    EXPECT_EQ(Candidate(), kOne);
}

TEST_F(Edits, ReplaceOfAContainerDropsTheOtherEntries)
{
    Edit(Sflow(Collector("c1") + Collector("c2") + Interface("eth1")));
    Edit(Config("<oam xmlns='urn:switch:yang:switch-oam-sflow'><sflow nc:operation='replace'>" +
                Collector("c1") + "</sflow></oam>"));
    EXPECT_EQ(Candidate(), kOne);
}

TEST_F(Edits, ReplaceAsDefaultDropsEverythingElse)
{
    Edit(Sflow(Interface("eth1")));
    Edit(Config(
        "<interface xmlns='urn:switch:yang:switch-interfaces'><mgmt><name>m</name></mgmt></interface>"));
    Edit(Sflow(Collector("c1")), DefaultOperation::kReplace);
    EXPECT_EQ(Candidate(), kOne);
}

TEST_F(Edits, ReplaceAsDefaultWithNothingEmptiesTheCandidate)
{
    Edit(Sflow(Collector("c1") + Interface("eth1")));
    EXPECT_FALSE(datastore->Edit(nullptr, DefaultOperation::kReplace, {}));
    EXPECT_EQ(Candidate(), "");
}

TEST_F(Edits, DeleteOfAContainerEmptiesIt)
{
    Edit(Sflow("<agent><ipv4>192.0.2.7</ipv4></agent>" + Collector("c1")));
    Edit(Sflow("<agent nc:operation='delete'/>"));
    EXPECT_EQ(Candidate(), kOne);
    const auto error = TryEdit(Sflow("<agent nc:operation='delete'/>"));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kDataMissing);
    Edit(Config("", "nc:operation='remove'"));
    EXPECT_EQ(Candidate(), "");
    Edit(Config("", "nc:operation='remove'"));
}

TEST_F(Edits, NoneTouchesOnlyWhatHasAnOperation)
{
    Edit(Sflow(Collector("c1")));
    Edit(Sflow(Collector("c1", "<port nc:operation='merge'>8</port>")), DefaultOperation::kNone);
    Edit(Sflow(Collector("c1", "<port nc:operation='remove'/>")), DefaultOperation::kNone);
    EXPECT_EQ(Candidate(), kOne);
    const auto error = TryEdit(Sflow(Collector("c2", "")), DefaultOperation::kNone);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kDataMissing);
}

TEST_F(Edits, SettingADefaultsValueMakesItExplicit)
{
    Edit(Sflow(Collector("c1")));
    Edit(Sflow(Collector("c1", "<port nc:operation='create'>6343</port>")));
    EXPECT_EQ(Candidate(), std::string(kOne) + "        port 6343\n");
    const auto error = TryEdit(Sflow(Collector("c1", "<port nc:operation='create'>6343</port>")));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kDataExists);
}

TEST_F(Edits, AFailedEditLeavesTheCandidateAsItWas)
{
    Edit(Sflow(Collector("c1", "<ip>192.0.2.1</ip><port>7</port>") + Interface("eth1")));
    const std::string before = Candidate();
    const std::string failing =
        Interface("eth1", "", "nc:operation='delete'") + Collector("c1", "<port>9</port>") +
        Collector("c1", "<port nc:operation='remove'/>") +
        Collector("c1", "<ip>192.0.2.4</ip>", "nc:operation='replace'") + Collector("c2") +
        "<agent><ipv4>192.0.2.7</ipv4></agent>" + Collector("none", "", "nc:operation='delete'");
    EXPECT_TRUE(TryEdit(Sflow(failing)));
    EXPECT_EQ(Candidate(), before);
    EXPECT_TRUE(TryEdit(Sflow(failing), DefaultOperation::kReplace));
    EXPECT_EQ(Candidate(), before);
}

TEST_F(Edits, DiscardGoesBackToRunning)
{
    Apply(Sflow(Collector("c1") + Interface("eth1", "<polling-interval>9</polling-interval>")));
    const std::string before = Running();
    Edit(Sflow(Interface("eth1", "<polling-interval>8</polling-interval>") + Interface("eth2") +
               Collector("c1", "", "nc:operation='delete'") + "<agent><ipv4>192.0.2.7</ipv4></agent>"));
    EXPECT_TRUE(datastore->Changed());
    datastore->Discard();
    EXPECT_FALSE(datastore->Changed());
    EXPECT_EQ(Candidate(), before);
    Edit(Config("", "nc:operation='delete'"));
    datastore->Discard();
    EXPECT_EQ(Candidate(), before);
}

TEST_F(Edits, ThePlanNamesTheEntriesToCreateAndChangesNothing)
{
    Apply(Sflow(Interface("eth1") + Interface("eth3")));
    EXPECT_EQ(Planned(Sflow(Interface("eth2") + Interface("eth1"))),
              Strings{"sflow-set-sampling-rate /config/oam/sflow/interface{eth2}"});
    EXPECT_EQ(Planned(Sflow(Interface("eth3", "", "nc:operation='replace'") + Interface("eth2"))),
              (Strings{"sflow-set-sampling-rate /config/oam/sflow/interface{eth3}",
                       "sflow-set-sampling-rate /config/oam/sflow/interface{eth2}"}));
    EXPECT_EQ(Planned(Sflow(Interface("eth1", "", "nc:operation='delete'") + Interface("eth1"))),
              Strings{"sflow-set-sampling-rate /config/oam/sflow/interface{eth1}"});
    EXPECT_EQ(Planned(Sflow(Interface("eth9") + Interface("eth9", "<polling-interval>3</polling-interval>"))),
              Strings{"sflow-set-sampling-rate /config/oam/sflow/interface{eth9}"});
    EXPECT_EQ(Planned(Sflow(Interface("eth9", "", "nc:operation='remove'") + Collector("c1"))), Strings{});
    EXPECT_EQ(Planned(Sflow(Interface("eth1")), DefaultOperation::kReplace),
              Strings{"sflow-set-sampling-rate /config/oam/sflow/interface{eth1}"});
    EXPECT_FALSE(datastore->Changed());
    EXPECT_EQ(Candidate(), Running());
}

TEST_F(Edits, ACallpointsWriteStandsInTheNewEntry)
{
    Edit(Sflow(Interface("eth1")), DefaultOperation::kMerge, {DefaultRate("eth1", 512)});
    EXPECT_EQ(Candidate(),
              "config\n  oam\n    sflow\n      interface eth1\n"
              "        default-sampling-rate 512\n        name eth1\n");
}

TEST_F(Edits, AnExplicitValueWinsOverTheCallpoints)
{
    const std::string leaf = "<default-sampling-rate>7</default-sampling-rate>";
    const std::string created = "<default-sampling-rate nc:operation='create'>7</default-sampling-rate>";
    for (const auto& inner : {leaf, created}) {
        Edit(Sflow(Interface("eth1", inner)), DefaultOperation::kMerge, {DefaultRate("eth1", 512)});
        EXPECT_EQ(Candidate(),
                  "config\n  oam\n    sflow\n      interface eth1\n"
                  "        default-sampling-rate 7\n        name eth1\n");
        datastore->Discard();
    }
}

TEST_F(Edits, ForTheRestOfTheEditTheCallpointsValueIsAbsent)
{
    const auto error = TryEdit(Sflow(Interface("eth1", "<default-sampling-rate nc:operation='delete'/>")),
                               DefaultOperation::kMerge, {DefaultRate("eth1", 512)});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->tag, ErrorTag::kDataMissing);
    Edit(Sflow(Interface("eth1", "<default-sampling-rate nc:operation='remove'/>")), DefaultOperation::kMerge,
         {DefaultRate("eth1", 512)});
    Edit(Sflow(Interface("eth1", "<default-sampling-rate nc:operation='delete'/>")));
}

TEST_F(Edits, AWriteToAnEntryThatIsNotCreatedIsDropped)
{
    Apply(Sflow(Interface("eth1")));
    Edit(Sflow(Interface("eth1", "<polling-interval>4</polling-interval>")), DefaultOperation::kMerge,
         {DefaultRate("eth1", 512), DefaultRate("eth2", 512)});
    EXPECT_EQ(
        Candidate(),
        "config\n  oam\n    sflow\n      interface eth1\n        name eth1\n        polling-interval 4\n");
}

}  // namespace
}  // namespace tests
