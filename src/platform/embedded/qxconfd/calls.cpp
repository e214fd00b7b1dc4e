// SPDX-License-Identifier: Apache-2.0
#include "platform/embedded/qxconfd/calls.h"

#include <algorithm>
#include <utility>

#include "cdb/model/path.h"
#include "cdb/model/value_message.h"
#include "platform/embedded/confd/convert.h"

namespace embedded {
namespace {

/// Collects the writes of a callback while it lives.
class CurrentTransaction {
public:
    CurrentTransaction(Runtime& runtime, Transaction& transaction) : m_runtime(runtime)
    {
        m_runtime.transaction = &transaction;
    }
    CurrentTransaction(const CurrentTransaction&) = delete;
    CurrentTransaction& operator=(const CurrentTransaction&) = delete;
    ~CurrentTransaction() { m_runtime.transaction = nullptr; }

private:
    Runtime& m_runtime;
};

int CallOperation(qxconfd::DataHandler::Callpoint& callpoint, const ipc::cdb::CallpointRequest& request,
                  confd_trans_ctx& transaction, confd_hkeypath_t& keypath)
{
    switch (request.operation()) {
    case ipc::cdb::CallpointRequest::CREATE:
        return callpoint.CreateCallback(&transaction, &keypath);
    case ipc::cdb::CallpointRequest::REMOVE:
        return callpoint.RemoveCallback(&transaction, &keypath);
    case ipc::cdb::CallpointRequest::SET_ELEM: {
        const auto value = cdb::FromMessage(request.value());
        if (!value) throw ClientError("the value to set is out of its type's range");
        confd_value_t borrowed = BorrowedValue(*value);
        return callpoint.SetElemCallback(&transaction, &keypath, &borrowed);
    }
    default:
        throw ClientError("operation " + std::to_string(request.operation()) + " is not served");
    }
}

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

Callpoints::Callpoints(Runtime& runtime, QxConfdInterface& confd, std::vector<qxconfd::DataHandler*> handlers)
    : m_runtime(runtime), m_daemon{&confd}, m_handlers(std::move(handlers))
{
}

std::vector<std::string> Callpoints::Names() const
{
    std::vector<std::string> names;
    for (auto* handler : m_handlers)
        for (auto* callpoint : handler->GetCallpoints()) names.emplace_back(callpoint->GetCallpointName());
    return names;
}

ipc::cdb::CallpointReply Callpoints::Answer(const ipc::cdb::CallpointRequest& request)
{
    Transaction transaction{static_cast<int>(request.transaction()), {}};
    std::string error;
    {
        const CurrentTransaction current(m_runtime, transaction);
        try {
            error = Call(request);
        } catch (const ClientError& refusal) {
            error = refusal.what();
        }
    }
    ipc::cdb::CallpointReply reply;
    reply.set_request(request.request());
    reply.set_ok(error.empty());
    if (!error.empty()) {
        reply.set_error(error);
        return reply;
    }
    for (const auto& [path, value] : transaction.writes) {
        auto& write = *reply.add_writes();
        write.set_path(path);
        cdb::ToMessage(value, *write.mutable_value());
    }
    return reply;
}

Callpoints::Served Callpoints::Find(const std::string& name) const
{
    for (auto* handler : m_handlers)
        for (auto* callpoint : handler->GetCallpoints())
            if (name == callpoint->GetCallpointName()) return {handler, callpoint};
    return {};
}

/// The reason of a failure; empty if there is none.
std::string Callpoints::Call(const ipc::cdb::CallpointRequest& request)
{
    const Served served = Find(request.callpoint());
    if (served.callpoint == nullptr) return "no callpoint " + request.callpoint() + " is served here";
    const cdb::SchemaTable& schema = m_runtime.database.Schema();
    const auto path = cdb::ParsePath(schema, request.path());
    if (!path) return path.error();
    confd_hkeypath_t keypath;
    MakeKeypath(schema, StepsOf(*path), keypath);
    if (CallInTransaction(served, request, keypath) == CONFD_OK) return "";
    return "the callpoint " + request.callpoint() + " refuses " + request.path();
}

int Callpoints::CallInTransaction(const Served& served, const ipc::cdb::CallpointRequest& request,
                                  confd_hkeypath_t& keypath)
{
    confd_trans_ctx transaction{&m_daemon, static_cast<int>(request.transaction())};
    if (served.handler->TransactionInit(&transaction) != CONFD_OK) return CONFD_ERR;
    const int result = CallOperation(*served.callpoint, request, transaction, keypath);
    const int finished = served.handler->TransactionFinish(&transaction);
    return result == CONFD_OK ? finished : result;
}

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
