// SPDX-License-Identifier: Apache-2.0
// The own settings as they follow what is configured: read from a real store, whole and in part, and kept
// while it can't be read.

#include "manager/settings/settings_follower.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "ipc/cdb.pb.h"
#include "manager/configured_store_fixture.h"
#include "manager/recorder.h"
#include "manager/settings/configured_store.h"
#include "support/manual_timers.h"

namespace manager {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;
using ChangeMessage = ipc::cdb::ChangeNode;

class Follower : public ConfiguredStoreFixture {
protected:
    Follower()
    {
        m_own.WhenChanged([this](const OwnChange& change) {
            std::string text = change.subAgent ? "sub-agent" : "";
            for (const std::string& name : change.collectors) text += (text.empty() ? "" : " ") + name;
            m_changes.push_back(text);
        });
    }

    /// The database's next commit. A process may open a store only once, so the manager lets go of it
    /// meanwhile.
    void Commit(const std::vector<Entry>& entries)
    {
        m_store.Open("/nowhere");
        Store(entries);
        m_reader.reset();
        m_store.Open(m_dir.string());
    }
    static Entry Dscp(const std::string& collector, std::uint16_t dscp)
    {
        return {kOwnEntry, {collector}, {{{"dscp", dscp}}}};
    }
    static Entry SubAgent(std::uint32_t number) { return {kOwn, {}, {{{"sub-agent", number}}}}; }

    /// A change set of these nodes below the settings' container: "sub-agent", "collector c1".
    [[nodiscard]] ipc::cdb::ChangeSet Changed(const Texts& nodes, const std::string& top = kOwnPath) const
    {
        const cdb::SchemaTable& schema = m_store.Reader()->Schema();
        ipc::cdb::ChangeSet changes;
        ChangeMessage* at = changes.mutable_root();
        for (const cdb::NodeId node : schema.WayTo(schema.Find(top))) {
            if (node != schema.Find("/config")) at = at->add_children();
            at->set_node(node);
        }
        for (const std::string& text : nodes) {
            const std::size_t blank = std::min(text.find(' '), text.size());
            ChangeMessage& child = *at->add_children();
            child.set_node(schema.Child(schema.Find(top), text.substr(0, blank)));
            if (blank != text.size()) child.add_keys(text.substr(blank + 1));
        }
        return changes;
    }
    Texts Changes() { return std::exchange(m_changes, {}); }

