// SPDX-License-Identifier: Apache-2.0
// The walk over a change set. Its message form: change_set_message.cpp.

#include "cdb/model/change_set.h"

namespace cdb {
namespace {

class Walker {
public:
    Walker(const SchemaTable& schema, NodeId point, const Visitor& visitor)
        : m_schema(schema), m_point(point), m_visitor(visitor)
    {
    }

    /// Goes down to the point, whatever the operation of the nodes above it. Returns false if the visitor
    /// stops.
    bool Descend(const ChangeNode& node)
    {
        if (node.node == m_point) return Report(node) != Visit::kStop;
        if (!IsAbovePoint(node.node)) return true;
        m_ancestry.push_back(&node);
        for (const auto& child : node.children)
            if (!Descend(child)) return false;
        m_ancestry.pop_back();
        return true;
    }

private:
    /// Returns kStop or kUp if the caller must act on it; any other value means the next sibling.
    Visit Report(const ChangeNode& node)
    {
        m_ancestry.push_back(&node);
        const bool transparent = node.op == ChangeOp::kNone;
        Visit wanted = transparent ? Visit::kRecurse : m_visitor(m_ancestry);
        if (wanted == Visit::kRecurse) wanted = Children(node);
        m_ancestry.pop_back();
        return wanted;
    }

    Visit Children(const ChangeNode& node)
    {
        for (const auto& child : node.children) {
            const Visit wanted = Report(child);
            if (wanted == Visit::kStop) return Visit::kStop;
            if (wanted == Visit::kUp) break;  // continues with this node's next sibling
        }
        return Visit::kContinue;
    }

    [[nodiscard]] bool IsAbovePoint(NodeId node) const
    {
        for (NodeId above = m_point; above != kNoNode; above = m_schema[above].parent)
            if (above == node) return true;
        return false;
    }

    const SchemaTable& m_schema;
    NodeId m_point;
    const Visitor& m_visitor;
    std::vector<const ChangeNode*> m_ancestry;
};

}  // namespace

void Walk(const SchemaTable& schema, const ChangeSet& changes, NodeId point, const Visitor& visitor)
{
    if (changes.Empty() || point == kNoNode) return;
    Walker(schema, point, visitor).Descend(changes.root);
}

bool Touches(const SchemaTable& schema, const ChangeSet& changes, NodeId point)
{
    bool touched = false;
    Walk(schema, changes, point, [&touched](const auto&) {
        touched = true;
        return Visit::kStop;
    });
    return touched;
}

}  // namespace cdb
