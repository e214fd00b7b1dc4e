// SPDX-License-Identifier: Apache-2.0
// What a commit reports as changed.

#include "fixture.h"

namespace tests {
namespace {

using cdb::DefaultOperation;
using Strings = std::vector<std::string>;

class ChangesReported : public DatastoreTest {
protected:
    ChangesReported()
    {
        Apply(
            Sflow("<collector><name>c1</name><ip>192.0.2.1</ip></collector>"
                  "<collector><name>c2</name><ip>192.0.2.2</ip></collector>"
                  "<interface><name>eth1</name><default-sampling-rate>512</default-sampling-rate>"
                  "<flow-sampling-collector><name>c1</name></flow-sampling-collector></interface>"));
    }
    static std::string Eth1(const std::string& inner)
    {
        return Sflow("<interface><name>eth1</name>" + inner + "</interface>");
    }
};

TEST_F(ChangesReported, ALeafThatIsSet)
{
    EXPECT_EQ(Apply(Eth1("<polling-interval>5</polling-interval>")),
              (Strings{"modified /config/oam/sflow/interface{eth1}",
                       "set /config/oam/sflow/interface{eth1}/polling-interval = 5"}));
}

TEST_F(ChangesReported, ALeafThatFallsBackToItsDefault)
{
    Apply(Eth1("<polling-interval>5</polling-interval>"));
    EXPECT_EQ(Apply(Eth1("<polling-interval nc:operation='delete'/>")),
              (Strings{"modified /config/oam/sflow/interface{eth1}",
                       "set /config/oam/sflow/interface{eth1}/polling-interval = 20"}));
}

TEST_F(ChangesReported, ALeafThatFollowsTheOneItsDefaultRefersTo)
{
    EXPECT_EQ(Apply(Eth1("<default-sampling-rate>1024</default-sampling-rate>")),
              (Strings{"modified /config/oam/sflow/interface{eth1}",
                       "set /config/oam/sflow/interface{eth1}/sampling-rate = 1024",
                       "set /config/oam/sflow/interface{eth1}/default-sampling-rate = 1024"}));
    EXPECT_EQ(Apply(Eth1("<sampling-rate>1024</sampling-rate>")), Strings{});
    EXPECT_EQ(Apply(Eth1("<default-sampling-rate>9</default-sampling-rate>")),
              (Strings{"modified /config/oam/sflow/interface{eth1}",
                       "set /config/oam/sflow/interface{eth1}/default-sampling-rate = 9"}));
    EXPECT_EQ(Apply(Eth1("<sampling-rate nc:operation='remove'/>")),
              (Strings{"modified /config/oam/sflow/interface{eth1}",
                       "set /config/oam/sflow/interface{eth1}/sampling-rate = 9"}));
}

TEST_F(ChangesReported, NothingForAValueThatWasThereAnyway)
{
    EXPECT_EQ(Apply(Eth1("<default-sampling-rate>512</default-sampling-rate>")), Strings{});
    EXPECT_EQ(Apply(Eth1("<polling-interval>20</polling-interval>")), Strings{});
    // The explicit default is kept all the same.
    EXPECT_NE(Shown(RunningTree().get()).find("polling-interval 20"), std::string::npos);
    EXPECT_EQ(store->LastCommit(), 2U);
}

TEST_F(ChangesReported, ALeafWithoutDefaultThatGoes)
{
    const std::string agent = "<agent><ipv4>192.0.2.7</ipv4></agent>";
    EXPECT_EQ(Apply(Sflow(agent)), Strings{"set /config/oam/sflow/agent/ipv4 = 192.0.2.7"});
    EXPECT_EQ(Apply(Sflow("<agent nc:operation='delete'/>")),
              Strings{"deleted /config/oam/sflow/agent/ipv4"});
}

TEST_F(ChangesReported, ACreatedEntryWithItsExplicitLeaves)
{
    EXPECT_EQ(Apply(Sflow("<interface><name>eth10</name><max-header-size>64</max-header-size>"
                          "<counter-sampling-collector><name>c2</name></counter-sampling-collector>"
                          "<flow-sampling-collector><name>c2</name></flow-sampling-collector>"
                          "<flow-sampling-collector><name>c1</name></flow-sampling-collector></interface>"
                          "<interface><name>eth2</name></interface>")),
              (Strings{"created /config/oam/sflow/interface{eth10}",
                       "set /config/oam/sflow/interface{eth10}/max-header-size = 64",
                       "created /config/oam/sflow/interface{eth10}/flow-sampling-collector{c1}",
                       "created /config/oam/sflow/interface{eth10}/flow-sampling-collector{c2}",
                       "created /config/oam/sflow/interface{eth10}/counter-sampling-collector{c2}",
                       "created /config/oam/sflow/interface{eth2}"}));
}

TEST_F(ChangesReported, ADeletedEntryWithEverythingInIt)
{
    EXPECT_EQ(Apply(Sflow("<interface nc:operation='delete'><name>eth1</name></interface>")),
              (Strings{"deleted /config/oam/sflow/interface{eth1}",
                       "deleted /config/oam/sflow/interface{eth1}/default-sampling-rate",
                       "deleted /config/oam/sflow/interface{eth1}/flow-sampling-collector{c1}"}));
}

TEST_F(ChangesReported, ADeletedContainerAsTheEntriesBelowIt)
{
    EXPECT_EQ(
        Apply(Config("", "nc:operation='delete'")),
        (Strings{"deleted /config/oam/sflow/collector{c1}", "deleted /config/oam/sflow/collector{c1}/ip",
                 "deleted /config/oam/sflow/collector{c2}", "deleted /config/oam/sflow/collector{c2}/ip",
                 "deleted /config/oam/sflow/interface{eth1}",
                 "deleted /config/oam/sflow/interface{eth1}/default-sampling-rate",
                 "deleted /config/oam/sflow/interface{eth1}/flow-sampling-collector{c1}"}));
}

TEST_F(ChangesReported, AReplacedEntryIsAtMostModified)
{
    EXPECT_EQ(Apply(Sflow("<interface nc:operation='replace'><name>eth1</name>"
                          "<default-sampling-rate>512</default-sampling-rate>"
                          "<flow-sampling-collector><name>c2</name></flow-sampling-collector></interface>")),
              (Strings{"modified /config/oam/sflow/interface{eth1}",
                       "deleted /config/oam/sflow/interface{eth1}/flow-sampling-collector{c1}",
                       "created /config/oam/sflow/interface{eth1}/flow-sampling-collector{c2}"}));
    const auto before = Shown(RunningTree().get());
    EXPECT_EQ(Apply(Sflow("<collector><name>c1</name><ip>192.0.2.1</ip></collector>"
                          "<collector><name>c2</name><ip>192.0.2.2</ip></collector>"
                          "<interface><name>eth1</name><default-sampling-rate>512</default-sampling-rate>"
                          "<flow-sampling-collector><name>c2</name></flow-sampling-collector></interface>"),
                    DefaultOperation::kReplace),
              Strings{});
    EXPECT_EQ(Shown(RunningTree().get()), before);
}

TEST_F(ChangesReported, ChangesSaysBeforeTheCommitWhatItSaysAfter)
{
    Edit(Eth1("<polling-interval>5</polling-interval>"));
    const auto before = datastore->Changes();
    EXPECT_EQ(Commit(), before);
    EXPECT_TRUE(datastore->Changes().Empty());
}

TEST_F(ChangesReported, ChangedRowsAreThoseThatTheCommitWrites)
{
    Edit(Eth1("<polling-interval>20</polling-interval>"));  // its default, so no change that is reported
    Edit(Sflow("<collector nc:operation='delete'><name>c2</name></collector>"));
    const auto rows = datastore->ChangedRows();
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].key.keys, Strings{"c2"});
    EXPECT_TRUE(rows[0].before);
    EXPECT_FALSE(rows[0].now);
    EXPECT_EQ(rows[1].key.keys, Strings{"eth1"});
    ASSERT_TRUE(rows[1].before && rows[1].now);
    EXPECT_EQ(rows[1].now->leaves.size(), rows[1].before->leaves.size() + 1);
    Commit();
    EXPECT_TRUE(datastore->ChangedRows().empty());
    const auto running = datastore->Running();
    for (const auto& change : rows) {
        const cdb::Row* row = running->Get(change.key.node, change.key.keys);
        EXPECT_EQ(row == nullptr ? std::nullopt : std::optional(*row), change.now);
    }
}

TEST_F(ChangesReported, AManagementAddressBelowItsContainers)
{
    const std::string mgmt =
        "<interface xmlns='urn:switch:yang:switch-interfaces'><mgmt OP><name>m0</name><ipv4><address>"
        "<ip>10.0.0.5/24</ip></address></ipv4></mgmt></interface>";
    const auto with = [&](const std::string& attribute) {
        std::string text = mgmt;
        return Config(text.replace(text.find("OP"), 2, attribute));
    };
    EXPECT_EQ(Apply(with("")), (Strings{"created /config/interface/mgmt{m0}",
                                        "set /config/interface/mgmt{m0}/ipv4/address/ip = 10.0.0.5/24"}));
    EXPECT_EQ(Apply(with("nc:operation='delete'")),
              (Strings{"deleted /config/interface/mgmt{m0}",
                       "deleted /config/interface/mgmt{m0}/ipv4/address/ip"}));
}

}  // namespace
}  // namespace tests
