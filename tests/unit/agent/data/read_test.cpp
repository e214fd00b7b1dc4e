// SPDX-License-Identifier: Apache-2.0
// Reading through filters, of rows and of trees: the same as a slow writer that measures each node with
// the filter as it stands. Bounds, and who may read what.

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <optional>
#include <string>

#include "agent/agent_world.h"
#include "agent/data/data_source.h"
#include "agent/data/data_writer.h"
#include "agent/data/slow_writer.h"
#include "agent/data/tree_source.h"
#include "agent/random_data.h"
#include "cdb/rows/row_view.h"

namespace {

using agent::Defaults;
using agent::FilterNode;
using agent::SubtreeFilter;
using agent_tests::DataSchema;
using agent_tests::Random;
using agent_tests::Schema;

constexpr std::array kModes{Defaults::kExplicit, Defaults::kTrim, Defaults::kReportAll};

std::string WrittenFrom(agent::DataSource& source, const std::optional<SubtreeFilter>& filter,
                        Defaults defaults = Defaults::kExplicit, agent::ReadAccess access = nullptr)
{
    std::optional<agent::FilterPlan> plan;
    if (filter) plan = agent::FilterPlan::Make(DataSchema(), *filter).value();
    std::string out;
    agent::WriteData(DataSchema(), source, {defaults, plan ? &*plan : nullptr, std::move(access)}, out);
    return out;
}

std::string Slowly(const lyd_node* tree, const std::optional<SubtreeFilter>& filter, Defaults defaults)
{
    std::string out;
    agent_tests::WriteSlowly(tree, filter, defaults, out);
    return out;
}

/// A store with the rows of one configuration.
class Rows {
public:
    explicit Rows(const agent_tests::Configuration& configuration)
        : m_store(cdb::Store::Open(m_directory.Path() / "store"))
    {
        m_store->SetSchema(Schema().Table());
        auto transaction = m_store->Begin();
        for (const auto& [key, row] : configuration.rows) transaction.Put(key, row);
        transaction.Append({1, 1, "", "", "", ""});
        EXPECT_EQ(transaction.Commit(), std::nullopt);
        m_view = cdb::MakeRowView(*m_store);
    }
    cdb::RowView& View() { return *m_view; }

private:
    agent_tests::Directory m_directory;
    std::unique_ptr<cdb::Store> m_store;
    std::unique_ptr<cdb::RowView> m_view;
};

TEST(ReadProperty, RowsAndTreesGiveWhatTheFilterMeans)
{
    int selected = 0;
    for (std::uint32_t seed = 1; seed <= 30; ++seed) {
        Random random(seed);
        const auto configuration = agent_tests::RandomConfiguration(random);
        Rows rows(configuration);
        agent_tests::TreeSource tree(configuration.tree.get());
        agent::RowSource rowSource(DataSchema(), rows.View());
        const agent_tests::RandomFilter filters(DataSchema(), configuration.tree.get(), "config");
        for (int i = 0; i < 60; ++i) {
            const auto filter = i == 0 ? std::nullopt : std::optional(filters.Make(random));
            for (const Defaults mode : kModes) {
                const std::string expected = Slowly(configuration.tree.get(), filter, mode);
                const auto trace = [&] {
                    return "seed " + std::to_string(seed) + ", mode " +
                           std::to_string(static_cast<int>(mode)) + ": " +
                           (filter ? agent_tests::ToText(*filter) : "no filter");
                };
                ASSERT_EQ(WrittenFrom(tree, filter, mode), expected) << trace();
                ASSERT_EQ(WrittenFrom(rowSource, filter, mode), expected) << trace();
                if (!expected.empty() && filter) ++selected;
            }
        }
    }
    EXPECT_GT(selected, 1000) << "of the filters most select nothing";
}

constexpr const char* kStateJson = R"({"switch-state:state": {"system": {
  "process": [
    {"name": "b", "pid": 2, "subscription": ["/config/a", "/config/b"], "callpoint": ["x"]},
    {"name": "a", "pid": 10, "subscription": ["/config/b"]},
    {"name": "c", "pid": 3}],
  "fault": [{"number": "2", "text": "<&>"}, {"number": "10", "text": "b"}, {"number": "1", "text": "b"}]}}})";

