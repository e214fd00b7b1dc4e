// SPDX-License-Identifier: Apache-2.0
// Access control: files of rules, and what they mean for operations and for reading.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "agent/access/access_world.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;

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

TEST_F(AccessTest, FileMayHaveCommentsAndSectionsInsideOfValues)
{
    const auto access = Rules(
        Nacm("<!-- rules --><groups><group><name>n<!-- of the night -->oc</name>"
             "<user-name><![CDATA[bob]]></user-name></group></groups>" +
             List(Rule("<module-name>ietf-netconf</module-name><rpc-name>com<?x?>mit</rpc-name>", "deny"),
                  "noc")));
    EXPECT_FALSE(Executes(*access->Grant(kBob), "commit"));
    EXPECT_TRUE(Executes(*access->Grant(kLoner), "commit"));
    // Lines are counted as they stand in the file.
    EXPECT_THAT(
        Problem(Nacm("<!--\n\n--><rule-list><name>l</name>\n<rule><name>r</name><action>maybe</action>"
                     "</rule></rule-list>")),
        HasSubstr("line 4: "));
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
    // "*" is every group: a user in none has the defaults.
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
