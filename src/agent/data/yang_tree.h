// SPDX-License-Identifier: Apache-2.0
// Ownership of libyang data trees in the agent, and look-up of their children.

#ifndef AGENT_DATA_YANG_TREE_H
#define AGENT_DATA_YANG_TREE_H

#include <string_view>

#include "cdb/schema/libyang_owner.h"

namespace agent {

using Tree = cdb::TreePtr;

/// The schema's child of that name, perhaps in a choice; null if there is none, or no parent.
inline const lysc_node* SchemaChild(const lysc_node* parent, std::string_view name)
{
    const lysc_node* child = nullptr;
    while (parent != nullptr && (child = lys_getnext(child, parent, nullptr, 0)) != nullptr)
        if (name == child->name) return child;
    return nullptr;
}

/// The child of that name; null if there is none.
inline const lyd_node* ChildNamed(const lyd_node* parent, std::string_view name)
{
    for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next)
        if (child->schema != nullptr && name == child->schema->name) return child;
    return nullptr;
}

/// The text of that child, a leaf; empty if there is none.
inline std::string_view ChildText(const lyd_node* parent, std::string_view name)
{
    const lyd_node* child = ChildNamed(parent, name);
    return child == nullptr ? std::string_view{} : std::string_view(lyd_get_value(child));
}

/// The datastore that a leaf of RFC 8526 names: "running", "operational"; with its module's name before it if
/// that is not ietf-datastores. Empty if there is no leaf.
inline std::string_view DatastoreText(const lyd_node* leaf)
{
    constexpr std::string_view kModule = "ietf-datastores:";
    std::string_view text = leaf == nullptr ? std::string_view{} : std::string_view(lyd_get_value(leaf));
    if (text.starts_with(kModule)) text.remove_prefix(kModule.size());
    return text;
}

/// The name of that child's only child, as of <source> and <target>, or what its leaf "datastore" names;
/// empty if there is none.
inline std::string_view NameInChild(const lyd_node* parent, std::string_view name)
{
    const lyd_node* inner = lyd_child(ChildNamed(parent, name));
    if (inner == nullptr) return {};
    const std::string_view own = inner->schema->name;
    return own == "datastore" ? DatastoreText(inner) : own;
}

}  // namespace agent

#endif