TEST(ReadProperty, StateGivesWhatTheFilterMeans)
{
    lyd_node* raw = nullptr;
    ASSERT_EQ(lyd_parse_data_mem(Schema().Context(), kStateJson, LYD_JSON, LYD_PARSE_ONLY, 0, &raw),
              LY_SUCCESS)
        << ly_errmsg(Schema().Context());
    const agent::Tree tree(raw);
    agent_tests::TreeSource source(tree.get());
    const agent_tests::RandomFilter filters(DataSchema(), tree.get(), "state");
    Random random(1);
    int selected = 0;
    for (int i = 0; i < 3000; ++i) {
        const auto filter = i == 0 ? std::nullopt : std::optional(filters.Make(random));
        const std::string expected = Slowly(tree.get(), filter, Defaults::kExplicit);
        ASSERT_EQ(WrittenFrom(source, filter), expected)
            << (filter ? agent_tests::ToText(*filter) : "no filter");
        if (!expected.empty() && filter) ++selected;
    }
    EXPECT_GT(selected, 500) << "of the filters most select nothing";
}

FilterNode Element(std::string name, std::vector<FilterNode> children = {}, std::string text = {})
{
    FilterNode node;
    node.name = std::move(name);
    node.text = std::move(text);
    node.children = std::move(children);
    return node;
}

SubtreeFilter SflowFilter(std::vector<FilterNode> children)
{
    return {Element("config", {Element("oam", {Element("sflow", std::move(children))})})};
}

std::string Refusal(const SubtreeFilter& filter, const agent::FilterLimits& limits = {})
{
    const auto plan = agent::FilterPlan::Make(DataSchema(), filter, limits);
    if (plan) return "taken";
    EXPECT_EQ(plan.error().tag, cdb::ErrorTag::kTooBig);
    return plan.error().message;
}

TEST(FilterPlan, RefusesMoreNodesThanTheLimit)
{
    const auto filter = SflowFilter({Element("collector", {Element("ip")}), Element("interface")});
    EXPECT_EQ(Refusal(filter, {.nodes = 6}), "taken");
    EXPECT_EQ(Refusal(filter, {.nodes = 5}), "the filter has more than 5 nodes; ask for less at once");
}

TEST(FilterPlan, RefusesMoreTestsOfOneAlternativeThanTheLimit)
{
    std::vector<FilterNode> tests(4, Element("name", {}, "c1"));
    const auto filter = SflowFilter({Element("collector", tests)});
    EXPECT_EQ(Refusal(filter, {.tests = 4}), "taken");
    EXPECT_EQ(
        Refusal(filter, {.tests = 3}),
        "the filter tests more than 3 values of one \"collector\"; write an element of its own for each "
        "that is asked for");
}

TEST(FilterPlan, RefusesMoreCombinationsOfLeavesThanTheLimit)
{
    const FilterNode ip = Element("ip", {}, "192.0.2.1");
    const FilterNode port = Element("port", {}, "1");
    const auto filter = SflowFilter(
        {Element("collector", {ip}), Element("collector", {port, ip}), Element("collector", {ip, port})});
    EXPECT_EQ(Refusal(filter, {.combinations = 2}), "taken");
    EXPECT_EQ(
        Refusal(filter, {.combinations = 1}),
        "the filter tests more than 1 combinations of leaves of \"collector\"; ask in several requests");
}

