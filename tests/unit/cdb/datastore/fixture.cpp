// SPDX-License-Identifier: Apache-2.0
#include "fixture.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "cdb/datastore/tree_load.h"
#include "cdb/model/path.h"

namespace tests {
namespace {

void ShowBelow(const lyd_node* first, const std::string& indent, std::string& text);

std::string ShowOne(const lyd_node* node, const std::string& indent)
{
    std::string text;
    if (node->schema->nodetype == LYS_LEAF)
        return cdb::IsExplicit(node) ? indent + LYD_NAME(node) + ' ' + lyd_get_value(node) + '\n' : "";
    ShowBelow(lyd_child(node), indent + "  ", text);
    if (node->schema->nodetype == LYS_CONTAINER && text.empty()) return "";
    std::string keys;
    for (const auto& key : cdb::KeysOf(node)) keys += ' ' + key;
    return indent + LYD_NAME(node) + keys + '\n' + text;
}

void ShowBelow(const lyd_node* first, const std::string& indent, std::string& text)
{
    std::vector<std::string> parts;
    for (const lyd_node* node = first; node != nullptr; node = node->next)
        parts.push_back(ShowOne(node, indent));
    std::sort(parts.begin(), parts.end());
    for (const auto& part : parts) text += part;
}

void AddLines(const cdb::ChangeNode& node, cdb::RowKey above, std::vector<std::string>& lines)
{
    static const char* const kNames[] = {"", "created ", "deleted ", "modified ", "set "};
    above.node = node.node;
    above.keys.insert(above.keys.end(), node.keys.begin(), node.keys.end());
    if (node.op != cdb::ChangeOp::kNone)
        lines.push_back(kNames[static_cast<int>(node.op)] + cdb::TextOf(TheSchema().Table(), above) +
                        (node.op == cdb::ChangeOp::kValueSet ? " = " + cdb::ToText(node.value) : ""));
    for (const auto& child : node.children) AddLines(child, above, lines);
}

}  // namespace

const cdb::Schema& TheSchema()
{
    static const auto schema = cdb::Schema::Load(SFLOW_TEST_YANG_DIR);
    return *schema;
}

TempDirectory::TempDirectory()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "datastore-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory: " + pattern);
    m_path = pattern;
}

TempDirectory::~TempDirectory()
{
    std::error_code ignored;  // what is left behind is in the system's temporary folder
    std::filesystem::remove_all(m_path, ignored);
}

cdb::TreePtr ParseEdit(const std::string& xml, const cdb::Schema& schema)
{
    lyd_node* tree = nullptr;
    const auto result =
        lyd_parse_data_mem(schema.Context(), xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &tree);
    EXPECT_EQ(result, LY_SUCCESS) << xml << '\n' << cdb::LastMessage(schema.Context());
    return cdb::TreePtr(tree);
}

std::string Config(const std::string& inner, const std::string& attributes)
{
    return "<config xmlns=\"urn:switch:yang:switch-config\" "
           "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" " +
           attributes + ">" + inner + "</config>";
}

std::string Sflow(const std::string& inner)
{
    return Config("<oam xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow>" + inner + "</sflow></oam>");
}

std::string Shown(const lyd_node* tree)
{
    std::string text;
    ShowBelow(tree, "", text);
    return text;
}

std::vector<std::string> Lines(const cdb::ChangeSet& changes)
{
    std::vector<std::string> lines;
    AddLines(changes.root, {}, lines);
    return lines;
}

void DatastoreTest::Open(const cdb::StoreOptions& options)
{
    datastore.reset();
    store.reset();
    store = cdb::Store::Open(directory.Path() / "store", options);
    datastore = std::make_unique<cdb::Datastore>(TheSchema(), *store);
}

std::optional<cdb::Error> DatastoreTest::TryEdit(const std::string& xml, cdb::DefaultOperation operation,
                                                 const std::vector<cdb::LeafWrite>& writes)
{
    const auto edit = ParseEdit(xml);
    return datastore->Edit(edit.get(), operation, writes);
}

void DatastoreTest::Edit(const std::string& xml, cdb::DefaultOperation operation,
                         const std::vector<cdb::LeafWrite>& writes)
{
    const auto error = TryEdit(xml, operation, writes);
    ASSERT_FALSE(error) << error->message;
}

cdb::TreePtr DatastoreTest::RunningTree() const { return cdb::LoadTree(TheSchema(), *datastore->Running()); }

cdb::TreePtr DatastoreTest::CandidateTree() const
{
    return cdb::LoadTree(TheSchema(), *datastore->Candidate());
}

cdb::ChangeSet DatastoreTest::Commit()
{
    auto result = datastore->Commit({"tester", "test", "", 1});
    if (result) return std::move(result->changes);
    ADD_FAILURE() << result.error().front().message;
    return {};
}

std::vector<std::string> DatastoreTest::Apply(const std::string& xml, cdb::DefaultOperation operation)
{
    Edit(xml, operation);
    return Lines(Commit());
}

cdb::LeafWrite DatastoreTest::DefaultRate(const std::string& interface, std::uint32_t rate) const
{
    const auto path = cdb::ParsePath(TheSchema().Table(),
                                     "/config/oam/sflow/interface{" + interface + "}/default-sampling-rate");
    return {path.value(), cdb::Value(rate)};
}

std::vector<std::string> DatastoreTest::Planned(const std::string& xml, cdb::DefaultOperation operation) const
{
    std::vector<std::string> texts;
    const auto edit = ParseEdit(xml);
    for (const auto& entry : datastore->EntriesToCreate(edit.get(), operation))
        texts.push_back(entry.callpoint + ' ' + cdb::ToText(TheSchema().Table(), entry.path));
    return texts;
}

}  // namespace tests
