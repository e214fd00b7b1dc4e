// SPDX-License-Identifier: Apache-2.0
// The YANG modules against data: every file in valid/ must be accepted, every x.json in invalid/ must
// be refused with each of the lines in x.txt. A file's name begins with what it is: config-, state-
// or request-. A new file is a new test as soon as the build is configured again.

#include <libyang/libyang.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cdb/schema/schema.h"

namespace {

namespace fs = std::filesystem;

const cdb::Schema& Schema()
{
    static const auto schema = cdb::Schema::Load(SFLOW_TEST_YANG_DIR);
    return *schema;
}

std::string Content(const fs::path& file)
{
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// The names, without their ending, of the JSON files in the folder.
std::vector<std::string> Names(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& file : fs::directory_iterator(fs::path(SFLOW_TEST_DATA_DIR) / folder))
        if (file.path().extension() == ".json") names.push_back(file.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

LY_ERR Parse(const std::string& name, const std::string& json)
{
    lyd_node* tree = nullptr;
    lyd_node* operation = nullptr;
    LY_ERR result = LY_EINVAL;
    if (name.starts_with("request-")) {
        ly_in* in = nullptr;
        ly_in_new_memory(json.c_str(), &in);
        result =
            lyd_parse_op(Schema().Context(), nullptr, in, LYD_JSON, LYD_TYPE_RPC_YANG, &tree, &operation);
        if (result == LY_SUCCESS) result = lyd_validate_op(tree, nullptr, LYD_TYPE_RPC_YANG, nullptr);
        ly_in_free(in, 0);
    } else {
        const bool config = name.starts_with("config-");
        const std::uint32_t parsing = LYD_PARSE_STRICT | (config ? LYD_PARSE_NO_STATE : 0U);
        const std::uint32_t validation = LYD_VALIDATE_PRESENT | (config ? LYD_VALIDATE_NO_STATE : 0U);
        result = lyd_parse_data_mem(Schema().Context(), json.c_str(), LYD_JSON, parsing, validation, &tree);
    }
    lyd_free_all(tree);
    return result;
}

/// What is wrong with the file; empty: nothing.
std::string Complaint(const std::string& folder, const std::string& name)
{
    const std::string json = Content(fs::path(SFLOW_TEST_DATA_DIR) / folder / (name + ".json"));
    ly_err_clean(Schema().Context(), nullptr);
    if (Parse(name, json) == LY_SUCCESS) return {};
    const ly_err_item* error = ly_err_last(Schema().Context());
    if (error == nullptr) return "no reason given";
    return std::string(error->msg) + (error->path != nullptr ? " at " + std::string(error->path) : "");
}

std::string TestName(const testing::TestParamInfo<std::string>& info)
{
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

class Valid : public testing::TestWithParam<std::string> {};

TEST_P(Valid, IsAccepted) { EXPECT_EQ(Complaint("valid", GetParam()), ""); }

INSTANTIATE_TEST_SUITE_P(Data, Valid, testing::ValuesIn(Names("valid")), TestName);

class Invalid : public testing::TestWithParam<std::string> {};

TEST_P(Invalid, IsRefusedWithItsText)
{
    const std::string complaint = Complaint("invalid", GetParam());
    ASSERT_NE(complaint, "") << "it was accepted";
    std::ifstream texts(fs::path(SFLOW_TEST_DATA_DIR) / "invalid" / (GetParam() + ".txt"));
    int count = 0;
    for (std::string text; std::getline(texts, text); ++count)
        EXPECT_NE(complaint.find(text), std::string::npos) << '"' << text << "\" is not in: " << complaint;
    EXPECT_GT(count, 0) << "no text is expected";
}

INSTANTIATE_TEST_SUITE_P(Data, Invalid, testing::ValuesIn(Names("invalid")), TestName);

// ---- every constraint has its case ----

/// All complaints about the invalid configurations.
std::vector<std::string> ConfigurationComplaints()
{
    std::vector<std::string> complaints;
    for (const auto& name : Names("invalid"))
        if (name.starts_with("config-")) complaints.push_back(Complaint("invalid", name));
    return complaints;
}

/// How many complaints are about a value of the leaf.
std::ptrdiff_t CountAbout(const std::vector<std::string>& complaints, const cdb::SchemaNode& leaf)
{
    // libyang names the leaf at the end of the path, or the entry and then the leaf in quotes.
    const std::string& parent = Schema().Table()[leaf.parent].name;
    const std::string inPath = parent + '/' + leaf.name;
    const std::string inEntry = '/' + parent + "[";
    return std::count_if(complaints.begin(), complaints.end(), [&](const std::string& complaint) {
        if (complaint.find(inPath) != std::string::npos) return true;
        const auto entry = complaint.find(inEntry);
        if (entry == std::string::npos) return false;
        return complaint.find("]/" + leaf.name, entry) != std::string::npos ||
               complaint.find('"' + leaf.name + '"') != std::string::npos;
    });
}

TEST(Coverage, EveryConfigurationLeafHasInvalidValues)
{
    const auto complaints = ConfigurationComplaints();
    for (const auto& node : Schema().Table().Nodes()) {
        if (node.kind != cdb::NodeKind::kLeaf) continue;
        const bool ranged = node.maximum != 0;
        EXPECT_GE(CountAbout(complaints, node), ranged ? 2 : 1) << Schema().Table().PathOf(node.id);
    }
}

TEST(Coverage, EveryListHasADuplicateEntry)
{
    const auto complaints = ConfigurationComplaints();
    for (const auto& node : Schema().Table().Nodes()) {
        if (node.kind != cdb::NodeKind::kList) continue;
        const std::string text = "Duplicate instance of \"" + node.name + '"';
        EXPECT_TRUE(std::any_of(complaints.begin(), complaints.end(), [&](const std::string& complaint) {
            return complaint.find(text) != std::string::npos;
        })) << node.name;
    }
}

TEST(Coverage, EveryLeafIsSetInAValidFile)
{
    std::set<const lysc_node*> seen;
    for (const auto& name : Names("valid")) {
        if (name.starts_with("request-")) continue;
        lyd_node* tree = nullptr;
        const std::string json = Content(fs::path(SFLOW_TEST_DATA_DIR) / "valid" / (name + ".json"));
        ASSERT_EQ(lyd_parse_data_mem(Schema().Context(), json.c_str(), LYD_JSON, LYD_PARSE_ONLY, 0, &tree),
                  LY_SUCCESS);
        lyd_node* root = tree;
        lyd_node* node = nullptr;
        LY_LIST_FOR(tree, root)
        {
            LYD_TREE_DFS_BEGIN(root, node)
            {
                seen.insert(node->schema);
                LYD_TREE_DFS_END(root, node);
            }
        }
        lyd_free_all(tree);
    }
    for (const auto& node : Schema().Table().Nodes())
        EXPECT_TRUE(seen.contains(Schema().NodeOf(node.id))) << Schema().Table().PathOf(node.id);
    const lys_module* state = ly_ctx_get_module_implemented(Schema().Context(), "switch-state");
    ASSERT_NE(state, nullptr);
    const lysc_node* node = nullptr;
    LYSC_TREE_DFS_BEGIN(state->compiled->data, node)
    {
        EXPECT_TRUE(seen.contains(node)) << node->name;
        LYSC_TREE_DFS_END(state->compiled->data, node);
    }
}

TEST(Modules, DescribeEveryNode)
{
    for (const auto& module : Schema().Modules()) {
        if (!module.name.starts_with("switch-")) continue;
        const lys_module* compiled = ly_ctx_get_module_implemented(Schema().Context(), module.name.c_str());
        ASSERT_NE(compiled, nullptr);
        EXPECT_NE(compiled->dsc, nullptr) << module.name;
    }
    for (const auto& node : Schema().Table().Nodes()) {
        const lysc_node* compiled = Schema().NodeOf(node.id);
        ASSERT_NE(compiled->dsc, nullptr) << Schema().Table().PathOf(node.id);
        EXPECT_EQ(compiled->dsc[std::char_traits<char>::length(compiled->dsc) - 1], '.') << node.name;
    }
}

}  // namespace