TEST(FilterPlan, JoinsAlternativesOfTheSameEntry)
{
    const auto named = [](const std::string& name, FilterNode below) {
        return Element("interface", {Element("name", {}, name), std::move(below)});
    };
    const auto filter =
        SflowFilter({named("b", Element("sampling-rate")), named("a", Element("sampling-rate")),
                     named("b", Element("flow-sampling-collector"))});
    const auto plan = agent::FilterPlan::Make(DataSchema(), filter).value();
    const auto only = [](const agent::FilterPlan::Branch& branch) -> const agent::FilterPlan::Inner& {
        EXPECT_EQ(branch.inners.size(), 1U);
        return branch.inners.front();
    };
    const auto& interfaces = only(*only(*only(*only(plan.Root()).always).always).always);
    EXPECT_TRUE(interfaces.NamesEntries());
    ASSERT_EQ(interfaces.matches.size(), 1U);
    EXPECT_EQ(interfaces.matches.front().byValues.size(), 2U);
}

/// Counts how a source is asked.
class CountingSource final : public agent::DataSource {
public:
    explicit CountingSource(agent::DataSource& source) : m_source(source) {}
    void Values(Handle at, const lysc_node* leaf, const ValueVisit& visit) override
    {
        m_source.Values(at, leaf, visit);
    }
    void Container(Handle at, const lysc_node* container, const NodeVisit& visit) override
    {
        m_source.Container(at, container, visit);
    }
    void Entries(Handle at, const lysc_node* list, const NodeVisit& visit) override
    {
        ++passes;
        m_source.Entries(at, list, visit);
    }
    void Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
               const NodeVisit& visit) override
    {
        ++lookUps;
        m_source.Entry(at, list, keys, visit);
    }
    int passes = 0;
    int lookUps = 0;

private:
    agent::DataSource& m_source;
};

TEST(DataWriter, LooksUpEntriesThatAreNamed)
{
    Random random(1);
    const auto configuration = agent_tests::RandomConfiguration(random);
    agent_tests::TreeSource tree(configuration.tree.get());
    CountingSource source(tree);
    std::vector<FilterNode> named;
    for (int i = 0; i < 30; ++i)
        named.push_back(Element(
            "interface", {Element("name", {}, "eth" + std::to_string(i % 20)), Element("sampling-rate")}));
    WrittenFrom(source, SflowFilter(named));
    EXPECT_EQ(source.lookUps, 20);
    EXPECT_EQ(source.passes, 0);
}

TEST(DataWriter, DoesNotLookUpManyEntriesBelowEachOfAList)
{
    Random random(1);
    const auto configuration = agent_tests::RandomConfiguration(random);
    agent_tests::TreeSource tree(configuration.tree.get());
    CountingSource source(tree);
    std::vector<FilterNode> named;
    for (int i = 0; i < 30; ++i)
        named.push_back(Element("flow-sampling-collector", {Element("name", {}, "c" + std::to_string(i))}));
    WrittenFrom(source, SflowFilter({Element("interface", named)}));
    EXPECT_EQ(source.lookUps, 0);
    EXPECT_GT(source.passes, 1);
}

TEST(RowSource, KeepsWhatWasLookedUpWhileMoreIsLookedUpBelow)
{
    const auto& table = Schema().Table();
    const auto interface = table.Find("/config/oam/sflow/interface");
    const auto flow = table.Find("/config/oam/sflow/interface/flow-sampling-collector");
    agent_tests::Configuration configuration;
    configuration.rows = {{{interface, {"eth1"}}, {{{"sampling-rate", 7U}}}}, {{flow, {"eth1", "c1"}}, {}}};
    Rows rows(configuration);
    agent::RowSource source(DataSchema(), rows.View());
    const std::string_view eth1 = "eth1";
    const std::string_view c1 = "c1";
    const lysc_node* rate = Schema().NodeOf(table.Child(interface, "sampling-rate"));
    std::string seen;
    source.Entry(nullptr, Schema().NodeOf(interface), {&eth1, 1}, [&](agent::DataSource::Handle entry) {
        source.Entry(entry, Schema().NodeOf(flow), {&c1, 1}, [&](agent::DataSource::Handle) {
            seen += "c1 ";
            return true;
        });
        source.Values(entry, rate, [&](std::string_view text, bool) { seen += text; });
        return true;
    });
    EXPECT_EQ(seen, "c1 7");
}

