// SPDX-License-Identifier: Apache-2.0
// One commit's way through the handlers.

#include "world.h"

namespace {

using cdb::ChangeOp;

const std::string kFlow = kInterface + "/flow-sampling-collector";
const std::string kMgmt = "/config/interface/mgmt";

class DeliveryTest : public World {
protected:
    /// Two collectors and an interface changed, as one commit.
    [[nodiscard]] cdb::ChangeNode Several() const
    {
        auto root = Change("/config/oam/sflow", ChangeOp::kNone);
        root.children = {Change("/config/oam/sflow/agent", ChangeOp::kNone,
                                {ValueSet("/config/oam/sflow/agent/ipv4", cdb::Ipv4{0x0100007f})}),
                         Change(kCollector, ChangeOp::kCreated,
                                {ValueSet(kCollector + "/ip", cdb::Ipv4{0x010200c0}),
                                 ValueSet(kCollector + "/port", std::uint16_t{6344})},
                                {"c1"}),
                         Change(kCollector, ChangeOp::kDeleted, {}, {"c2"}),
                         Change(kInterface, ChangeOp::kModified,
                                {ValueSet(kInterface + "/sampling-rate", std::uint32_t{512}),
                                 Change(kFlow, ChangeOp::kCreated, {}, {"c1"})},
                                {"gigabit-ethernet-1/1/1"})};
        return FromRoot(std::move(root));
    }

    /// What the handler hears when its callback answers the node named with `result`.
    Events WalkAnswering(const std::string& node, int result)
    {
        m_config.returns = {{node, result}};
        m_events.clear();
        SendChanges(Several(), {0});
        Settle();
        return m_events;
    }
};

TEST_F(DeliveryTest, WalksThePointBetweenStartAndApply)
{
    Connect();
    SendChanges(Several(), {0});
    Settle();
    EXPECT_EQ(
        m_events,
        (Events{"start commit", "value-set /config/oam/sflow/agent/ipv4 = 127.0.0.1",
                "created /config/oam/sflow/collector{c1}",
                "value-set /config/oam/sflow/collector{c1}/ip = 192.0.2.1",
                "value-set /config/oam/sflow/collector{c1}/port = 6344",
                "deleted /config/oam/sflow/collector{c2}",
                "modified /config/oam/sflow/interface{gigabit-ethernet-1/1/1}",
                "value-set /config/oam/sflow/interface{gigabit-ethernet-1/1/1}/sampling-rate = 512",
                "created /config/oam/sflow/interface{gigabit-ethernet-1/1/1}/flow-sampling-collector{c1}",
                "apply commit"}));
}

TEST_F(DeliveryTest, AcknowledgesTheCommitAfterIt)
{
    Connect();
    Write({});
    SendChanges(Enabling("c1", true), {0});
    Settle();
    const auto answers = m_cdb->Take();
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].change_set_ack().commit(), m_commit);
}

TEST_F(DeliveryTest, ObeysWhatTheCallbackReturns)
{
    Connect();
    const std::string created = "created /config/oam/sflow/collector{c1}";
    const Events below = {"value-set /config/oam/sflow/collector{c1}/ip = 192.0.2.1",
                          "value-set /config/oam/sflow/collector{c1}/port = 6344"};
    const Events all = WalkAnswering(created, ITER_RECURSE);
    Events without = all;
    for (const auto& node : below) std::erase(without, node);

    struct Row {
        const char* name;
        std::string node;
        int result;
        Events expected;
    };
    Events afterStop = {"start commit", all[1], created, "apply commit"};
    Events noPort = all;
    std::erase(noPort, below[1]);
    const Row rows[] = {{"continue passes the node over", created, ITER_CONTINUE, without},
                        {"suspend goes on with the sibling", created, ITER_SUSPEND, without},
                        {"suspend at a leaf goes on with the sibling", below[0], ITER_SUSPEND, all},
                        {"up leaves the parent", below[0], ITER_UP, noPort},
                        {"stop ends the walk", created, ITER_STOP, afterStop}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(WalkAnswering(row.node, row.result), row.expected);
    }
}

TEST_F(DeliveryTest, WalksThePointsInTheOrderGiven)
{
    Connect();
    auto mgmt = Change(kMgmt, ChangeOp::kModified, {}, {"m0"});
    mgmt.children = {Change(kMgmt + "/ipv4", ChangeOp::kNone,
                            {Change(kMgmt + "/ipv4/address", ChangeOp::kNone,
                                    {ValueSet(kMgmt + "/ipv4/address/ip", cdb::Ipv4Plen{0x0500000a, 24})})})};
    auto root = FromRoot(std::move(mgmt));
    root.children.push_back(Enabling("c1", false).children.at(0));
    SendChanges(root, {1, 0});
    Settle();
    EXPECT_EQ(m_events,
              (Events{"start commit", "value-set /config/interface/mgmt{m0}/ipv4/address/ip = 10.0.0.5/24",
                      "modified /config/oam/sflow/collector{c1}",
                      "value-set /config/oam/sflow/collector{c1}/enabled = false", "apply commit"}));
}

TEST_F(DeliveryTest, StopEndsItsOwnPointOnly)
{
    Connect();
    m_config.returns = {{"modified /config/oam/sflow/collector{c1}", ITER_STOP}};
    auto root = Enabling("c1", false);
    root.children.insert(
        root.children.begin(),
        FromRoot(Change(kMgmt, ChangeOp::kDeleted,
                        {Change(kMgmt + "/ipv4", ChangeOp::kNone,
                                {Change(kMgmt + "/ipv4/address", ChangeOp::kNone,
                                        {Change(kMgmt + "/ipv4/address/ip", ChangeOp::kDeleted)})})},
                        {"m0"}))
            .children.at(0));
    SendChanges(root, {0, 1});
    Settle();
    EXPECT_EQ(m_events, (Events{"start commit", "modified /config/oam/sflow/collector{c1}",
                                "deleted /config/interface/mgmt{m0}/ipv4/address/ip", "apply commit"}));
}

TEST_F(DeliveryTest, HidesLaterCommitsFromSessionsDuringAChangeSet)
{
    Connect();
    Write({{{Node(kCollector), {"c1"}}, {{{"ip", cdb::Ipv4{1}}}}}});
    std::vector<int> counts;
    const auto count = [&] {
        const QxConfdCdbSessionBase session(*m_config.Confd(), CDB_RUNNING, true);
        counts.push_back(cdb_num_instances(session.Socket(), "/config/oam/sflow/collector"));
    };
    m_config.onNode = [&](const std::string&) {
        count();
        Write({{{Node(kCollector), {"later-" + std::to_string(m_commit)}}, {{{"ip", cdb::Ipv4{1}}}}}});
        count();
    };
    SendChanges(Enabling("c1", true), {0});
    Settle();
    count();
    EXPECT_EQ(counts, (std::vector<int>{1, 1, 1, 1, 3}));
}

TEST_F(DeliveryTest, LetsAHandlersExceptionOutThroughTheLoop)
{
    Connect();
    m_config.onNode = [](const std::string&) { throw std::runtime_error("handler"); };
    SendChanges(Enabling("c1", true), {0});
    EXPECT_THROW(Settle(), std::runtime_error);
    EXPECT_EQ(m_events.back(), "modified /config/oam/sflow/collector{c1}");
}

}  // namespace
