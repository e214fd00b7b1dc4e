// SPDX-License-Identifier: Apache-2.0
#include "cli/data.h"

#include <libyang/libyang.h>

#include <cstddef>
#include <cstdint>

#include "cli/error.h"
#include "cli/schema_words.h"

namespace cli {
namespace {

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

std::vector<const lyd_node*> NodesAt(const lyd_node* tree, const Place& place)
{
    std::vector<const lyd_node*> found;
    if (!place.steps.empty()) Collect(tree, place, 0, found);
    return found;
}

std::string ToJson(const lyd_node* tree) { return Print(tree, LYD_JSON, 0); }

std::string ToXml(const lyd_node* tree) { return Print(tree, LYD_XML, 0); }

std::string ToCompactXml(const lyd_node* tree) { return Print(tree, LYD_XML, LYD_PRINT_SHRINK); }

bool IsKeyNode(const lyd_node* node) { return node->schema && (node->schema->flags & LYS_KEY) != 0; }

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

}  // namespace cli
