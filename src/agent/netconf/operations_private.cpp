// SPDX-License-Identifier: Apache-2.0
// The operations of the module switch-private-candidate, and locks of a private candidate.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent/data/errors.h"
#include "agent/netconf/operations.h"
#include "log/log.h"

namespace agent {
namespace {

using cdb::ErrorTag;

netconf::RpcError Failed(const std::string& message)
{
    return MakeError(Layer::kApplication, ErrorTag::kOperationFailed, message);
}

std::string Plural(std::uint32_t count, const std::string& what)
{
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

}  // namespace

void Operations::OnCandidate(const RequestPtr& request,
                             std::function<void(const SerialQueue::TicketPtr&)> work)
{
    // Nothing but this session's requests, which come one after the other, reaches its private candidate.
    if (m_candidates.Find(request->Who().id) != nullptr) return work(nullptr);
    InTurn(request, std::move(work));
}

void Operations::OpenPrivateCandidate(const RequestPtr& request)
{
    const auto& who = request->Who();
    if (m_candidates.Find(who.id) != nullptr)
        return request->Refuse(Failed("this session has a private candidate already; close it first"));
    // In turn, because the session's lock may be about to be released.
    InTurn(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        const auto& session = request->Who();
        if (m_locks.Holder(Target::kCandidate) == session.id)
            return request->Refuse(Failed("this session has locked the shared candidate; unlock it first"));
        const auto made = std::make_shared<DatastorePtr>();
        m_services.changes.Do([this, made] { *made = m_services.datastore.Fork(); },
                              [this, request, ticket, made] {
                                  if (!request->Wanted()) return;
                                  Candidates::Private own;
                                  own.base = (*made)->Base();
                                  own.datastore = std::move(*made);
                                  own.user = request->Who().user;
                                  own.openedUs = m_services.now();
                                  m_candidates.Open(request->Who().id, std::move(own));
                                  request->Ok();
                              });
    });
}

void Operations::ClosePrivateCandidate(const RequestPtr& request)
{
    const Candidates::Private* own = m_candidates.Find(request->Who().id);
    if (own == nullptr) return request->Refuse(Failed("this session has no private candidate"));
    std::vector<netconf::RpcError> warnings;
    if (own->edits.count > 0)
        warnings.push_back(MakeWarning(Plural(own->edits.count, "edit") + " of the private candidate that " +
                                       (own->edits.count == 1 ? "was" : "were") +
                                       " not committed is dropped"));
    DropPrivate(request->Who().id);
    request->Ok(warnings);
}

void Operations::DropPrivate(std::uint32_t session)
{
    if (auto datastore = m_candidates.Close(session)) m_services.changes.Free(std::move(datastore));
}

void Operations::UpdateCandidate(const RequestPtr& request)
{
    OnCandidate(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        using OnConflict = cdb::Datastore::OnConflict;
        const auto onConflict = ChildText(request->Operation(), "on-conflict") == "running"
                                    ? OnConflict::kTakeRunning
                                    : OnConflict::kRefuse;
        using Result = base::expected<std::vector<cdb::Error>, std::vector<cdb::Error>>;
        const auto result = std::make_shared<Result>();
        const auto datastore = m_candidates.Of(request->Who().id);
        m_services.changes.Do(
            [result, datastore, onConflict] { *result = datastore->Update(onConflict); },
            [this, request, ticket, result, datastore] {
                if (!*result)
                    return request->Refuse(ToRpcErrors(result->error(), m_services.schema.Context()));
                if (Candidates::Private* own = m_candidates.Find(request->Who().id))
                    own->base = datastore->Base();
                std::vector<netconf::RpcError> warnings = ToRpcErrors(**result, m_services.schema.Context());
                for (netconf::RpcError& warning : warnings) warning.severity = "warning";
                request->Ok(warnings);
                m_services.changes.Do([datastore] { datastore->TidyUp(); });
            });
    });
}

/// A private candidate is its session's alone, so a lock keeps no other session from anything. It is granted
/// for clients that lock as a matter of course.
void Operations::LockPrivate(const RequestPtr& request)
{
    Candidates::Private& own = *m_candidates.Find(request->Who().id);
    const auto deny = [&request](const std::string& why, std::uint32_t holder) {
        request->Refuse(MakeError(Layer::kProtocol, ErrorTag::kLockDenied, why,
                                  {{"session-id", std::to_string(holder)}}));
    };
    if (own.isLocked) return deny("this session has locked its private candidate already", request->Who().id);
    if (own.edits.count > 0)
        return deny("the private candidate has changes that are not committed; commit or discard them first",
                    0);
    own.isLocked = true;
    request->Ok();
}

void Operations::UnlockPrivate(const RequestPtr& request)
{
    Candidates::Private& own = *m_candidates.Find(request->Who().id);
    if (!own.isLocked)
        return request->Refuse(MakeError(Layer::kProtocol, ErrorTag::kOperationFailed,
                                         "this session's private candidate is not locked"));
    own.isLocked = false;
    DiscardChanges(request);  // as with the shared one (RFC 6241, section 8.3.5.2)
}

}  // namespace agent
