// SPDX-License-Identifier: Apache-2.0
// The parts of an answer: what is in each, what is looked at for it, and what it says where something is
// missing.

#include "manager/status/state_answer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "manager/configured_store_fixture.h"
#include "manager/shown.h"
#include "net/links/links.h"
#include "support/shown_state.h"

namespace manager {
namespace {

using support::Show;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

WantedEntries Every(std::set<std::string, std::less<>> leaves = {})
{
    WantedEntries entries;
    entries.every = WantedLeaves{leaves.empty(), std::move(leaves)};
    return entries;
}

WantedEntries Named(const std::string& name, std::set<std::string, std::less<>> leaves = {})
{
    WantedEntries entries;
    entries.named[name] = {leaves.empty(), std::move(leaves)};
    return entries;
}

class Answer : public ConfiguredStoreFixture {
protected:
    void Apply(const Operation& operation) { EXPECT_EQ("", ReasonOf(m_table.Apply(operation))); }

    StateAnswer::Sources Sources(const cdb::StoreReader* store)
    {
        StatusSources status{m_table, m_own};
        status.now = [] { return kNow; };
        status.manager = [] {
            ManagerStatus manager;
            manager.pid = 12;
            return manager;
        };
        status.interface = [this](const std::string& name) {
            m_looked.push_back(name);
            return FlowingStatus(name);
        };
        status.collector = [this](const std::string& name) {
            m_looked.push_back(name);
            return &m_stream;
        };
        status.drops = [this] {
            m_looked.emplace_back("drops");
            return m_drops;
        };
        status.links = m_links;
        return {status, [this] { ++m_refreshes; }, store, "no store"};
    }

    /// All parts, each as text; joined in m_whole.
    std::vector<std::string> Parts(const WantedState& wanted, const cdb::StoreReader* store = nullptr)
    {
        StateAnswer answer(Sources(store), wanted);
        m_whole = nlohmann::ordered_json::object();
        std::vector<std::string> texts;
        for (bool more = true; more;) {
            ipc::cdb::StateReply part;
            more = answer.Next(part);
            texts.push_back(support::Shown(part).dump());
            for (const auto& tree : part.trees()) Show(part, tree.node(), m_whole);
            for (const auto& warning : part.warnings()) m_warnings.push_back(warning);
        }
        return texts;
    }

    /// The keys of the list's entries.
    std::vector<std::string> KeysOf(const std::string& list)
    {
        std::vector<std::string> names;
        if (!m_whole.contains(list)) return names;
        for (const auto& entry : m_whole.at(list)) {
            std::string name;
            for (const auto& key : entry.at("keys"))
                name += (name.empty() ? "" : " ") + key.get<std::string>();
            names.push_back(name);
        }
        return names;
    }

