// SPDX-License-Identifier: Apache-2.0
#include "cli/data/data_tree.h"

#include <libyang/libyang.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "cli/data/config_lines.h"
#include "cli/data/edit_xml.h"
#include "cli/data/error.h"
#include "cli/data/schema_words.h"
#include "guard/data_file.h"
#include "guard/schema_index.h"
#include "netconf/client.h"
#include "netconf/names.h"
#include "netconf/xml.h"

namespace cli {
namespace {

/// The last complaint of libyang, with the data's path if it has one.
std::string LastMessage(const ly_ctx* yang)
{
    const ly_err_item* last = ly_err_first(yang);
    last = last ? last->prev : nullptr;  // the first one's predecessor is the last one
    if (!last) return "no reason given";
    std::string text = last->msg ? last->msg : "";
    const std::string_view path = last->path ? last->path : "";
    const std::size_t open = path.find('"');
    const std::size_t close = path.rfind('"');
    if (open != std::string_view::npos && close > open)
        text +=
            (text.ends_with('.') ? " At " : ", at ") + std::string(path.substr(open + 1, close - open - 1));
    return text;
}

constexpr std::string_view kWhitespace = " \t\r\n";

/// The whole file. Throws Error.
/// "NAME: line 3, column 7", for the byte at `offset`.
std::string PlaceInText(std::string_view name, std::string_view text, std::size_t offset)
{
    return std::string(name) + ": " + netconf::PlaceInText(text, offset);
}

guard::Format FormatOf(std::string_view text, std::string_view name)
{
    if (const auto format = guard::FormatOf(text)) return *format;
    const std::size_t first = text.find_first_not_of(kWhitespace);
    if (first == std::string_view::npos) throw Error(std::string(name) + " is empty: line 1, column 1");
    throw Error(PlaceInText(name, text, first) +
                ": neither JSON, which begins with {, nor XML, which begins with <");
}

/// Throws Error that names the line and column where the parser stopped.
Tree ParseFile(const ly_ctx* yang, const std::string& text, LYD_FORMAT format, std::string_view name)
{
    ly_in* rawInput = nullptr;
    if (ly_in_new_memory(text.c_str(), &rawInput) != LY_SUCCESS) throw Error("out of memory");
    const cdb::Owned<ly_in> input(rawInput);
    lyd_node* tree = nullptr;
    ly_err_clean(const_cast<ly_ctx*>(yang), nullptr);
    const LY_ERR result = lyd_parse_data(yang, nullptr, input.get(), format,
                                         LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &tree);
    Tree owner(tree);
    if (result != LY_SUCCESS)
        throw Error(PlaceInText(name, text, ly_in_parsed(input.get())) + ": " + LastMessage(yang));
    return owner;
}

std::string Print(const lyd_node* tree, LYD_FORMAT format, std::uint32_t options)
{
    char* text = nullptr;
    if (lyd_print_mem(&text, tree, format, options | LYD_PRINT_WITHSIBLINGS) != LY_SUCCESS)
        throw Error("the data can't be printed: out of memory");
    return cdb::TakeText(text);
}

bool IsInstance(const lyd_node* node, const Step& step)
{
    if (node->schema != step.schema) return false;
    const lyd_node* key = lyd_child(node);
    for (const std::string& wanted : step.keys) {
        if (!key || wanted != lyd_get_value(key)) return false;
        key = key->next;
    }
    return true;
}

void Collect(const lyd_node* siblings, const Place& place, std::size_t depth,
             std::vector<const lyd_node*>& found)
{
    for (const lyd_node* node = siblings; node; node = node->next) {
        if (!IsInstance(node, place.steps[depth])) continue;
        if (depth + 1 == place.steps.size())
            found.push_back(node);
        else
            Collect(lyd_child(node), place, depth + 1, found);
    }
}

/// Whether a default is left below the node, or it is one; which is a value like others then.
bool TakeDefaults(lyd_node* node)
{
    bool has = false;
    if (node->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) {
        has = (node->flags & LYD_DEFAULT) != 0;
        node->flags &= ~static_cast<std::uint32_t>(LYD_DEFAULT);
        return has;
    }
    for (lyd_node *child = lyd_child_no_keys(node), *next = nullptr; child; child = next) {
        next = child->next;
        if (TakeDefaults(child))
            has = true;
        else
            lyd_free_tree(child);
    }
    return has;
}

void MarkReplaced(const ly_ctx* yang, lyd_node* node)
{
    const lys_module* netconf = ly_ctx_get_module_implemented(yang, "ietf-netconf");
    if (!netconf || lyd_new_meta(yang, node, netconf, "operation", "replace", 0, nullptr) != LY_SUCCESS)
        throw Error("the edit can't be marked as a replacement: " + LastMessage(yang));
}

}  // namespace

Tree ParseReply(const ly_ctx* yang, const std::string& xml)
{
    lyd_node* tree = nullptr;
    const LY_ERR result =
        lyd_parse_data_mem(yang, xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &tree);
    Tree owner(tree);
    if (result != LY_SUCCESS)
        throw Error("the reply does not fit the YANG modules here (" + LastMessage(yang) +
                    "); use the modules of the database: SFLOW_YANG_DIR names their directory");
    return owner;
}

Tree ParseTagged(const ly_ctx* yang, std::string xml)
{
    // Only the envelope around the data declares the attribute's prefix; libyang knows the attribute by its
    // module's namespace.
    const std::size_t nameEnd = xml.find_first_of(" />");
    if (nameEnd != std::string::npos)
        xml.insert(nameEnd, " xmlns:wd=\"" + std::string(netconf::kWithDefaultsNamespace) + "\"");
    return ParseReply(yang, xml);
}

Tree ParseOutput(const ly_ctx* yang, const netconf::Reply& reply, const std::string& operation)
{
    lyd_node* raw = nullptr;
    const std::string path = "/switch-system:" + operation;
    if (lyd_new_path(nullptr, yang, path.c_str(), nullptr, 0, &raw) != LY_SUCCESS)
        throw Error("the YANG modules here have no operation " + operation + ": " + LastMessage(yang));
    Tree tree(raw);
    if (reply.output.empty()) return tree;  // libyang takes no reply without content
    ly_in* rawInput = nullptr;
    if (ly_in_new_memory(reply.xml.c_str(), &rawInput) != LY_SUCCESS) throw Error("out of memory");
    const cdb::Owned<ly_in> input(rawInput);
    lyd_node* envelope = nullptr;
    const LY_ERR result =
        lyd_parse_op(yang, tree.get(), input.get(), LYD_XML, LYD_TYPE_REPLY_NETCONF, &envelope, nullptr);
    const Tree owned(envelope);
    if (result != LY_SUCCESS)
        throw Error("the answer does not fit the YANG modules here: " + LastMessage(yang));
    return tree;
}

Tree ReadConfigFile(const ly_ctx* yang, const std::string& path)
{
    return ParseConfigText(yang, FileContent(path), NameOfInput(path));
}

bool IsStandardInput(std::string_view path) { return path == "-" || path == "terminal"; }

std::string NameOfInput(const std::string& path) { return IsStandardInput(path) ? "standard input" : path; }

Tree ParseConfigText(const ly_ctx* yang, const std::string& text, std::string_view name)
{
    if (IsLines(text)) {
        ReadLines read = ReadConfigLines(yang, text, name);
        if (read.deletes) throw Error(std::string(name) + " has delete; use load set");
        return ParseFile(yang, read.xml, LYD_XML, name);
    }
    const guard::Format format = FormatOf(text, name);
    const guard::SchemaIndex index(yang);
    if (const auto problem = guard::CheckFile(index, text, format))
        throw Error(PlaceInText(name, text, problem->offset) + ": " + problem->text);
    const bool isXml = format == guard::Format::kXml;
    return ParseFile(yang, isXml ? netconf::PlainXml(text) : text, isXml ? LYD_XML : LYD_JSON, name);
}

std::string FileContent(const std::string& path)
{
    const auto refuse = [&](const std::string& why) { return Error("can't read " + path + ": " + why); };
    const bool isInput = IsStandardInput(path);
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(
        isInput ? ::fdopen(::dup(STDIN_FILENO), "rb") : std::fopen(path.c_str(), "rbe"), &std::fclose);
    if (!file) throw refuse(std::strerror(errno));
    std::string text;
    char block[std::size_t{64} << 10];
    while (const std::size_t count = std::fread(block, 1, sizeof block, file.get())) {
        text.append(block, count);
        if (text.size() > netconf::kMaxMessage)
            throw refuse("it is larger than " + std::to_string(netconf::kMaxMessage >> 20) +
                         " MiB; split it and use load merge");
    }
    if (std::ferror(file.get())) throw refuse(std::strerror(errno));
    return text;
}

std::vector<const lyd_node*> NodesAt(const lyd_node* tree, const Place& place)
{
    std::vector<const lyd_node*> found;
    if (!place.steps.empty()) Collect(tree, place, 0, found);
    return found;
}

std::size_t ValueCount(const lyd_node* tree)
{
    std::size_t count = 0;
    for (const lyd_node* root = tree; root != nullptr; root = root->next) {
        const lyd_node* node = nullptr;
        LYD_TREE_DFS_BEGIN(root, node)
        {
            if (node->schema && (node->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST))) ++count;
            LYD_TREE_DFS_END(root, node);
        }
    }
    return count;
}

void KeepDefaults(lyd_node* tree)
{
    // The nodes at the top stay, for the tree is known by its first.
    for (lyd_node* node = tree; node; node = node->next) TakeDefaults(node);
}

std::string ToJson(const lyd_node* tree) { return Print(tree, LYD_JSON, 0); }

std::string ToXml(const lyd_node* tree) { return Print(tree, LYD_XML, 0); }

std::string ToCompactXml(const lyd_node* tree) { return Print(tree, LYD_XML, LYD_PRINT_SHRINK); }

std::string ReplaceXml(const ly_ctx* yang, lyd_node* tree)
{
    const lysc_node* root = RootContainer(yang);
    bool hasRoot = false;
    for (lyd_node* node = tree; node; node = node->next) {
        hasRoot = hasRoot || node->schema == root;
        MarkReplaced(yang, node);
    }
    std::string xml = tree ? ToCompactXml(tree) : "";
    if (!hasRoot) xml += OperationXml(Place{{{root, {}}}, {}}, Operation::kReplace);
    return xml;
}

}  // namespace cli
