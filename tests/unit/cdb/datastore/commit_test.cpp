// SPDX-License-Identifier: Apache-2.0
// Commits: what is durable after them, and what a failed one leaves.

#include "fixture.h"

namespace tests {
namespace {

using cdb::ErrorTag;
using Strings = std::vector<std::string>;

cdb::HistoryEntry UndoOf(const cdb::Store& store, std::uint64_t commit)
{
    return store.HistoryUndo(commit).value();
}

constexpr const char* kCollector = "<collector><name>c1</name><ip>192.0.2.1</ip></collector>";
constexpr const char* kInterface =
    "<interface><name>eth1</name><default-sampling-rate>512</default-sampling-rate>"
    "<polling-interval>20</polling-interval>"
    "<flow-sampling-collector><name>c1</name></flow-sampling-collector></interface>";

class Commits : public DatastoreTest {};

TEST_F(Commits, RunningIsBackAfterARestart)
{
    Apply(Sflow(std::string("<agent><ipv4>192.0.2.7</ipv4></agent>") + kCollector + kInterface));
    Apply(
        Config("<interface xmlns='urn:switch:yang:switch-interfaces'><mgmt><name>m</name><ipv4><address>"
               "<ip>10.0.0.5/24</ip></address></ipv4></mgmt></interface>"));
    const auto before = Shown(RunningTree().get());
    Open();
    EXPECT_EQ(Shown(RunningTree().get()), before);
    EXPECT_EQ(Shown(CandidateTree().get()), before);
    EXPECT_FALSE(datastore->Changed());
}

TEST_F(Commits, TheRowHoldsTheExplicitValues)
{
    Apply(Sflow(std::string(kCollector) + kInterface));
    const auto& table = TheSchema().Table();
    const auto row = store->Read().Get({table.Find("/config/oam/sflow/interface"), {"eth1"}});
    ASSERT_TRUE(row);
    EXPECT_EQ(row->leaves, (decltype(row->leaves){{"default-sampling-rate", std::uint32_t{512}},
                                                  {"polling-interval", std::uint16_t{20}}}));
}

TEST_F(Commits, ACommitOfNothingWritesNothing)
{
    EXPECT_TRUE(Commit().Empty());
    EXPECT_TRUE(store->Empty());
    Apply(Sflow(kCollector));
    Edit(Sflow("<agent><ipv4>192.0.2.7</ipv4></agent>"));
    Edit(Sflow("<agent><ipv4 nc:operation='delete'/></agent>"));
    EXPECT_TRUE(Commit().Empty());
    EXPECT_EQ(store->LastCommit(), 1U);
}

TEST_F(Commits, TheHistorySaysWhoAndWhen)
{
    Edit(Sflow(kCollector));
    ASSERT_TRUE(datastore->Commit({"ann", "netconf", "first", 77}).has_value());
    const auto history = store->History(5);
    ASSERT_EQ(history.size(), 1U);
    EXPECT_EQ(history[0].commit, 1U);
    EXPECT_EQ(history[0].user, "ann");
    EXPECT_EQ(history[0].source, "netconf");
    EXPECT_EQ(history[0].comment, "first");
    EXPECT_EQ(history[0].timeUs, 77);
}

TEST_F(Commits, TheUndoOfEachTakesItBack)
{
    Strings states{Shown(RunningTree().get())};
    const std::string edits[] = {
        Sflow(std::string(kCollector) + kInterface),
        Sflow("<interface><name>eth1</name><polling-interval "
              "nc:operation='delete'/><sampling-rate>9</sampling-rate>"
              "<default-sampling-rate>7</default-sampling-rate></interface><agent><ipv4>192.0.2.7</ipv4></"
              "agent>"),
        Sflow("<interface nc:operation='delete'><name>eth1</name></interface><interface><name>eth2</name>"
              "</interface><agent nc:operation='delete'/>"),
        Config("", "nc:operation='delete'"),
    };
    for (const auto& edit : edits) {
        Apply(edit);
        states.push_back(Shown(RunningTree().get()));
    }
    const auto history = store->History(10);
    ASSERT_EQ(history.size(), 4U);
    for (std::size_t i = 0; i < history.size(); ++i) {
        // Each roll-back is a commit too.
        ASSERT_TRUE(datastore->RollBack({.commit = history[i].commit - 1}).empty());
        Commit();
        EXPECT_EQ(Shown(RunningTree().get()), states[states.size() - 2 - i]);
    }
}

TEST_F(Commits, TheUndoIsAsLargeAsTheChange)
{
    std::string many;
    for (int i = 0; i < 1000; ++i) many += "<interface><name>eth" + std::to_string(i) + "</name></interface>";
    Apply(Sflow(many));
    Apply(Sflow("<interface><name>eth7</name><polling-interval>4</polling-interval></interface>"));
    const auto history = store->History(2);
    ASSERT_EQ(history.size(), 2U);
    EXPECT_EQ(UndoOf(*store, 2).undoRows.size(), 1U);
    EXPECT_EQ(UndoOf(*store, 1).undoRows.size(), 1000U);
}

TEST_F(Commits, AFullStoreLeavesRunningAndCandidateAsTheyWere)
{
    constexpr std::size_t kSmall = std::size_t{256} * 1024;
    cdb::StoreOptions options;
    options.mapSize = kSmall;
    std::filesystem::remove_all(directory.Path() / "store");
    Open(options);
    Apply(Sflow(kCollector));
    const auto before = Shown(RunningTree().get());
    std::string many;
    for (int i = 0; i < 5000; ++i) many += "<interface><name>eth" + std::to_string(i) + "</name></interface>";
    Edit(Sflow(many));
    const auto candidate = Shown(CandidateTree().get());
    const auto result = datastore->Commit({});
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(result.error().front().tag, ErrorTag::kResourceDenied);
    EXPECT_EQ(Shown(RunningTree().get()), before);
    EXPECT_EQ(Shown(CandidateTree().get()), candidate);
    EXPECT_EQ(store->LastCommit(), 1U);
    datastore->Discard();
    Open(options);
    EXPECT_EQ(Shown(RunningTree().get()), before);
}

TEST_F(Commits, ARowThatDoesNotFitIsNamed)
{
    const auto& table = TheSchema().Table();
    auto transaction = store->Begin();
    transaction.Put({table.Find("/config/oam/sflow/interface"), {"eth1"}},
                    {{{"max-header-size", cdb::Value(std::uint16_t{9})}}});
    transaction.Append({1, 0, "", "", "", ""});
    ASSERT_FALSE(transaction.Commit());
    store->SetSchema(TheSchema().Table(), "of other modules");  // what is known to be valid is not looked at
    try {
        cdb::Datastore other(TheSchema(), *store);
        FAIL() << "a header size of 9 was taken";
    } catch (const cdb::FatalError& error) {
        EXPECT_NE(std::string(error.what()).find("/config/oam/sflow/interface{eth1}"), std::string::npos)
            << error.what();
    }
}

TEST_F(Commits, AStoredConfigurationThatIsNotValidIsRefused)
{
    const auto& table = TheSchema().Table();
    auto transaction = store->Begin();
    transaction.Put({table.Find("/config/oam/sflow/collector"), {"c1"}}, {});
    transaction.Append({1, 0, "", "", "", ""});
    ASSERT_FALSE(transaction.Commit());
    store->SetSchema(TheSchema().Table(), "of other modules");  // what is known to be valid is not looked at
    try {
        cdb::Datastore other(TheSchema(), *store);
        FAIL() << "a collector without an address was taken";
    } catch (const cdb::FatalError& error) {
        EXPECT_NE(std::string(error.what()).find("collector \"c1\" needs \"ip\""), std::string::npos)
            << error.what();
    }
}

TEST_F(Commits, InitializeFillsTheDefaultsThatNoCallpointWrites)
{
    Strings warnings;
    const auto content =
        ParseEdit(Sflow(std::string(kCollector) + kInterface + "<interface><name>eth2</name></interface>"));
    EXPECT_TRUE(datastore->Initialize(content.get(), {"init", "init", "", 1}, warnings).empty());
    EXPECT_EQ(warnings,
              Strings{"interface \"eth2\" has no default-sampling-rate, and the callpoint "
                      "sflow-set-sampling-rate is not asked here: 4096, the default of the YANG module, "
                      "is used"});
    EXPECT_NE(Shown(RunningTree().get()).find("default-sampling-rate 4096"), std::string::npos);
    EXPECT_FALSE(datastore->Changed());
    EXPECT_EQ(store->LastCommit(), 1U);
}

TEST_F(Commits, AnInvalidFirstConfigurationLeavesNothing)
{
    Strings warnings;
    const auto content = ParseEdit(Sflow("<collector><name>c1</name></collector>"));
    EXPECT_EQ(datastore->Initialize(content.get(), {}, warnings).size(), 1U);
    EXPECT_EQ(Shown(CandidateTree().get()), "");
    EXPECT_TRUE(store->Empty());
}

}  // namespace
}  // namespace tests
