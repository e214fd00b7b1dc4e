// SPDX-License-Identifier: Apache-2.0
#include "cli/statement.h"

#include <libyang/libyang.h>

#include "cli/data.h"
#include "cli/schema_words.h"
#include "cli/words.h"

namespace cli {

bool IsRoot(const lyd_node* node)
{
    return !lyd_parent(node) && node->schema == RootContainer(LYD_CTX(node));
}

bool IsLeafNode(const lyd_node* node) { return (node->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0; }

bool Counts(const lyd_node* node)
{
    const bool plainContainer =
        node->schema->nodetype == LYS_CONTAINER && (node->schema->flags & LYS_PRESENCE) == 0;
    if (!plainContainer) return true;
    for (const lyd_node* child = lyd_child(node); child; child = child->next)
        if (Counts(child)) return true;
    return false;
}

void AppendHead(const lyd_node* node, std::string& out)
{
    out += node->schema->name;
    if (node->schema->nodetype != LYS_LIST) return;
    for (const lyd_node* key = lyd_child(node); key && IsKeyNode(key); key = key->next) AppendValue(key, out);
}

void AppendValue(const lyd_node* node, std::string& out)
{
    if (reinterpret_cast<const lyd_node_term*>(node)->value.realtype->basetype == LY_TYPE_EMPTY) return;
    out += ' ';
    out += Quoted(lyd_get_value(node));
}

}  // namespace cli
