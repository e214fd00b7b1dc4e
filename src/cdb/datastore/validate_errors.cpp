// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/validate_errors.h"

#include <libyang/libyang.h>

#include <string_view>

#include "cdb/datastore/tree.h"

namespace cdb {
namespace {

constexpr std::string_view kDataLocation = "Data location \"";
constexpr std::string_view kSchemaLocation = "Schema location \"";

/// The text between the quotes after `words`; empty if there is none.
std::string Location(const ly_err_item& item, std::string_view words)
{
    const std::string_view path = item.path != nullptr ? item.path : "";
    const auto start = path.find(words);
    if (start == std::string_view::npos) return {};
    // Keys in a data path may contain any quotes; the path's closing quote is followed by one of these.
    auto end = path.find("\", ", start + words.size());
    if (end == std::string_view::npos) end = path.rfind("\".");
    if (end == std::string_view::npos || end < start + words.size()) return {};
    return std::string(path.substr(start + words.size(), end - start - words.size()));
}

/// The first instance of `parent` below `node` (itself included) without a child of that schema.
const lyd_node* WithoutChild(const lyd_node* node, const lysc_node* parent, const lysc_node* child)
{
    if (node->schema == parent) return FindSingle(lyd_child(node), child) == nullptr ? node : nullptr;
    for (const lyd_node* below = lyd_child(node); below != nullptr; below = below->next)
        if (const lyd_node* found = WithoutChild(below, parent, child); found != nullptr) return found;
    return nullptr;
}

Error MissingNode(const Schema& schema, const ly_err_item& item, const lyd_node* tree)
{
    Error error;
    error.tag = ErrorTag::kMissingElement;
    error.message = item.msg;
    const std::string location = Location(item, kSchemaLocation);
    const lysc_node* node = lys_find_path(schema.Context(), nullptr, location.c_str(), 0);
    if (node == nullptr) return error;
    error.info = {{"bad-element", node->name}};
    const lyd_node* holder = WithoutChild(tree, node->parent, node);
    if (holder == nullptr) return error;
    error.path = DataPath(holder);
    error.message = Describe(holder) + " needs \"" + node->name + "\"; set it";
    return error;
}

}  // namespace

Error ValidationError(const Schema& schema, const lyd_node* tree)
{
    const ly_err_item* last = ly_err_last(schema.Context());
    Error error;
    error.message = "the configuration is not valid";
    if (last == nullptr || last->msg == nullptr) return error;
    // Copies, since further calls of libyang replace its texts.
    const std::string message = last->msg;
    const std::string path = last->path != nullptr ? last->path : "";
    const std::string appTag = last->apptag != nullptr ? last->apptag : "";
    ly_err_item item = *last;
    item.msg = const_cast<char*>(message.c_str());
    item.path = const_cast<char*>(path.c_str());

    if (appTag == "instance-required") error.tag = ErrorTag::kDataMissing;
    if (message.starts_with("Mandatory node")) return MissingNode(schema, item, tree);
    error.message = message;
    error.path = Location(item, kDataLocation);
    error.appTag = appTag;
    if (appTag == "missing-choice") error.tag = ErrorTag::kDataMissing;
    return error;
}

}  // namespace cdb
