// SPDX-License-Identifier: Apache-2.0
// The walk that a subscriber sees of a change set.

#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "cdb/model/change_set.h"
#include "change_sample.h"

namespace {

using cdb::ChangeNode;
using cdb::ChangeOp;
using cdb::ChangeSet;
using cdb::Visit;
using namespace change_sample;

/// What a visitor hears, as lines, with an answer by node name (recurse if none is given).
class Heard {
public:
    explicit Heard(std::vector<std::pair<std::string, Visit>> answers = {}) : m_answers(std::move(answers)) {}

    std::vector<std::string> From(const ChangeSet& changes, const std::string& point)
    {
        std::vector<std::string> lines;
        cdb::Walk(sample::Table(), changes, Node(point), [&](const std::vector<const ChangeNode*>& ancestry) {
            lines.push_back(Line(ancestry));
            const std::string& name = sample::Table()[ancestry.back()->node].name;
            for (const auto& [answered, visit] : m_answers)
                if (answered == name) return visit;
            return Visit::kRecurse;
        });
        return lines;
    }

private:
    std::vector<std::pair<std::string, Visit>> m_answers;
};

const std::string kSFlow = "/config/oam/sflow";
const std::string kMgmtAddress = "/config/interface/mgmt/ipv4/address/ip";

/// One of everything: a management address set and one gone, an agent address set, a collector
/// created, modified and deleted, an interface modified with a collector more.
ChangeSet Everything()
{
    return Config(
        {Container("/config/interface",
                   {Entry(sample::kMgmt, "m0", ChangeOp::kModified,
                          {Container(sample::kMgmt + "/ipv4",
                                     {Container(sample::kMgmt + "/ipv4/address",
                                                {Set(kMgmtAddress, cdb::Ipv4Plen{1, 24})})})}),
                    Entry(sample::kMgmt, "m1", ChangeOp::kDeleted,
                          {Container(sample::kMgmt + "/ipv4",
                                     {Container(sample::kMgmt + "/ipv4/address", {Gone(kMgmtAddress)})})})}),
         Container(
             "/config/oam",
             {Container(kSFlow, {Container(kSFlow + "/agent", {Set(kSFlow + "/agent/ipv4", cdb::Ipv4{1})}),
                                 Entry(sample::kCollector, "c1", ChangeOp::kCreated,
                                       {Set(sample::kCollector + "/ip", cdb::Ipv4{2})}),
                                 Entry(sample::kCollector, "c2", ChangeOp::kModified,
                                       {Set(sample::kCollector + "/enabled", false),
                                        Set(sample::kCollector + "/port", std::uint16_t{7})}),
                                 Entry(sample::kCollector, "c3", ChangeOp::kDeleted, {}),
                                 Entry(sample::kInterface, "eth1", ChangeOp::kModified,
                                       {Set(sample::kInterface + "/sampling-rate", std::uint32_t{9}),
                                        Entry(sample::kFlow, "c1", ChangeOp::kCreated, {})})})})});
}

TEST(ChangeWalk, ReportsEverythingBelowThePointParentsFirst)
{
    EXPECT_EQ(Heard().From(Everything(), kSFlow),
              (std::vector<std::string>{
                  "/config/oam/sflow/agent/ipv4 set 1.0.0.0",
                  "/config/oam/sflow/collector{c1} created",
                  "/config/oam/sflow/collector{c1}/ip set 2.0.0.0",
                  "/config/oam/sflow/collector{c2} modified",
                  "/config/oam/sflow/collector{c2}/enabled set false",
                  "/config/oam/sflow/collector{c2}/port set 7",
                  "/config/oam/sflow/collector{c3} deleted",
                  "/config/oam/sflow/interface{eth1} modified",
                  "/config/oam/sflow/interface{eth1}/sampling-rate set 9",
                  "/config/oam/sflow/interface{eth1}/flow-sampling-collector{c1} created",
              }));
}

TEST(ChangeWalk, PassesThroughWhateverBecameOfTheNodesAboveThePoint)
{
    EXPECT_EQ(Heard().From(Everything(), kMgmtAddress),
              (std::vector<std::string>{"/config/interface/mgmt{m0}/ipv4/address/ip set 1.0.0.0/24",
                                        "/config/interface/mgmt{m1}/ipv4/address/ip deleted"}));
}

TEST(ChangeWalk, StartsAtThePointWhateverItIs)
{
    const std::vector<std::pair<std::string, std::vector<std::string>>> table = {
        {"/config/oam/sflow/agent", {"/config/oam/sflow/agent/ipv4 set 1.0.0.0"}},
        {sample::kCollector + "/enabled", {"/config/oam/sflow/collector{c2}/enabled set false"}},
        {sample::kFlow, {"/config/oam/sflow/interface{eth1}/flow-sampling-collector{c1} created"}},
        {sample::kInterface + "/counter-sampling-collector", {}},
        {sample::kInterface + "/max-header-size", {}},
    };
    for (const auto& [point, lines] : table) {
        EXPECT_EQ(Heard().From(Everything(), point), lines) << point;
        EXPECT_EQ(cdb::Touches(sample::Table(), Everything(), Node(point)), !lines.empty()) << point;
    }
}

TEST(ChangeWalk, StopsAtAStopAndHearsNoMore)
{
    EXPECT_EQ(Heard({{"port", Visit::kStop}}).From(Everything(), kSFlow).back(),
              "/config/oam/sflow/collector{c2}/port set 7");
    EXPECT_EQ(Heard({{"ip", Visit::kStop}}).From(Everything(), kMgmtAddress),
              std::vector<std::string>{"/config/interface/mgmt{m0}/ipv4/address/ip set 1.0.0.0/24"});
}

TEST(ChangeWalk, PassesOverWhatIsBelowAtAContinue)
{
    EXPECT_EQ(
        Heard({{"collector", Visit::kContinue}, {"interface", Visit::kContinue}}).From(Everything(), kSFlow),
        (std::vector<std::string>{
            "/config/oam/sflow/agent/ipv4 set 1.0.0.0", "/config/oam/sflow/collector{c1} created",
            "/config/oam/sflow/collector{c2} modified", "/config/oam/sflow/collector{c3} deleted",
            "/config/oam/sflow/interface{eth1} modified"}));
}

TEST(ChangeWalk, GoesOnWithTheParentsNextSiblingAtUp)
{
    EXPECT_EQ(
        Heard({{"enabled", Visit::kUp}, {"sampling-rate", Visit::kUp}})
            .From(Everything(), sample::kCollector),
        (std::vector<std::string>{
            "/config/oam/sflow/collector{c1} created", "/config/oam/sflow/collector{c1}/ip set 2.0.0.0",
            "/config/oam/sflow/collector{c2} modified", "/config/oam/sflow/collector{c2}/enabled set false",
            "/config/oam/sflow/collector{c3} deleted"}));
    EXPECT_EQ(Heard({{"ip", Visit::kUp}}).From(Everything(), kMgmtAddress).size(), 2U);
}

TEST(ChangeWalk, ReportsWhatWentWithADeletedEntryOnlyWhenAsked)
{
    const auto changes = Config({Container(
        "/config/oam", {Container(kSFlow, {Entry(sample::kInterface, "eth1", ChangeOp::kDeleted,
                                                 {Gone(sample::kInterface + "/sampling-rate"),
                                                  Entry(sample::kFlow, "c1", ChangeOp::kDeleted, {})}),
                                           Entry(sample::kInterface, "eth2", ChangeOp::kDeleted, {})})})});
    EXPECT_EQ(Heard({{"interface", Visit::kContinue}}).From(changes, kSFlow),
              (std::vector<std::string>{"/config/oam/sflow/interface{eth1} deleted",
                                        "/config/oam/sflow/interface{eth2} deleted"}));
    EXPECT_EQ(
        Heard().From(changes, kSFlow),
        (std::vector<std::string>{"/config/oam/sflow/interface{eth1} deleted",
                                  "/config/oam/sflow/interface{eth1}/sampling-rate deleted",
                                  "/config/oam/sflow/interface{eth1}/flow-sampling-collector{c1} deleted",
                                  "/config/oam/sflow/interface{eth2} deleted"}));
}

TEST(ChangeWalk, HearsNothingOfAnEmptyChange)
{
    EXPECT_EQ(Heard().From({}, kSFlow), std::vector<std::string>{});
    EXPECT_EQ(Heard().From(Config({}), kSFlow), std::vector<std::string>{});
    EXPECT_FALSE(cdb::Touches(sample::Table(), {}, Node(kSFlow)));
    EXPECT_FALSE(cdb::Touches(sample::Table(), Everything(), cdb::kNoNode));
    EXPECT_TRUE(ChangeSet().Empty());
    EXPECT_FALSE(Everything().Empty());
}

TEST(ChangeWalk, IsNotTouchedByAContainerThatHoldsNoChange)
{
    EXPECT_FALSE(cdb::Touches(sample::Table(), Config({Container("/config/oam", {Container(kSFlow, {})})}),
                              Node(kSFlow)));
}

/// All that is reported at and below the point, by the rule itself: a node that is no plain
/// container and whose path of schema nodes leads through the point.
void Expected(const ChangeNode& node, cdb::NodeId point, std::vector<const ChangeNode*>& ancestry,
              std::vector<std::string>& lines)
{
    ancestry.push_back(&node);
    bool below = false;
    for (const auto* above : ancestry) below = below || above->node == point;
    if (below && node.op != ChangeOp::kNone) lines.push_back(Line(ancestry));
    for (const auto& child : node.children) Expected(child, point, ancestry, lines);
    ancestry.pop_back();
}

TEST(ChangeWalk, ReportsExactlyWhatLiesAtAndBelowAnyPointOfAnyChange)
{
    std::mt19937 random(11);
    for (int round = 0; round < 200; ++round) {
        const ChangeSet changes = RandomChanges(random);
        for (const auto& node : sample::Table().Nodes()) {
            std::vector<std::string> lines;
            std::vector<const ChangeNode*> ancestry;
            Expected(changes.root, node.id, ancestry, lines);
            ASSERT_EQ(Heard().From(changes, sample::Table().PathOf(node.id)), lines)
                << round << ' ' << node.name;
            ASSERT_EQ(cdb::Touches(sample::Table(), changes, node.id), !lines.empty());
        }
    }
}

}  // namespace
