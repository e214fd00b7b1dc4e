// SPDX-License-Identifier: Apache-2.0
// Access control of edits and commits: what is asked about, and how much is read for it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "agent/access/access_world.h"
#include "agent/data/yang_tree.h"

namespace agent_tests {
namespace {

using cdb::DefaultOperation;
using testing::HasSubstr;

// ---- edits ----

agent::Tree ParsedTree(const std::string& xml)
{
    lyd_node* raw = nullptr;
    EXPECT_EQ(lyd_parse_data_mem(Schema().Context(), xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0,
                                 &raw),
              LY_SUCCESS)
        << xml;
    return agent::Tree(raw);
}

/// The node of `tree` that stands where the edit's node stands.
const lyd_node* FindIn(const lyd_node* tree, const lyd_node* edit)
{
    char* path = lyd_path(edit, LYD_PATH_STD, nullptr, 0);
    lyd_node* match = nullptr;
    const LY_ERR found = tree == nullptr ? LY_ENOTFOUND : lyd_find_path(tree, path, 0, &match);
    std::free(path);
    return found == LY_SUCCESS ? match : nullptr;
}

/// A store with this in <sflow> as its running configuration.
class Database {
public:
    explicit Database(const std::string& sflow)
    {
        cdb::StoreOptions options;
        options.mapSize = std::size_t{1} << 24;
        m_store = cdb::Store::Open(m_directory.Path() / "store", options);
        m_datastore = std::make_unique<cdb::Datastore>(Schema(), *m_store);
        if (!sflow.empty()) Commit(sflow);
    }

    void Commit(const std::string& sflow)
    {
        Edit(sflow);
        const auto done = m_datastore->Commit({"root", "test", "", 1});
        EXPECT_TRUE(done.has_value());
    }

    void Edit(const std::string& sflow)
    {
        const agent::Tree edit = ParsedTree(Sflow(sflow));
        const auto error = m_datastore->Edit(edit.get(), DefaultOperation::kMerge, {});
        EXPECT_FALSE(error) << error->message;
    }