    ServiceTable m_table;
    OwnSettings m_own;
    StreamStatus m_stream = SendingStream();
    std::vector<DropsAtInterface> m_drops;
    std::vector<std::string> m_looked;
    const net::Links* m_links = nullptr;
    int m_refreshes = 0;
    nlohmann::ordered_json m_whole;
    std::vector<std::string> m_warnings;
};

TEST_F(Answer, LooksAtNothingButTheEntryAskedFor)
{
    Apply(Add("c1"));
    for (int i = 0; i < 1000; ++i) Apply(Update("eth" + std::to_string(i), "c1"));
    WantedState wanted;
    wanted.interfaces = Named("eth500", {"ifindex", "packets-seen"});
    EXPECT_THAT(Parts(wanted),
                ElementsAre(R"({"interface":[{"keys":["eth500"],"ifindex":"7","packets-seen":"40960"}]})"));
    EXPECT_THAT(m_looked, ElementsAre("eth500"));
    EXPECT_EQ(0, m_refreshes);
    EXPECT_THAT(m_warnings, IsEmpty()) << "the configuration is not needed";
}

TEST_F(Answer, TheKernelsInterfacesComeInOrderAndOnlyIfAskedFor)
{
    net::Links links;
    for (int i = 0; i < 250; ++i) {
        net::Link link;
        link.index = static_cast<std::uint32_t>(i + 1);
        link.name = "p" + std::to_string(i);
        link.alias = "port-" + std::to_string(i);
        link.up = true;
        links.Put(link);
    }
    m_links = &links;
    WantedState wanted;
    wanted.kernelInterfaces = Every({"ifindex"});
    EXPECT_EQ(3U, Parts(wanted).size());
    const std::vector<std::string> names = KeysOf("kernel-interface");
    EXPECT_EQ(250U, names.size());
    EXPECT_TRUE(std::ranges::is_sorted(names));

    wanted.kernelInterfaces = Named("p7");
    wanted.kernelInterfaces.named["port-8"] = {true, {}};
    EXPECT_THAT(Parts(wanted),
                ElementsAre(R"({"kernel-interface":[{"keys":["p7"],"ifindex":"8","alias":"port-7",)"
                            R"("admin-status":"up","oper-status":"down"}]})"))
        << "an alias is no name";
    EXPECT_THAT(Parts(WantedState{}), ElementsAre("{}"));
}

TEST_F(Answer, OfWhatIsNotThereIsEmpty)
{
    WantedState wanted;
    wanted.interfaces = Named("eth500");
    wanted.collectors = Named("c9");
    wanted.problems.interfaces.names = {"eth500"};
    EXPECT_THAT(Parts(wanted, &Store({})), ElementsAre("{}"));
    EXPECT_THAT(m_looked, IsEmpty());
}

TEST_F(Answer, HasTheOwnSettingsOfTheCollectorAskedFor)
{
    Apply(Add("c1"));
    for (int i = 0; i < 1000; ++i)
        m_own.Update(
            {.collectors = {{"c" + std::to_string(i),
                             OwnCollector{.send = {Address("192.0.2.9"), 46, "vrf-x"}, .discards = true}}}});
    WantedState wanted;
    wanted.collectors = Named("c1", {"source-address", "dscp", "device", "discards"});
    wanted.subAgent = true;
    EXPECT_THAT(
        Parts(wanted),
        ElementsAre(
            R"({"sub-agent":"0","collector":[{"keys":["c1"],"source-address":"192.0.2.9","dscp":"46",)"
            R"("device":"vrf-x","discards":"true"}]})"));
    EXPECT_THAT(m_looked, ElementsAre("c1"));
}

TEST_F(Answer, NamesTheCollectorsThatOnlySettingsNameInOrderOverManyParts)
{
    OwnUpdate update;
    for (int i = 0; i < 250; ++i) update.collectors["s" + std::to_string(i)] = OwnCollector();
    m_own.Update(update);
    Apply(Add("s7"));
    WantedState wanted;
    wanted.problems.collectors.all = true;
    Parts(wanted, &Store({{kCollector, {"s9"}}}));
    std::vector<std::string> expected;
    for (const auto& [name, settings] : update.collectors)
        expected.push_back("collector " + name +
                           (name == "s7"   ? " no-interface"
                            : name == "s9" ? " not-loaded"
                                           : " collector-unknown"));
    EXPECT_EQ(expected, KeysOf("problem"));
    m_whole.clear();
    Parts(wanted);
    EXPECT_THAT(KeysOf("problem"), ElementsAre("collector s7 no-interface"))
        << "without the configuration it can't be said of the others";
}

TEST_F(Answer, HasDropsOnlyIfTheyAreAskedFor)
{
    m_drops = TwoDrops();
    WantedState wanted;
    wanted.agentAddress = true;
    EXPECT_THAT(Parts(wanted), ElementsAre("{}"));
    EXPECT_THAT(m_looked, IsEmpty());
    wanted.drops = true;
    Parts(wanted);
    EXPECT_THAT(KeysOf("drops"), ElementsAre("eth1", "n/a"));
}

TEST_F(Answer, HasDropsAsTheyWereAtOneMomentOverManyParts)
{
    std::vector<std::string> names;
    for (int i = 0; i < 250; ++i) {
        DropsAtInterface& drops = m_drops.emplace_back(TwoDrops()[0]);
        drops.name = "p" + std::to_string(1000 + i);
        names.push_back(drops.name);
    }
    WantedState wanted;
    wanted.drops = true;
    EXPECT_EQ(8U, Parts(wanted).size()) << "of three lines each";
    EXPECT_EQ(names, KeysOf("drops"));
    EXPECT_THAT(m_looked, ElementsAre("drops"));
}

TEST_F(Answer, HasEveryEntryOnceInOrderOverManyParts)
{
    Apply(Add("c1"));
    std::vector<std::string> names;
    for (int i = 0; i < 450; ++i) {
        names.push_back("eth" + std::to_string(i));
        Apply(Update(names.back(), "c1"));
    }
    std::sort(names.begin(), names.end());
    WantedState wanted;
    wanted.interfaces = Every();
    EXPECT_EQ(5U, Parts(wanted, &Store({})).size());
    EXPECT_EQ(names, KeysOf("interface"));
    EXPECT_EQ(names, [this] {
        std::vector<std::string> looked = m_looked;
        std::erase(looked, "c1");
        return looked;
    }());
}

TEST_F(Answer, HasFewerEntriesInAPartWhereTheyHaveManyAttachments)
{
    for (int i = 0; i < 8; ++i) {
        const std::string name = "eth" + std::to_string(i);
        Apply(Update(name));
        for (int k = 0; k < 600; ++k) Apply(AddFlow(name, "c" + std::to_string(k)));
    }
    WantedState wanted;
    wanted.interfaces = Every({"flow-collector"});
    EXPECT_LE(4U, Parts(wanted).size());  // on a busy machine a part has fewer
    EXPECT_EQ(8U, KeysOf("interface").size());
}

TEST_F(Answer, GoesOnWhereEntriesComeAndGoBetweenItsParts)
{
    for (int i = 100; i < 300; ++i) Apply(Update("eth" + std::to_string(i)));
    WantedState wanted;
    wanted.interfaces = Every({"name"});
    StateAnswer answer(Sources(nullptr), wanted);
    ipc::cdb::StateReply first, second, third;
    EXPECT_TRUE(answer.Next(first));
    for (int i = 150; i < 250; ++i) Apply(Unset("eth" + std::to_string(i)));
    Apply(Update("eth000"));
    Apply(Update("eth999"));
    EXPECT_FALSE(answer.Next(second));
    EXPECT_EQ(100, first.trees(0).node().children_size());
    ASSERT_EQ(51, second.trees(0).node().children_size()) << "eth250 to eth299, and eth999";
    EXPECT_EQ("eth250", second.trees(0).node().children(0).keys(0));
    EXPECT_EQ("eth999", second.trees(0).node().children(50).keys(0));
}

TEST_F(Answer, TellsTheProblemsOfWhatIsConfiguredAndNotInEffect)
{
    Apply(Add("c1"));
    Apply(Update("eth2", "c1"));
    const auto& store = Store({{kCollector, {"c1"}},
                               {kCollector, {"off"}, {{{"enabled", false}}}},
                               {kInterface, {"eth1"}},
                               {kFlow, {"eth1", "off"}},
                               {kInterface, {"eth2"}, {{{"sampling-rate", std::uint32_t{9}}}}},
                               {kFlow, {"eth2", "c1"}},
                               {kInterface, {"eth3"}}});
    WantedState wanted;
    wanted.problems = {true, {true, {}}, {true, {}}};
    wanted.interfaces = Every({"sampling-rate-source"});
    Parts(wanted, &store);
    EXPECT_THAT(KeysOf("problem"),
                ElementsAre("agent agent no-agent-address", "agent agent no-session",
                            "collector off collector-disabled", "interface eth1 collector-disabled",
                            "interface eth2 no-kernel-support", "interface eth3 no-collector"));
    EXPECT_EQ(R"([{"keys":["eth2"],"sampling-rate-source":"own-setting"}])", m_whole.at("interface").dump());
    EXPECT_THAT(m_warnings, IsEmpty());
}

TEST_F(Answer, HasProblemsInTheOrderOfTheirNames)
{
    Apply(Add("c1"));
    Apply(UpdateInterface{"eth1", "c1", "c1", {0, Direction::kIngress, 128, 0}});
    WantedState wanted;
    wanted.problems.interfaces.all = true;
    Parts(wanted, &Store({}));
    EXPECT_THAT(KeysOf("problem"), ElementsAre("interface eth1 polling-off", "interface eth1 sampling-off"));
}

TEST_F(Answer, HasAllProblemsOverManyParts)
{
    std::vector<Entry> entries;
    std::vector<std::string> problems{"agent agent no-session"};
    for (int i = 100; i < 450; ++i) {
        entries.push_back({kInterface, {"eth" + std::to_string(i)}});
        problems.push_back("interface eth" + std::to_string(i) + " no-collector");
    }
    for (int i = 1000; i < 1250; ++i) {
        entries.push_back({kCollector, {"c" + std::to_string(i)}, {{{"enabled", false}}}});
        problems.push_back("collector c" + std::to_string(i) + " collector-disabled");
    }
    Parts(WantedState::Everything(), &Store(entries));
    std::sort(problems.begin(), problems.end());
    EXPECT_EQ(problems, KeysOf("problem"));
}

TEST_F(Answer, SaysThatTheConfigurationCannotBeRead)
{
    Apply(Update("eth1", "c1"));
    Parts(WantedState::Everything());
    EXPECT_THAT(m_warnings, ElementsAre(HasSubstr("can't read the configuration")));
    EXPECT_THAT(m_warnings, ElementsAre(HasSubstr("no store")));
    EXPECT_THAT(KeysOf("interface"), ElementsAre("eth1"));
    EXPECT_THAT(KeysOf("problem"), testing::Contains("collector c1 collector-unknown"));
}

TEST_F(Answer, OfCollectorsLooksAtNoInterface)
{
    Apply(Add("c1"));
    for (int i = 100; i < 300; ++i) Apply(Update("eth" + std::to_string(i), "c1"));
    WantedState wanted;
    wanted.collectors = Every();
    wanted.manager = WantedLeaves{false, {"pid"}};
    EXPECT_EQ(1U, Parts(wanted, &Store({})).size());
    EXPECT_EQ("12", m_whole.at("manager").at("pid"));
    EXPECT_EQ(1, m_refreshes);
    EXPECT_THAT(KeysOf("collector"), ElementsAre("c1"));
    EXPECT_THAT(m_looked, ElementsAre("c1"));
}

}  // namespace
}  // namespace manager
