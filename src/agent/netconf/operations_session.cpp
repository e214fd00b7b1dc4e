// SPDX-License-Identifier: Apache-2.0
#include <libyang/libyang.h>

#include <charconv>
#include <string>
#include <string_view>
#include <utility>

#include "agent/data/errors.h"
#include "agent/netconf/operations.h"
#include "log/log.h"

namespace agent {
namespace {

using cdb::ErrorTag;

Target TargetOf(const lyd_node* operation)
{
    const lyd_node* named = lyd_child(ChildNamed(operation, "target"));
    return std::string_view(named->schema->name) == "running" ? Target::kRunning : Target::kCandidate;
}

const char* NameOf(Target target) { return target == Target::kRunning ? "running" : "candidate"; }

netconf::RpcError LockDenied(const std::string& message, std::uint32_t holder)
{
    return MakeError(Layer::kProtocol, ErrorTag::kLockDenied, message,
                     {{"session-id", std::to_string(holder)}});
}

}  // namespace

void Operations::Lock(const RequestPtr& request)
{
    InTurn(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        const Target target = TargetOf(request->Operation());
        if (const auto holder = m_locks.Holder(target))
            return request->Refuse(LockDenied(
                std::string(NameOf(target)) + " is locked by session " + std::to_string(*holder) + " already",
                *holder));
        if (target == Target::kRunning) {
            m_locks.Take(target, request->Who().id);
            return request->Ok();
        }
        const auto changed = std::make_shared<bool>(false);
        m_services.changes.Do(
            [this, changed] { *changed = m_services.datastore.Changed(); },
            [this, request, ticket, changed] {
                if (!request->Wanted()) return;
                // The changes have no known owner: any session may edit a candidate that is not locked.
                if (*changed)
                    return request->Refuse(LockDenied(
                        "candidate has changes that are not committed; commit or discard them first", 0));
                m_locks.Take(Target::kCandidate, request->Who().id);
                request->Ok();
            });
    });
}

void Operations::Unlock(const RequestPtr& request)
{
    InTurn(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        const Target target = TargetOf(request->Operation());
        const auto holder = m_locks.Holder(target);
        if (holder != request->Who().id) {
            const std::string whose =
                holder ? "is locked by session " + std::to_string(*holder) + ", which alone can unlock it"
                       : "is not locked";
            return request->Refuse(MakeError(Layer::kProtocol, ErrorTag::kOperationFailed,
                                             std::string(NameOf(target)) + " " + whose));
        }
        if (target == Target::kRunning) {
            m_locks.Release(target);
            return request->Ok();
        }
        ReleaseCandidate(ticket, [request] { request->Ok(); });
    });
}

void Operations::ReleaseCandidate(const SerialQueue::TicketPtr& ticket, std::function<void()> done)
{
    // Uncommitted changes are discarded with the lock (RFC 6241, section 8.3.5.2).
    m_services.changes.Do([this] { m_services.datastore.Discard(); },
                          [this, ticket, tell = std::move(done)] {
                              m_locks.Release(Target::kCandidate);
                              tell();
                              m_services.changes.Do([this] { m_services.datastore.TidyUp(); });
                          });
}

void Operations::CloseSession(const RequestPtr& request)
{
    // A client that sees the answer must find the locks released: its request for a lock has its turn after
    // this.
    SessionEnded(request->Who().id);
    request->OkAndFinish();
}

void Operations::KillSession(const RequestPtr& request)
{
    const std::string_view text = ChildText(request->Operation(), "session-id");
    std::uint32_t session = 0;
    std::from_chars(text.data(), text.data() + text.size(), session);  // libyang has checked the number
    const auto refuse = [&request](const std::string& why) {
        request->Refuse(
            MakeError(Layer::kProtocol, ErrorTag::kInvalidValue, why, {{"bad-element", "session-id"}}));
    };
    if (session == request->Who().id)
        return refuse("this is session " + std::string(text) + " itself; close it");
    const std::string reason = "killed by session " + std::to_string(request->Who().id);
    if (!m_services.endSession(session, reason)) return refuse("there is no session " + std::string(text));
    request->Ok();
}

void Operations::SessionEnded(std::uint32_t session)
{
    if (m_asked.pending && m_asked.session == session) {
        // The edit, and its turn, end with its session.
        const auto pending = std::exchange(m_asked, {}).pending;
        pending->Cancel();
    }
    // In turn, because the lock covers an edit of the session that may be under way.
    m_queue.Push([this, session](const SerialQueue::TicketPtr& ticket) {
        if (m_locks.Holder(Target::kRunning) == session) m_locks.Release(Target::kRunning);
        if (m_locks.Holder(Target::kCandidate) == session) ReleaseCandidate(ticket, [] {});
    });
}

}  // namespace agent