class ReadAccessTest : public testing::Test {
protected:
    ReadAccessTest()
    {
        lyd_node* raw = nullptr;
        const char* json = R"({"switch-config:config": {"switch-oam-sflow:oam": {"sflow": {
          "agent": {"ipv4": "192.0.2.9"},
          "collector": [{"name": "c1", "ip": "192.0.2.1", "port": 1}, {"name": "c2", "ip": "192.0.2.2"}],
          "interface": [{"name": "eth1", "flow-sampling-collector": [{"name": "c1"}, {"name": "c2"}]}]}}}})";
        EXPECT_EQ(lyd_parse_data_mem(Schema().Context(), json, LYD_JSON, LYD_PARSE_ONLY, 0, &raw),
                  LY_SUCCESS);
        m_tree.reset(raw);
    }

    /// What is in sflow, where what the path names may not be read. "name{key}" is an entry of the list.
    std::string Without(const std::string& denied, const std::optional<SubtreeFilter>& filter = std::nullopt)
    {
        const auto access = [&denied](const lysc_node* node, std::span<const std::string> keys) {
            std::string text = node->name;
            for (const std::string& key : keys) text += '{' + key + '}';
            return text != denied;
        };
        agent_tests::TreeSource source(m_tree.get());
        std::string text = WrittenFrom(source, filter, Defaults::kExplicit, access);
        if (text.empty()) return text;
        const std::size_t begin = text.find("<sflow>") + 7;
        return text.substr(begin, text.find("</sflow>") - begin);
    }

    agent::Tree m_tree;

    // What stands in sflow.
    static inline const std::string kAgent = "<agent><ipv4>192.0.2.9</ipv4></agent>";
    static inline const std::string kC1 =
        "<collector><name>c1</name><ip>192.0.2.1</ip><port>1</port></collector>";
    static inline const std::string kC2 = "<collector><name>c2</name><ip>192.0.2.2</ip></collector>";
    static inline const std::string kEth1 =
        "<interface><name>eth1</name><flow-sampling-collector><name>c1</name></flow-sampling-collector>"
        "<flow-sampling-collector><name>c2</name></flow-sampling-collector></interface>";
};

TEST_F(ReadAccessTest, LeavesOutWhatMayNotBeRead)
{
    EXPECT_EQ(Without("nothing"), kAgent + kC1 + kC2 + kEth1);
    EXPECT_EQ(Without("ipv4"), kC1 + kC2 + kEth1);
    EXPECT_EQ(Without("agent"), kC1 + kC2 + kEth1);
    EXPECT_EQ(Without("collector{c1}"), kAgent + kC2 + kEth1);
    EXPECT_EQ(Without("name{c2}"), kAgent + kC1 + kEth1);
    EXPECT_EQ(Without("port{c1}"),
              kAgent + "<collector><name>c1</name><ip>192.0.2.1</ip></collector>" + kC2 + kEth1);
    EXPECT_EQ(Without("flow-sampling-collector{eth1}{c1}"),
              kAgent + kC1 + kC2 +
                  "<interface><name>eth1</name><flow-sampling-collector><name>c2</name>"
                  "</flow-sampling-collector></interface>");
    EXPECT_EQ(Without("config"), "");
}

TEST_F(ReadAccessTest, LeavesOutOfAFilteredReadToo)
{
    const auto port = SflowFilter({Element("collector", {Element("port", {}, "1")})});
    EXPECT_EQ(Without("nothing", port), kC1);
    EXPECT_EQ(Without("port{c1}", port), "") << "what may not be read is found by no content match";
    EXPECT_EQ(Without("collector{c1}", SflowFilter({Element("collector", {Element("name", {}, "c1")})})), "");
    EXPECT_EQ(Without("agent", SflowFilter({Element("agent", {Element("ipv4")})})), "");
}

}  // namespace
