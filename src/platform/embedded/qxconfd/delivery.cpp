// SPDX-License-Identifier: Apache-2.0
// The walk of a change set, as calls of the points' callbacks.

#include "platform/embedded/qxconfd/delivery.h"

#include <algorithm>
#include <optional>

#include "log/log.h"
#include "platform/embedded/confd/convert.h"

namespace embedded {
namespace {

confd_iter_op OperationOf(cdb::ChangeOp op)
{
    switch (op) {
    case cdb::ChangeOp::kCreated:
        return MOP_CREATED;
    case cdb::ChangeOp::kDeleted:
        return MOP_DELETED;
    case cdb::ChangeOp::kValueSet:
        return MOP_VALUE_SET;
    case cdb::ChangeOp::kModified:
    case cdb::ChangeOp::kNone:
        break;
    }
    return MOP_MODIFIED;
}

cdb::Visit VisitOf(confd_iter_ret wanted)
{
    switch (wanted) {
    case ITER_STOP:
        return cdb::Visit::kStop;
    case ITER_RECURSE:
        return cdb::Visit::kRecurse;
    case ITER_UP:
        return cdb::Visit::kUp;
    case ITER_CONTINUE:
    case ITER_SUSPEND:
        break;
    }
    return cdb::Visit::kContinue;  // a suspended walk resumes with the next sibling
}

/// Calls one point's callback for each node of its walk.
class PointWalk {
public:
    PointWalk(const cdb::SchemaTable& schema, const SubscriptionPoint& point)
        : m_schema(schema), m_point(point)
    {
    }

    cdb::Visit operator()(const std::vector<const cdb::ChangeNode*>& ancestry)
    {
        m_steps.clear();
        for (const auto* node : ancestry) m_steps.push_back({node->node, &node->keys});
        MakeKeypath(m_schema, m_steps, m_keypath);
        const cdb::ChangeNode& node = *ancestry.back();
        if (node.op != cdb::ChangeOp::kValueSet)
            return VisitOf(m_point.callback(&m_keypath, OperationOf(node.op), nullptr, nullptr));
        confd_value_t value = BorrowedValue(node.value);
        return VisitOf(m_point.callback(&m_keypath, MOP_VALUE_SET, nullptr, &value));
    }

private:
    const cdb::SchemaTable& m_schema;
    const SubscriptionPoint& m_point;
    std::vector<KeypathStep> m_steps;
    confd_hkeypath_t m_keypath{};
};

std::vector<qxconfd::ConfigHandler*> HandlersOf(const std::vector<PointOfHandler>& touched)
{
    std::vector<qxconfd::ConfigHandler*> handlers;
    for (const auto& [handler, point] : touched)
        if (std::find(handlers.begin(), handlers.end(), handler) == handlers.end())
            handlers.push_back(handler);
    return handlers;
}

}  // namespace

void Deliver(const cdb::SchemaTable& schema, const cdb::ChangeSet& changes,
             const std::vector<PointOfHandler>& touched)
{
    const auto handlers = HandlersOf(touched);
    for (auto* handler : handlers) handler->StartCommit();
    for (const auto& [handler, point] : touched) {
        const cdb::NodeId node = schema.Find(point->path);
        if (node != cdb::kNoNode) cdb::Walk(schema, changes, node, PointWalk(schema, *point));
    }
    for (auto* handler : handlers) handler->ApplyCommitConfig();
}

}  // namespace embedded