    cdb::Datastore* operator->() { return m_datastore.get(); }

private:
    Directory m_directory;
    std::unique_ptr<cdb::Store> m_store;
    std::unique_ptr<cdb::Datastore> m_datastore;
};

struct EditRow {
    const char* name;
    std::string rules;
    std::string existing;  // in <sflow>; empty: no tree at all
    std::string edit;
    DefaultOperation operation;
    std::string denied;  // "create", "change" or "delete" and a part of the path; empty: permitted
};

class EditAccess : public AccessTest, public testing::WithParamInterface<EditRow> {};

TEST_P(EditAccess, IsChecked)
{
    const EditRow& row = GetParam();
    const auto access = Rules(Nacm("<write-default>permit</write-default>" + List(row.rules)));
    const agent::Tree existing = row.existing.empty() ? agent::Tree() : ParsedTree(Sflow(row.existing));
    const agent::Tree edit = ParsedTree(row.edit);
    const auto find = [&existing](const lyd_node* node) { return FindIn(existing.get(), node); };
    const auto error = access->Grant(kBob)->CheckEdit(edit.get(), row.operation, existing.get(), find);
    if (row.denied.empty()) {
        EXPECT_FALSE(error) << error->message;
    } else {
        ASSERT_TRUE(error);
        EXPECT_EQ(error->tag, cdb::ErrorTag::kAccessDenied);
        EXPECT_THAT(error->message, HasSubstr("bob may not " + row.denied));
        EXPECT_FALSE(error->path.empty());
    }
    EXPECT_FALSE(access->Grant(kRoot)->CheckEdit(edit.get(), row.operation, existing.get(), find));

    Database database(row.existing);
    const auto ofRows =
        access->Grant(kBob)->CheckEdit(edit.get(), row.operation, Schema(), *database->Candidate());
    EXPECT_EQ(ofRows ? ofRows->message : "", error ? error->message : "");
}

const std::string kDenyRate = Rule(Path(kInterfacePath + "/s:sampling-rate"), "deny", "create update delete");
const std::string kDenyEth1 = Rule(Path(kInterfacePath + "[s:name='eth1']"), "deny", "create update delete");
const std::string kRate = "<sampling-rate>512</sampling-rate>";
const std::string kRatePath =
    "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth1']/sampling-rate";
const std::string kEth1Path = "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth1']";
constexpr auto kMerge = DefaultOperation::kMerge;
constexpr auto kReplace = DefaultOperation::kReplace;

INSTANTIATE_TEST_SUITE_P(
    Table, EditAccess,
    testing::Values(
        EditRow{"CreatesALeafThatIsDenied", kDenyRate, Interface("eth1"), Sflow(Interface("eth1", kRate)),
                kMerge, "create " + kRatePath},
        EditRow{"ChangesALeafThatIsDenied", kDenyRate, Interface("eth1", "<sampling-rate>7</sampling-rate>"),
                Sflow(Interface("eth1", kRate)), kMerge, "change " + kRatePath},
        EditRow{"LeavesALeafAsItIs", kDenyRate, Interface("eth1", kRate), Sflow(Interface("eth1", kRate)),
                kMerge, ""},
        EditRow{"NamesAnEntryOnTheWay", kDenyEth1, Interface("eth1"), Sflow(Interface("eth1")), kMerge, ""},
        EditRow{"CreatesAnEntryThatIsDenied", kDenyEth1, "", Sflow(Interface("eth1")), kMerge,
                "create " + kEth1Path},
        EditRow{"CreatesAnotherEntry", kDenyEth1, "", Sflow(Interface("eth2", kRate)), kMerge, ""},
        EditRow{"CreatesWithAnEntryALeafThatIsDenied", kDenyRate, "", Sflow(Interface("eth1", kRate)), kMerge,
                "create " + kRatePath},
        EditRow{"MayCreateWhatItMayNotChange",
                Rule(Path(kInterfacePath + "/s:sampling-rate"), "deny", "update"), "",
                Sflow(Interface("eth1", kRate)), kMerge, ""},
        EditRow{"DeletesALeafThatIsDenied", kDenyRate, Interface("eth1", kRate),
                Sflow(Interface("eth1", "<sampling-rate nc:operation=\"delete\"/>")), kMerge, "delete "},
        EditRow{"RemovesALeafThatIsNotThere", kDenyRate, Interface("eth1"),
                Sflow(Interface("eth1", "<sampling-rate nc:operation=\"remove\"/>")), kMerge, ""},
        EditRow{"DeletesAnEntryWithALeafThatIsDenied", kDenyRate, Interface("eth1", kRate),
                Sflow("<interface nc:operation=\"delete\"><name>eth1</name></interface>"), kMerge,
                "delete " + kEth1Path},
        EditRow{"DeletesAnEntryWithoutTheLeafThatIsDenied", kDenyRate, Interface("eth1"),
                Sflow("<interface nc:operation=\"delete\"><name>eth1</name></interface>"), kMerge, ""},
        EditRow{"DeletesAContainerAroundWhatIsDenied", kDenyEth1, Interface("eth2") + Interface("eth1"),
                "<config xmlns=\"urn:switch:yang:switch-config\" "
                "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
                "nc:operation=\"remove\"/>",
                kMerge, "delete /switch-config:config"},
        EditRow{"DeletesAContainerWithoutWhatIsDenied", kDenyEth1, Interface("eth2"),
                "<config xmlns=\"urn:switch:yang:switch-config\" "
                "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
                "nc:operation=\"remove\"/>",
                kMerge, ""},
        EditRow{"ReplacesAnEntryAndSoDropsALeafThatIsDenied", kDenyRate, Interface("eth1", kRate),
                Sflow("<interface nc:operation=\"replace\"><name>eth1</name></interface>"), kMerge,
                "delete " + kEth1Path},
        EditRow{"ReplacesAnEntryAndKeepsTheLeafThatIsDenied", kDenyRate, Interface("eth1", kRate),
                Sflow("<interface nc:operation=\"replace\"><name>eth1</name>" + kRate + "</interface>"),
                kMerge, ""},
        EditRow{"ReplacesAllAndSoDropsAnEntryThatIsDenied", kDenyEth1, Interface("eth1"),
                Sflow(Interface("eth2")), kReplace, "delete "},
        EditRow{"ReplacesAllByNothing", kDenyEth1, Interface("eth1"), "", kReplace, "delete /"},
        EditRow{"MergesNothing", kDenyEth1, Interface("eth1"), "", kMerge, ""},
        EditRow{"WithNoneOnlyWhatSaysSo", kDenyRate, Interface("eth1"), Sflow(Interface("eth1", kRate)),
                DefaultOperation::kNone, ""},
        EditRow{"WithNoneAndAnOperationInside", kDenyRate, Interface("eth1"),
                Sflow(Interface("eth1", "<sampling-rate nc:operation=\"create\">512</sampling-rate>")),
                DefaultOperation::kNone, "create " + kRatePath}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(AccessTest, WithoutARuleWritesFollowTheDefault)
{
    const auto access = Rules(Nacm(""));
    const agent::Tree edit = ParsedTree(Sflow(Interface("eth1")));
    const auto none = [](const lyd_node*) -> const lyd_node* { return nullptr; };
    EXPECT_TRUE(access->Grant(kBob)->CheckEdit(edit.get(), kMerge, nullptr, none));
    EXPECT_FALSE(access->Grant(kRoot)->CheckEdit(edit.get(), kMerge, nullptr, none));
}

// ---- commits ----

/// What the check of a commit says of the candidate as it is; empty: permitted.
std::string CommitBy(const Access& access, const AccessUser& user, Database& database)
{
    const auto error = access.Grant(user)->CheckChanges(Schema(), database->ChangedRows());
    return error ? error->message + " at " + error->path : "";
}

TEST_F(AccessTest, CommitIsCheckedByWhatItChanges)
{
    const auto access = Rules(Nacm("<write-default>permit</write-default>" + List(kDenyRate)));
    Database database(Interface("eth1"));
    database.Edit(Interface("eth2"));
    EXPECT_EQ(CommitBy(*access, kBob, database), "");
    database.Edit(Interface("eth1", kRate));
    EXPECT_THAT(CommitBy(*access, kBob, database),
                testing::AllOf(HasSubstr("bob may not create " + kRatePath), HasSubstr("at " + kRatePath)));
    EXPECT_EQ(CommitBy(*access, kRoot, database), "");
}

TEST_F(AccessTest, CommitTellsCreatingChangingAndDeletingApart)
{
    const std::string before = Interface("eth1", kRate);
    const std::string other = Interface("eth1", "<sampling-rate>7</sampling-rate>");
    const std::string none = Interface("eth1", "<sampling-rate nc:operation=\"delete\"/>");
    // What holds anyway is created too.
    const std::string standard = Interface("eth1", "<sampling-rate>4096</sampling-rate>");
    const struct {
        std::string running;
        std::string edit;
        std::string operation;
        const char* named;
    } kRows[] = {{Interface("eth1"), before, "create", "create"},
                 {Interface("eth1"), standard, "create", "create"},
                 {before, other, "update", "change"},
                 {before, none, "delete", "delete"}};
    for (const auto& row : kRows) {
        Database database(row.running);
        database.Edit(row.edit);
        for (const std::string operation : {"create", "update", "delete"}) {
            const auto access =
                Rules(Nacm("<write-default>permit</write-default>" +
                           List(Rule(Path(kInterfacePath + "/s:sampling-rate"), "deny", operation))));
            const std::string said = CommitBy(*access, kBob, database);
            if (operation == row.operation)
                EXPECT_THAT(said, HasSubstr(std::string("bob may not ") + row.named + " " + kRatePath));
            else
                EXPECT_EQ(said, "") << row.edit << operation;
        }
    }
}

TEST_F(AccessTest, CommitAsksForEntriesAndWhatIsInThem)
{
    const auto access = Rules(Nacm("<write-default>permit</write-default>" + List(kDenyEth1)));
    Database database(Interface("eth1", kRate) + Interface("eth2", kRate));
    database.Edit("<interface nc:operation=\"delete\"><name>eth2</name></interface>");
    EXPECT_EQ(CommitBy(*access, kBob, database), "");
    database.Edit("<interface nc:operation=\"delete\"><name>eth1</name></interface>");
    EXPECT_THAT(CommitBy(*access, kBob, database), HasSubstr("bob may not delete " + kEth1Path + ";"));
    database->Discard();
    // By default nothing is permitted but what a rule names.
    const auto narrow = Rules(Nacm(List(Rule(Path(kInterfacePath + "[s:name='eth1']"), "permit"))));
    database.Edit(Interface("eth1", "<sampling-rate>7</sampling-rate>"));
    EXPECT_EQ(CommitBy(*narrow, kBob, database), "");
    database.Edit(Interface("eth3"));
    EXPECT_THAT(CommitBy(*narrow, kBob, database), HasSubstr("bob may not create "));
}

// ---- what a check reads ----

/// Counts the rows that are asked for.
class CountingView final : public cdb::RowView {
public:
    explicit CountingView(std::unique_ptr<cdb::RowView> rows) : m_rows(std::move(rows)) {}

    const cdb::Row* Get(cdb::NodeId node, std::span<const std::string> keys) override
    {
        ++m_count;
        return m_rows->Get(node, keys);
    }
    void ForEach(cdb::NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override
    {
        m_rows->ForEach(list, parentKeys, [&](std::span<const std::string_view> keys, const cdb::Row& row) {
            ++m_count;
            return visit(keys, row);
        });
    }
    [[nodiscard]] std::size_t Count() const { return m_count; }

private:
    std::unique_ptr<cdb::RowView> m_rows;
    std::size_t m_count = 0;
};

/// How many rows the check of the edit reads where so many interfaces are configured, and what it says.
std::pair<std::size_t, std::string> Check(const Access& access, std::size_t interfaces,
                                          const std::string& edit)
{
    std::string all;
    for (std::size_t i = 0; i < interfaces; ++i) all += Interface("eth" + std::to_string(i), kRate);
    Database database(all);
    CountingView rows(database->Candidate());
    const agent::Tree tree = ParsedTree(Sflow(edit));
    const auto error = access.Grant(kBob)->CheckEdit(tree.get(), kMerge, Schema(), rows);
    return {rows.Count(), error ? error->message : ""};
}

TEST_F(AccessTest, ACheckReadsWhatTheEditNamesHoweverMuchIsConfigured)
{
    const auto access = Rules(Nacm("<write-default>permit</write-default>" + List(kDenyEth1)));
    const std::string other = Interface("eth2", "<sampling-rate>7</sampling-rate>");
    const std::string denied = Interface("eth1", "<sampling-rate>7</sampling-rate>");
    const auto few = Check(*access, 100, other);
    EXPECT_EQ(few.second, "");
    EXPECT_GT(few.first, 0U);
    EXPECT_EQ(few, Check(*access, 2000, other));
    const auto fewDenied = Check(*access, 100, denied);
    EXPECT_THAT(fewDenied.second, HasSubstr("bob may not change " + kRatePath));
    EXPECT_EQ(fewDenied, Check(*access, 2000, denied));
}

TEST_F(AccessTest, ACheckReadsAllThatTheEditTakesOut)
{
    const auto access = Rules(Nacm("<write-default>permit</write-default>" + List(kDenyEth1)));
    const agent::Tree oam = ParsedTree(
        "<config xmlns=\"urn:switch:yang:switch-config\" "
        "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\">"
        "<oam xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow nc:operation=\"remove\"/></oam></config>");
    std::string all;
    for (int i = 0; i < 100; ++i) all += Interface("eth" + std::to_string(i));
    Database database(all);
    CountingView rows(database->Candidate());
    const auto error = access->Grant(kBob)->CheckEdit(oam.get(), kMerge, Schema(), rows);
    ASSERT_TRUE(error);
    EXPECT_GE(rows.Count(), 100U);
}
}  // namespace
}  // namespace agent_tests
