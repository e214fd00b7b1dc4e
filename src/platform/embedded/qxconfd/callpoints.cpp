// SPDX-License-Identifier: Apache-2.0
// One request of the database, one callback, one answer.

#include "platform/embedded/qxconfd/callpoints.h"

#include <utility>

#include "cdb/model/path.h"
#include "cdb/model/value_message.h"
#include "ipc/cdb.pb.h"
#include "platform/embedded/confd/convert.h"
#include "platform/embedded/confd/error.h"

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

}  // namespace embedded
