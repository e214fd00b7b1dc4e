// SPDX-License-Identifier: Apache-2.0
// The modules as they are compiled, and what is said of modules that can't be used.

#include <algorithm>
#include <fstream>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cdb/sample.h"
#include "cdb/temp_directory.h"

namespace {

namespace fs = std::filesystem;

using cdb::kNoNode;
using cdb::NodeKind;
using cdb::Value;
using cdb::ValueType;
using sample::Node;
using sample::Table;
using testing::HasSubstr;

/// What matters of a leaf, in one line.
std::string NodeLine(const cdb::SchemaNode& node)
{
    std::string line = node.name + ' ' + std::to_string(node.tag) + ' ' + cdb::TypeName(node.type);
    if (node.maximum != 0) line += ' ' + std::to_string(node.minimum) + ".." + std::to_string(node.maximum);
    if (node.isKey) line += " key";
    if (node.mandatory) line += " mandatory";
    if (cdb::TypeOf(node.defaultValue) != ValueType::kNone)
        line += " default " + cdb::ToText(node.defaultValue);
    if (node.defaultRef != kNoNode) line += " like " + Table()[node.defaultRef].name;
    return line;
}

std::vector<std::string> LeafLines(const std::string& path)
{
    std::vector<std::string> lines;
    for (const auto leaf : Table().LeavesOf(Node(path))) lines.push_back(NodeLine(Table()[leaf]));
    return lines;
}

TEST(Schema, DescribesACollector)
{
    EXPECT_EQ(LeafLines(sample::kCollector),
              (std::vector<std::string>{"name 412039858 string key", "enabled 197426095 boolean default true",
                                        "ip 268057062 ipv4-address mandatory",
                                        "datagram-size 10387472 uint16 200..9000 default 1400",
                                        "port 254454410 uint16 1..65535 default 6343"}));
}

TEST(Schema, DescribesAnInterface)
{
    EXPECT_EQ(LeafLines(sample::kInterface),
              (std::vector<std::string>{
                  "name 412039858 string key",
                  "sampling-rate 110935930 uint32 1..16777215 like default-sampling-rate",
                  "default-sampling-rate 1296804175 uint32 0..4294967295 default 4096",
                  "max-header-size 228099567 uint16 16..512 default 128",
                  "polling-interval 875618961 uint16 0..3600 default 20",
              }));
    EXPECT_EQ(LeafLines(sample::kFlow), std::vector<std::string>{"name 412039858 string key"});
    EXPECT_EQ(LeafLines(sample::kInterface + "/counter-sampling-collector"),
              std::vector<std::string>{"name 412039858 string key"});
}

TEST(Schema, DescribesTheAddresses)
{
    EXPECT_EQ(LeafLines("/config/oam/sflow/agent"), std::vector<std::string>{"ipv4 1643785435 ipv4-address"});
    EXPECT_EQ(LeafLines("/config/interface/mgmt/ipv4/address"),
              std::vector<std::string>{"ip 268057062 ipv4-address-and-prefix-length"});
}

TEST(Schema, DescribesTheManagersOwnSettings)
{
    EXPECT_EQ(LeafLines("/config/oam/sflow-manager"),
              (std::vector<std::string>{"sub-agent 1231287582 uint32 0..4294967295 default 0",
                                        "direction 1408137880 string",
                                        "discard-limit 276479621 uint32 0..10000 default 100",
                                        "discard-interfaces 1720654938 string default configured"}));
    EXPECT_EQ(LeafLines("/config/oam/sflow-manager/collector"),
              (std::vector<std::string>{"name 412039858 string key", "source-address 475081142 ipv4-address",
                                        "dscp 703279436 uint16 0..63 default 0", "device 848462418 string",
                                        "discards 1795073217 boolean default false"}));
    EXPECT_EQ(Table()[Node("/config/oam/sflow-manager")].ns, 824796810U);
}

TEST(Schema, OrdersSiblingsAsTheModulesDo)
{
    std::vector<std::string> paths;
    for (const auto& node : Table().Nodes())
        if (node.kind != NodeKind::kLeaf) paths.push_back(Table().PathOf(node.id));
    EXPECT_EQ(paths, (std::vector<std::string>{
                         "/config", "/config/interface", "/config/interface/mgmt",
                         "/config/interface/mgmt/ipv4", "/config/interface/mgmt/ipv4/address", "/config/oam",
                         "/config/oam/sflow", "/config/oam/sflow/agent", "/config/oam/sflow/collector",
                         "/config/oam/sflow/interface", "/config/oam/sflow/interface/flow-sampling-collector",
                         "/config/oam/sflow/interface/counter-sampling-collector",
                         "/config/oam/sflow-manager", "/config/oam/sflow-manager/collector"}));
}

TEST(Schema, GivesListsTheirTagsNamespacesAndCallpoint)
{
    const auto& interface = Table()[Node(sample::kInterface)];
    EXPECT_EQ(interface.kind, NodeKind::kList);
    EXPECT_EQ(interface.tag, 221572658U);
    EXPECT_EQ(interface.ns, 116992694U);
    EXPECT_EQ(interface.module, "switch-oam-sflow");
    EXPECT_EQ(interface.callpoint, "sflow-set-sampling-rate");
    EXPECT_EQ(Table()[Node(sample::kCollector)].tag, 1045927289U);
    EXPECT_EQ(Table()[Node(sample::kCollector)].callpoint, "");
    EXPECT_EQ(Table()[Node(sample::kFlow)].tag, 180728652U);
    EXPECT_EQ(Table()[Node(sample::kInterface + "/counter-sampling-collector")].tag, 1381769666U);
    EXPECT_EQ(Table()[Node(sample::kMgmt)].ns, 328607681U);
}

TEST(Schema, HasOnlyPlainContainers)
{
    for (const auto& node : Table().Nodes()) EXPECT_NE(node.kind, NodeKind::kPresenceContainer) << node.name;
}

TEST(Schema, LeadsFromCompiledNodesToRowsAndBack)
{
    for (const auto& node : Table().Nodes()) {
        const auto* compiled = sample::Schema().NodeOf(node.id);
        ASSERT_NE(compiled, nullptr);
        EXPECT_EQ(sample::Schema().IdOf(compiled), node.id);
    }
    EXPECT_EQ(sample::Schema().IdOf(nullptr), kNoNode);
    EXPECT_EQ(sample::Schema().NodeOf(kNoNode), nullptr);
}

TEST(Schema, ListsTheModulesInUse)
{
    std::vector<std::string> names;
    for (const auto& module : sample::Schema().Modules()) {
        names.push_back(module.name);
        if (module.name.starts_with("switch-")) {
            EXPECT_EQ(module.ns, "urn:switch:yang:" + module.name);
            EXPECT_EQ(module.revision, "2026-11-21");
        }
    }
    EXPECT_THAT(
        names, testing::IsSupersetOf({"ietf-netconf", "ietf-netconf-monitoring", "ietf-netconf-with-defaults",
                                      "ietf-yang-library", "notifications", "nc-notifications",
                                      "ietf-netconf-notifications", "switch-config", "switch-interfaces",
                                      "switch-oam-sflow", "switch-state", "switch-system"}));
}

// ---- modules that can't be used ----

/// The complaint about a directory with our extensions and types and a module of the given content.
std::string ComplaintOfModule(const std::string& moduleStatements, const std::string& body)
{
    const TempDirectory directory;
    for (const char* name : {"switch-extensions.yang", "switch-types.yang"})
        fs::copy_file(fs::path(SFLOW_TEST_YANG_DIR) / name, directory.Path() / name);
    std::ofstream(directory.Path() / "broken.yang")
        << "module broken {\n  yang-version 1.1;\n  namespace \"urn:broken\";\n  prefix b;\n"
        << "  import switch-extensions { prefix sx; }\n"
        << moduleStatements << '\n'
        << body << "\n}\n";
    try {
        cdb::Schema::Load(directory.Path());
    } catch (const cdb::FatalError& error) {
        return error.what();
    }
    return "none";
}

const std::string kHash = "  sx:namespace-hash 5;";

struct BadNode {
    const char* name;
    std::string body;
    std::string complaint;
};

TEST(Schema, RefusesANodeThatTheDatabaseCannotHold)
{
    const std::vector<BadNode> table = {
        {"no tag", "leaf a { type string; }", "has no tag statement"},
        {"a tag that is no number", "leaf a { type string; sx:tag x; }", "has the tag x, which is no number"},
        {"the tag 0", "leaf a { type string; sx:tag 0; }", "has the tag 0, which is no number from 1"},
        {"a tag too large", "leaf a { type string; sx:tag 4294967296; }",
         "has the tag 4294967296, which is no number"},
        {"one tag for two names", "leaf a { type string; sx:tag 1; } leaf b { type string; sx:tag 1; }",
         "has the tag 1, which belongs to a"},
        {"two tags for one name",
         "leaf a { type string; sx:tag 1; } container c { sx:tag 2; leaf a { type string; sx:tag 3; } }",
         "has the tag 3; elsewhere that name has 1"},
        {"an unfit type", "leaf a { type int8; sx:tag 1; }", "has a type that a value can't hold"},
        {"an unfit kind", "leaf-list a { type string; sx:tag 1; }", "is a leaf-list, which can't be stored"},
        {"a user's order", "list a { key k; ordered-by user; sx:tag 1; leaf k { type string; sx:tag 2; } }",
         "is a list ordered by the user"},
        {"an unknown value type", "leaf a { type string; sx:tag 1; sx:value-type mac; }",
         "has the value-type mac, which is not known"},
        {"a callpoint on a leaf", "leaf a { type string; sx:tag 1; sx:callpoint c; }",
         "has a callpoint, which only a list can have"},
        {"a default-ref and a default",
         "leaf a { type uint32; default 1; sx:tag 1; sx:default-ref ../b; } leaf b { type uint32; sx:tag 2; "
         "}",
         "has the default-ref ../b, which does not go with a default"},
        {"a default-ref to nothing", "leaf a { type uint32; sx:tag 1; sx:default-ref ../b; }",
         "has the default-ref ../b, which names no sibling"},
        {"a default-ref elsewhere", "leaf a { type uint32; sx:tag 1; sx:default-ref /b; }",
         "has the default-ref /b, which does not begin with ../"},
        {"a default-ref to another type",
         "leaf a { type uint32; sx:tag 1; sx:default-ref ../b; } leaf b { type uint16; sx:tag 2; }",
         "has the default-ref ../b, which names no leaf of the same type"},
        {"a default-ref in a circle",
         "leaf a { type uint32; sx:tag 1; sx:default-ref ../b; }"
         "leaf b { type uint32; sx:tag 2; sx:default-ref ../a; }",
         "which names a leaf that has a default-ref itself"},
        {"a default-ref on a container", "container a { sx:tag 1; sx:default-ref ../b; }",
         "has the default-ref ../b, which only a leaf can have"},
    };
    for (const auto& row : table) {
        const std::string complaint = ComplaintOfModule(kHash, row.body);
        EXPECT_THAT(complaint, HasSubstr("YANG module broken: node /broken:")) << row.name;
        EXPECT_THAT(complaint, HasSubstr(row.complaint)) << row.name;
    }
}

TEST(Schema, RefusesAModuleWithoutAUsableNamespaceHash)
{
    const std::string leaf = "leaf a { type string; sx:tag 1; }";
    EXPECT_THAT(ComplaintOfModule("", leaf),
                HasSubstr("belongs to a module without a namespace-hash statement"));
    EXPECT_THAT(ComplaintOfModule("  sx:namespace-hash 2147483648;", leaf),
                HasSubstr("which is no number from 1 to"));
    EXPECT_EQ(ComplaintOfModule(kHash, leaf), "none");
}

TEST(Schema, DoesNotMindWhatIsNoConfiguration)
{
    EXPECT_EQ(ComplaintOfModule("", "leaf-list a { config false; type int8; } rpc r;"), "none");
}

TEST(Schema, NamesTheModuleAndTheLineOfASyntaxError)
{
    const std::string complaint = ComplaintOfModule(kHash, "  leaf a {\n    typ string;\n  }");
    EXPECT_THAT(complaint, HasSubstr("the YANG module broken can't be loaded"));
    EXPECT_THAT(complaint, HasSubstr("typ"));
    EXPECT_THAT(complaint, HasSubstr("(Line number 8.)"));
}

TEST(Schema, NamesAModuleThatIsMissing)
{
    const TempDirectory directory;
    fs::copy_file(fs::path(SFLOW_TEST_YANG_DIR) / "switch-config.yang",
                  directory.Path() / "switch-config.yang");
    try {
        cdb::Schema::Load(directory.Path());
        FAIL();
    } catch (const cdb::FatalError& error) {
        EXPECT_THAT(error.what(), HasSubstr("the YANG module switch-config can't be loaded"));
        EXPECT_THAT(error.what(), HasSubstr("switch-extensions"));
    }
}

TEST(Schema, NamesADirectoryThatHasNoModules)
{
    const TempDirectory directory;
    EXPECT_THROW(
        {
            try {
                cdb::Schema::Load(directory.Path());
            } catch (const cdb::FatalError& error) {
                EXPECT_EQ(error.what(), "there are no YANG modules in " + directory.Path().string());
                throw;
            }
        },
        cdb::FatalError);
    const auto missing = directory.Path() / "missing";
    try {
        cdb::Schema::Load(missing);
        FAIL();
    } catch (const cdb::FatalError& error) {
        EXPECT_THAT(error.what(), HasSubstr(missing.string()));
    }
}

/// A copy of the tree's modules with a text in one of them replaced.
std::string FingerprintOfCopy(const fs::path& directory, const std::string& module = {},
                              const std::string& from = {}, const std::string& to = {})
{
    for (const auto& file : fs::directory_iterator(SFLOW_TEST_YANG_DIR)) {
        std::ifstream in(file.path());
        std::string text{std::istreambuf_iterator<char>(in), {}};
        if (file.path().filename() == module) text.replace(text.find(from), from.size(), to);
        std::ofstream(directory / file.path().filename()) << text;
    }
    return cdb::Schema::Load(directory)->Fingerprint();
}

TEST(Schema, HasAFingerprintOfTheModulesTexts)
{
    const std::string own = sample::Schema().Fingerprint();
    EXPECT_EQ(own.size(), 32U);
    const TempDirectory same;
    EXPECT_EQ(FingerprintOfCopy(same.Path()), own);  // wherever the modules lie
    const TempDirectory other;
    const auto changed = FingerprintOfCopy(other.Path(), "switch-oam-sflow.yang", "1..65535", "1..65534");
    EXPECT_NE(changed, own);  // of the same revision
    const TempDirectory third;
    std::ofstream(third.Path() / "extra.yang") << "module extra { namespace \"urn:extra\"; prefix e; }";
    EXPECT_NE(FingerprintOfCopy(third.Path()), own);
}

}  // namespace
