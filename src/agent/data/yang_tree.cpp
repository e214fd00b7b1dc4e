// SPDX-License-Identifier: Apache-2.0
#include "agent/data/yang_tree.h"

#include <libyang/libyang.h>

namespace agent {

const lyd_node* ChildNamed(const lyd_node* parent, std::string_view name)
{
    for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next)
        if (child->schema != nullptr && name == child->schema->name) return child;
    return nullptr;
}

std::string_view ChildText(const lyd_node* parent, std::string_view name)
{
    const lyd_node* child = ChildNamed(parent, name);
    return child == nullptr ? std::string_view{} : std::string_view(lyd_get_value(child));
}

}  // namespace agent