    support::ManualTimers m_timers;
    ConfiguredStore m_store;
    OwnSettings m_own;
    SettingsFollower m_follower{m_store, m_timers, m_own};
    Texts m_changes;
};

TEST_F(Follower, ReadsEveryLeaf)
{
    Commit({{kOwn,
             {},
             {{{"sub-agent", std::uint32_t{7}},
               {"direction", std::string("both")},
               {"discard-limit", std::uint32_t{0}}}}},
            {kOwnEntry,
             {"c1"},
             {{{"source-address", cdb::Ipv4{Address("192.0.2.9")}},
               {"dscp", std::uint16_t{46}},
               {"device", std::string("vrf-x")},
               {"discards", true}}}},
            {kOwnEntry, {"c2"}}});
    m_follower.Load();
    EXPECT_EQ(7U, m_own.SubAgent());
    EXPECT_EQ(Direction::kBoth, m_own.AddedDirection());
    EXPECT_EQ(0U, m_own.DiscardLimit());
    EXPECT_EQ((OwnCollector{{Address("192.0.2.9"), 46, "vrf-x"}, true}), m_own.Of("c1"));
    EXPECT_EQ(OwnCollector(), m_own.Of("c2"));
    EXPECT_THAT(m_own.AllCollectors(), ElementsAre(Key("c1"), Key("c2")));
    EXPECT_THAT(Changes(), ElementsAre("sub-agent c1"));
    EXPECT_EQ("", m_follower.Problem());
    m_follower.Load();
    EXPECT_THAT(Changes(), IsEmpty()) << "the same again";
    for (const auto& [name, direction] :
         {std::pair("ingress", Direction::kIngress), std::pair("egress", Direction::kEgress)}) {
        Commit({{kOwn, {}, {{{"direction", std::string(name)}}}}});
        m_follower.Load();
        EXPECT_EQ(direction, m_own.AddedDirection());
    }
}

TEST_F(Follower, ReadsWhatACommitHasChangedAndNothingElse)
{
    Commit({SubAgent(1), Dscp("c1", 1), Dscp("c2", 1)});
    m_follower.Load();
    Changes();
    // What the change set does not name is not looked at, even if it is different.
    Commit({SubAgent(2), Dscp("c1", 2), Dscp("c2", 2), Dscp("c3", 2)});
    m_follower.Take(Changed({"collector c1", "collector c3"}));
    EXPECT_THAT(Changes(), ElementsAre("c1 c3"));
    m_follower.Take(Changed({"sub-agent"}));
    EXPECT_THAT(Changes(), ElementsAre("sub-agent"));
    m_follower.Take(Changed({"direction", "collector c2", "collector c2"}));
    EXPECT_THAT(Changes(), ElementsAre("c2")) << "named twice";
    m_follower.Take(Changed({"collector c2"}));
    EXPECT_THAT(Changes(), IsEmpty()) << "the same change again";
    Commit({{kOwn, {}, {}, true}, {kOwnEntry, {"c1"}, {}, true}});
    m_follower.Take(Changed({"sub-agent", "collector c1"}));
    EXPECT_THAT(Changes(), ElementsAre("sub-agent c1"));
    EXPECT_THAT(m_own.AllCollectors(), ElementsAre(Key("c2"), Key("c3")));
}

TEST_F(Follower, ReadsEverythingIfAChangeSetDoesNotSayWhatHasChanged)
{
    Commit({SubAgent(1), Dscp("c1", 1)});
    m_follower.Load();
    for (std::uint16_t number = 2;
         const auto& changes :
         {ipc::cdb::ChangeSet(), Changed({"interface eth1"}, "/config/oam/sflow"), Changed({"collector"})}) {
        Changes();
        Commit({SubAgent(number), Dscp("c1", number)});
        ++number;
        m_follower.Take(changes);
        EXPECT_THAT(Changes(), ElementsAre("sub-agent c1"));
    }
}

TEST_F(Follower, AsksTheStoreForNoNameThatACollectorCanNotHave)
{
    Commit({Dscp("c1", 1)});
    m_follower.Load();
    Changes();
    m_follower.Take(Changed({"collector " + std::string(100'000, 'x'), "collector a%b", "collector  "}));
    EXPECT_THAT(Changes(), IsEmpty());
    EXPECT_EQ("", m_follower.Problem());
}

TEST_F(Follower, KeepsTheSettingsWhileTheStoreCanNotBeReadAndTriesAgain)
{
    Commit({SubAgent(1), Dscp("c1", 1)});
    m_follower.Load();
    Changes();
    Commit({SubAgent(2), Dscp("c1", 2)});
    const auto moved = m_dir.string() + "-away";
    std::filesystem::rename(m_dir, moved);
    m_store.Open(m_dir.string());
    m_follower.Load();
    EXPECT_THAT(m_follower.Problem(), HasSubstr("goes on with the settings that it has: "));
    EXPECT_EQ(1U, m_own.SubAgent());
    m_timers.Advance(SettingsFollower::kRetry * 3);
    EXPECT_THAT(Changes(), IsEmpty());
    std::filesystem::rename(moved, m_dir);
    m_timers.Advance(SettingsFollower::kRetry);
    EXPECT_EQ("", m_follower.Problem());
    EXPECT_THAT(Changes(), ElementsAre("sub-agent c1"));
    EXPECT_EQ(0U, m_timers.Waiting());
}

TEST_F(Follower, ReadsEverythingWithTheFirstChangeAfterAFailure)
{
    Commit({SubAgent(1)});
    m_store.Open("/nowhere");
    m_follower.Load();
    EXPECT_NE("", m_follower.Problem());
    Commit({SubAgent(2), Dscp("c1", 2)});
    m_follower.Take(Changed({"sub-agent"}));
    EXPECT_THAT(Changes(), ElementsAre("sub-agent c1"));
    EXPECT_EQ("", m_follower.Problem());
    EXPECT_EQ(0U, m_timers.Waiting());
}

TEST_F(Follower, SubscribesWithTheNumberOfTheModule)
{
    const auto schema = cdb::Schema::Load(SFLOW_TEST_YANG_DIR);
    const cdb::NodeId node = schema->Table().Find(kOwnPath);
    ASSERT_NE(cdb::kNoNode, node);
    ipc::cdb::Subscribe subscribe;
    FillSubscription(subscribe);
    EXPECT_EQ(kOwnPath, subscribe.path());
    EXPECT_EQ(schema->Table()[node].ns, static_cast<std::uint32_t>(subscribe.ns()));
}

}  // namespace
}  // namespace manager
