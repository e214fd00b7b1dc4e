// SPDX-License-Identifier: Apache-2.0
#include "agent/state/yang_library.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/data/yang_tree.h"
#include "log/log.h"

namespace agent {
namespace {

using EntryKeys = std::vector<std::string_view>;

/// Copies libyang's data into the tree.
class Copier {
public:
    explicit Copier(StateTree& tree) : m_tree(tree) {}

    void Children(const lyd_node* from, StateTree::Node& into)
    {
        std::map<const lysc_node*, std::vector<std::pair<EntryKeys, const lyd_node*>>> lists;
        for (const lyd_node* child = lyd_child_no_keys(from); child != nullptr; child = child->next) {
            if ((child->schema->nodetype & LYD_NODE_TERM) != 0)
                Value(child, into);
            else if (child->schema->nodetype == LYS_LIST)
                lists[child->schema].emplace_back(KeysOf(child), child);
            else
                Children(child, StateTree::ContainerIn(into, child->schema));
        }
        for (auto& [list, entries] : lists) {
            std::sort(entries.begin(), entries.end());
            for (auto& [keys, entry] : entries)
                if (StateTree::Node* made = StateTree::Append(into, list, keys); made != nullptr)
                    Children(entry, *made);
        }
    }

private:
    void Value(const lyd_node* leaf, StateTree::Node& into)
    {
        const std::string_view text = lyd_get_value(leaf);
        // A file of the switch is no place from which a client can get the module; <get-schema> is.
        if (!text.starts_with("file:")) into.leaves.push_back({leaf->schema, m_tree.Keep(text)});
    }

    EntryKeys KeysOf(const lyd_node* entry)
    {
        EntryKeys keys;
        for (const lyd_node* key = lyd_child(entry); key != nullptr && lysc_is_key(key->schema);
             key = key->next)
            keys.push_back(m_tree.Keep(lyd_get_value(key)));
        return keys;
    }

    StateTree& m_tree;
};

/// libyang knows no datastores. All of ours have all modules.
void AddDatastores(const lyd_node* library, const lysc_node* container, StateTree& tree)
{
    const lysc_node* list = SchemaChild(container, "datastore");
    const lysc_node* leaf = list == nullptr ? nullptr : SchemaChild(list, "schema");
    const std::string_view schema = ChildText(ChildNamed(library, "schema"), "name");
    if (leaf == nullptr || schema.empty()) return;
    for (const char* name : {"ietf-datastores:candidate", "ietf-datastores:intended",
                             "ietf-datastores:operational", "ietf-datastores:running"})
        if (StateTree::Node* entry = StateTree::Append(tree.At(container), list, {name}); entry != nullptr)
            entry->leaves.push_back({leaf, tree.Keep(schema)});
}

}  // namespace

void AddYangLibrary(const cdb::Schema& schema, const lysc_node* container, StateTree& tree)
{
    lyd_node* raw = nullptr;
    if (ly_ctx_get_yanglib_data(schema.Context(), &raw, "%s", schema.ContentId().c_str()) != LY_SUCCESS)
        return slog::Error("libyang does not give the YANG library");
    const Tree data(raw);
    for (const lyd_node* node = data.get(); node != nullptr; node = node->next) {
        if (node->schema != container) continue;
        Copier(tree).Children(node, tree.At(container));
        AddDatastores(node, container, tree);
    }
}

}  // namespace agent
