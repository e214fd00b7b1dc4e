// Access control: files of rules, and what they mean for operations, for reading, for edits and for commits.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "agent/access.h"
#include "agent/agent_world.h"
#include "agent/yang_tree.h"

namespace agent_tests {
namespace {

using agent::Access;
using agent::AccessGrant;
using agent::AccessUser;
using agent::Visibility;
using cdb::DefaultOperation;
using testing::HasSubstr;

const AccessUser kAnn{"ann", 60'001, {"users", "noc"}};
const AccessUser kBob{"bob", 60'002, {"users"}};
const AccessUser kLoner{"loner", 60'003, {}};
const AccessUser kRoot{"root", 0, {"root"}};

const lysc_node* Node(const std::string& path)
{
    const lysc_node* node = lys_find_path(Schema().Context(), nullptr, path.c_str(), 0);
    EXPECT_NE(node, nullptr) << path;
    return node;
}

const std::string kConfig = "/switch-config:config";
const std::string kSflow = kConfig + "/switch-oam-sflow:oam/switch-oam-sflow:sflow";
const std::string kInterface = kSflow + "/switch-oam-sflow:interface";

/// In <nacm>, where the prefixes c and s are declared.
std::string Nacm(const std::string& content)
{
    return "<nacm xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\" "
           "xmlns:c=\"urn:switch:yang:switch-config\" "
           "xmlns:s=\"urn:switch:yang:switch-oam-sflow\">" +
           content + "</nacm>";
}

std::string List(const std::string& rules, const std::string& group = "*")
{
    return "<rule-list><name>list-" + std::to_string(std::hash<std::string>{}(rules)) + "</name><group>" +
           group + "</group>" + rules + "</rule-list>";
}

std::string Rule(const std::string& what, const std::string& action, const std::string& operations = "*")
{
    return "<rule><name>" + std::to_string(std::hash<std::string>{}(what + action + operations)) + "</name>" +
           what + "<access-operations>" + operations + "</access-operations><action>" + action +
           "</action></rule>";
}

std::string Path(const std::string& path) { return "<path>" + path + "</path>"; }

const std::string kInterfacePath = "/c:config/s:oam/s:sflow/s:interface";

class AccessTest : public testing::Test {
protected:
    std::filesystem::path Write(const std::string& text, const std::string& name = "access.xml")
    {
        const auto file = m_directory.Path() / name;
        std::ofstream(file) << text;
        return file;
    }

    std::unique_ptr<Access> Rules(const std::string& text, const std::string& name = "access.xml")
    {
        return std::make_unique<Access>(Schema().Context(),
                                        Access::Options{Write(text, name), AGENT_TEST_YANG, ""});
    }

    std::string Problem(const std::string& text, const std::string& name = "access.xml")
    {
        try {
            Rules(text, name);
        } catch (const cdb::FatalError& error) {
            return error.what();
        }
        return {};
    }

    Directory m_directory;
};

bool Executes(const AccessGrant& grant, const std::string& name, const std::string& module = "ietf-netconf")
{
    return grant.MayExecute(Node("/" + module + ":" + name));
}

// ---- files ----

TEST_F(AccessTest, FileIsTakenAsXmlAndAsJson)
{
    const auto xml = Rules(Nacm(
        "<groups><group><name>noc</name><user-name>bob</user-name></group></groups>" +
        List(Rule("<module-name>ietf-netconf</module-name><rpc-name>commit</rpc-name>", "deny"), "noc")));
    const auto json =
        Rules(R"({"ietf-netconf-acm:nacm":{"groups":{"group":[{"name":"noc","user-name":["bob"]}]},
        "rule-list":[{"name":"l","group":["noc"],"rule":[{"name":"r","module-name":"ietf-netconf",
        "rpc-name":"commit","action":"deny"}]}]}})",
              "access.json");
    for (const auto* access : {xml.get(), json.get()}) {
        EXPECT_FALSE(Executes(*access->Grant(kAnn), "commit"));  // by her Unix group
        EXPECT_FALSE(Executes(*access->Grant(kBob), "commit"));  // by the file's
        EXPECT_TRUE(Executes(*access->Grant(kLoner), "commit"));
        EXPECT_TRUE(Executes(*access->Grant(kAnn), "validate"));
    }
}

TEST_F(AccessTest, BadFileIsRefusedWithItsLine)
{
    const std::string bad = Nacm(
        "\n<rule-list>\n<name>l</name>\n<rule><name>r</name><action>maybe</action></rule>"
        "</rule-list>");
    EXPECT_THAT(Problem(bad), testing::AllOf(HasSubstr("access.xml: line 4: "), HasSubstr("maybe")));
    EXPECT_THAT(Problem("<nacm", "a.xml"), HasSubstr("a.xml: line 1, column"));
    EXPECT_THAT(Problem("{\"ietf-netconf-acm:nacm\":\n{\"enable-nacm\":7}}", "a.json"),
                HasSubstr("a.json: line 2: "));
    EXPECT_THAT(Problem(""), HasSubstr("access.xml: "));
    EXPECT_THAT(Problem(Nacm(List(Rule(Path("/c:config/s:tea"), "deny")))), HasSubstr("line 1: "));
    EXPECT_THAT(Problem(Nacm(List(Rule(Path("/x:config"), "deny")))), HasSubstr("line 1: "));
    EXPECT_THAT(Problem("<config xmlns=\"urn:switch:yang:switch-config\"/>"), HasSubstr("no access rule"));
    EXPECT_THAT(Problem(std::string(2 << 20, ' ')), HasSubstr("more than 1048576 bytes"));
    EXPECT_THROW(Access(Schema().Context(), {m_directory.Path() / "none", AGENT_TEST_YANG, ""}),
                 cdb::FatalError);
}

TEST_F(AccessTest, FileIsReadAgainAndABadOneChangesNothing)
{
    const auto access = Rules(Nacm("<exec-default>deny</exec-default>"));
    const auto generation = access->Generation();
    EXPECT_FALSE(Executes(*access->Grant(kBob), "get"));
    Write(Nacm("<exec-default>perhaps</exec-default>"));
    EXPECT_THAT(access->Reload(), HasSubstr("perhaps"));
    EXPECT_EQ(access->Generation(), generation);
    EXPECT_FALSE(Executes(*access->Grant(kBob), "get"));
    Write(Nacm("<exec-default>permit</exec-default>"));
    EXPECT_EQ(access->Reload(), "");
    EXPECT_GT(access->Generation(), generation);
    EXPECT_TRUE(Executes(*access->Grant(kBob), "get"));
}

// ---- operations ----

TEST_F(AccessTest, WithoutAFileOperatorsDoAllAndOthersRead)
{
    const Access access(Schema().Context(), {"", AGENT_TEST_YANG, "noc"});
    for (const AccessUser& user : {kAnn, kRoot, AccessUser{"own", ::geteuid(), {"x"}}}) {
        const auto grant = access.Grant(user);
        EXPECT_TRUE(grant->ReadsAll() && grant->WritesAll()) << user.name;
        for (const char* name : {"get", "edit-config", "commit", "kill-session", "close-session"})
            EXPECT_TRUE(Executes(*grant, name)) << user.name << " " << name;
    }
    for (const AccessUser& user : {kBob, AccessUser{"no-group", 60'009, {"gid-60009"}}}) {
        const auto grant = access.Grant(user);
        EXPECT_TRUE(grant->ReadsAll()) << user.name;
        EXPECT_FALSE(grant->WritesAll()) << user.name;
        for (const char* name : {"get", "get-config", "close-session"})
            EXPECT_TRUE(Executes(*grant, name)) << name;
        EXPECT_TRUE(Executes(*grant, "get-schema", "ietf-netconf-monitoring"));
        for (const char* name : {"edit-config", "commit", "discard-changes", "lock", "unlock", "kill-session",
                                 "validate", "copy-config"})
            EXPECT_FALSE(Executes(*grant, name)) << name;
        EXPECT_FALSE(Executes(*grant, "ha-transition", "switch-system"));
    }
}

TEST_F(AccessTest, DefaultsOfTheStandardHold)
{
    const auto access = Rules(Nacm(""));
    const auto grant = access->Grant(kBob);
    EXPECT_TRUE(grant->ReadsAll());
    EXPECT_FALSE(grant->WritesAll());
    EXPECT_TRUE(Executes(*grant, "get") && Executes(*grant, "edit-config") &&
                Executes(*grant, "close-session"));
    EXPECT_FALSE(Executes(*grant, "kill-session"));
    EXPECT_FALSE(Executes(*grant, "delete-config"));
    EXPECT_TRUE(Executes(*access->Grant(kRoot), "kill-session"));
}

TEST_F(AccessTest, FirstRuleThatFitsDecides)
{
    const std::string commit = "<rpc-name>commit</rpc-name>";
    const auto access =
        Rules(Nacm(List(Rule(commit, "deny", "read") +
                            Rule("<module-name>switch-system</module-name>" + commit, "deny") +
                            Rule(commit, "permit", "exec") + Rule(commit, "deny"),
                        "noc") +
                   List(Rule("<rpc-name>*</rpc-name>", "deny"))));
    EXPECT_TRUE(Executes(*access->Grant(kAnn), "commit"));
    EXPECT_FALSE(Executes(*access->Grant(kAnn), "get"));
    EXPECT_FALSE(Executes(*access->Grant(kBob), "commit"));
    EXPECT_TRUE(Executes(*access->Grant(kBob), "close-session"));
    // "*" is every group: who is in none has the defaults.
    EXPECT_TRUE(Executes(*access->Grant(kLoner), "commit"));
}

TEST_F(AccessTest, RulesOfOtherKindsSayNothingOfOperations)
{
    const auto access =
        Rules(Nacm(List(Rule(Path("/"), "deny") + Rule("<notification-name>*</notification-name>", "deny"))));
    EXPECT_TRUE(Executes(*access->Grant(kBob), "commit"));
}

TEST_F(AccessTest, KillSessionIsOpenedByARule)
{
    const auto access = Rules(Nacm(List(Rule("<rpc-name>kill-session</rpc-name>", "permit"))));
    EXPECT_TRUE(Executes(*access->Grant(kBob), "kill-session"));
}

TEST_F(AccessTest, CanBeTurnedOff)
{
    const auto access = Rules(Nacm("<enable-nacm>false</enable-nacm><exec-default>deny</exec-default>"));
    const auto grant = access->Grant(kBob);
    EXPECT_TRUE(Executes(*grant, "kill-session") && grant->ReadsAll() && grant->WritesAll());
}

TEST_F(AccessTest, UnixGroupsCountUnlessTheFileSaysOtherwise)
{
    const std::string rules = List(Rule("<rpc-name>commit</rpc-name>", "deny"), "noc");
    EXPECT_FALSE(Executes(*Rules(Nacm(rules))->Grant(kAnn), "commit"));
    EXPECT_TRUE(
        Executes(*Rules(Nacm("<enable-external-groups>false</enable-external-groups>" + rules))->Grant(kAnn),
                 "commit"));
}

// ---- reading ----

using Keys = std::vector<std::string>;

TEST_F(AccessTest, ReadingHidesWhatARuleDenies)
{
    const auto access = Rules(Nacm(List(Rule(Path(kInterfacePath + "[s:name='eth1']"), "deny", "read"))));
    const auto grant = access->Grant(kBob);
    EXPECT_FALSE(grant->ReadsAll());
    EXPECT_EQ(grant->Reading(Node(kConfig), {}), Visibility::kPartly);
    EXPECT_EQ(grant->Reading(Node(kSflow), {}), Visibility::kPartly);
    EXPECT_EQ(grant->Reading(Node(kSflow + "/agent"), {}), Visibility::kWhole);
    EXPECT_EQ(grant->Reading(Node(kSflow + "/collector"), Keys{"eth1"}), Visibility::kWhole);
    EXPECT_EQ(grant->Reading(Node(kInterface), Keys{"eth1"}), Visibility::kHidden);
    EXPECT_EQ(grant->Reading(Node(kInterface + "/sampling-rate"), Keys{"eth1"}), Visibility::kHidden);
    EXPECT_EQ(grant->Reading(Node(kInterface), Keys{"eth2"}), Visibility::kWhole);
    EXPECT_TRUE(access->Grant(kRoot)->ReadsAll());
    EXPECT_TRUE(access->Grant(kLoner)->ReadsAll());
}

TEST_F(AccessTest, ReadingAsksForKeysAtEachLevel)
{
    const auto access =
        Rules(Nacm(List(Rule(Path(kInterfacePath + "/s:flow-sampling-collector[s:name='c1']"), "deny") +
                        Rule(Path(kInterfacePath + "[s:name='eth2']/s:flow-sampling-collector"), "deny"))));
    const auto grant = access->Grant(kBob);
    const lysc_node* reference = Node(kInterface + "/flow-sampling-collector");
    EXPECT_EQ(grant->Reading(Node(kInterface), Keys{"eth1"}), Visibility::kPartly);
    EXPECT_EQ(grant->Reading(reference, Keys({"eth1", "c1"})), Visibility::kHidden);
    EXPECT_EQ(grant->Reading(reference, Keys({"eth1", "c2"})), Visibility::kWhole);
    EXPECT_EQ(grant->Reading(reference, Keys({"eth2", "c2"})), Visibility::kHidden);
}

TEST_F(AccessTest, ReadingKnowsThatAPermissionBeforeADenialWins)
{
    const auto access = Rules(Nacm(
        List(Rule(Path(kInterfacePath + "[s:name='eth1']"), "permit") + Rule(Path(kInterfacePath), "deny"))));
    const auto grant = access->Grant(kBob);
    EXPECT_EQ(grant->Reading(Node(kInterface), Keys{"eth1"}), Visibility::kWhole);
    EXPECT_EQ(grant->Reading(Node(kInterface), Keys{"eth2"}), Visibility::kHidden);
    EXPECT_TRUE(
        Rules(Nacm(List(Rule("", "permit") + Rule(Path(kInterfacePath), "deny"))))->Grant(kBob)->ReadsAll());
}

TEST_F(AccessTest, ReadingGoesByModules)
{
    const auto access =
        Rules(Nacm(List(Rule("<module-name>switch-oam-sflow</module-name>", "deny", "read"))));
    const auto grant = access->Grant(kBob);
    EXPECT_EQ(grant->Reading(Node(kConfig), {}), Visibility::kPartly);
    EXPECT_EQ(grant->Reading(Node(kConfig + "/switch-oam-sflow:oam"), {}), Visibility::kHidden);
}

TEST_F(AccessTest, ReadDefaultDenyHidesAll)
{
    const auto access = Rules(Nacm("<read-default>deny</read-default>" +
                                   List(Rule("<module-name>switch-config</module-name>", "permit"))));
    const auto grant = access->Grant(kBob);
    EXPECT_EQ(grant->Reading(Node(kConfig), {}), Visibility::kPartly);
    EXPECT_EQ(grant->Reading(Node(kConfig + "/switch-oam-sflow:oam"), {}), Visibility::kHidden);
    EXPECT_EQ(grant->Reading(Node("/switch-state:state"), {}), Visibility::kHidden);
}

// ---- edits ----

agent::Tree Parse(const std::string& xml)
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
        EXPECT_TRUE(std::holds_alternative<cdb::ChangeSet>(done));
    }

    void Edit(const std::string& sflow)
    {
        const agent::Tree edit = Parse(Sflow(sflow));
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
    const agent::Tree existing = row.existing.empty() ? agent::Tree() : Parse(Sflow(row.existing));
    const agent::Tree edit = Parse(row.edit);
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
    const agent::Tree edit = Parse(Sflow(Interface("eth1")));
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
    const agent::Tree tree = Parse(Sflow(edit));
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
    const agent::Tree oam = Parse(
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

// ---- default-deny statements ----

TEST_F(AccessTest, StatementsOfModulesHold)
{
    std::ofstream(m_directory.Path() / "guarded.yang") << R"(module guarded {
        namespace "urn:guarded"; prefix g;
        import ietf-netconf-acm { prefix nacm; }
        container secret { nacm:default-deny-all; leaf key { type string; } }
        container open { leaf rate { nacm:default-deny-write; type string; } leaf free { type string; } }
        rpc reset { nacm:default-deny-all; } })";
    ly_ctx* raw = nullptr;
    ASSERT_EQ(ly_ctx_new(m_directory.Path().c_str(), 0, &raw), LY_SUCCESS);
    const std::unique_ptr<ly_ctx, decltype(&ly_ctx_destroy)> context(raw, &ly_ctx_destroy);
    ly_ctx_set_searchdir(raw, "/usr/share/yuma/modules/ietf");
    ASSERT_NE(ly_ctx_load_module(raw, "guarded", nullptr, nullptr), nullptr);
    const auto node = [raw](const char* path) { return lys_find_path(raw, nullptr, path, 0); };
    agent::AccessRules rules;
    rules.writeDefault = true;
    const auto source = std::make_shared<const AccessGrant::Source>(
        AccessGrant::Source{rules, agent::ProtectedNodes::Of(raw), 1});
    const AccessGrant bob(source, kBob, false);
    const AccessGrant root(source, kRoot, true);
    EXPECT_FALSE(bob.ReadsAll());
    EXPECT_FALSE(bob.WritesAll());
    EXPECT_EQ(bob.Reading(node("/guarded:secret"), {}), Visibility::kHidden);
    EXPECT_EQ(bob.Reading(node("/guarded:secret/key"), {}), Visibility::kHidden);
    EXPECT_NE(bob.Reading(node("/guarded:open/rate"), {}), Visibility::kHidden);
    EXPECT_EQ(bob.Look(agent::AccessOperation::kUpdate, node("/guarded:open/rate"), {}), Visibility::kHidden);
    EXPECT_NE(bob.Look(agent::AccessOperation::kUpdate, node("/guarded:open/free"), {}), Visibility::kHidden);
    EXPECT_FALSE(bob.MayExecute(node("/guarded:reset")));
    EXPECT_TRUE(root.ReadsAll() && root.WritesAll() && root.MayExecute(node("/guarded:reset")));
}

}  // namespace
}  // namespace agent_tests
