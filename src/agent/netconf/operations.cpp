// SPDX-License-Identifier: Apache-2.0
// Finds the operation of a request and whether it may be carried out; the operations on locks and sessions.

#include "agent/netconf/operations.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include "agent/data/errors.h"
#include "log/log.h"

namespace agent {
namespace {

using cdb::ErrorTag;

/// The datastore to lock or unlock. A leaf "datastore" (RFC 8526, section 3.2) may name one that has no lock.
base::expected<Target, netconf::RpcError> TargetOf(const lyd_node* operation)
{
    const std::string_view name = NameInChild(operation, "target");
    if (name == "running") return Target::kRunning;
    if (name == "candidate") return Target::kCandidate;
    return base::Unexpected(
        MakeError(Layer::kProtocol, ErrorTag::kInvalidValue,
                  "the datastore " + std::string(name) + " has no lock; lock the candidate, or running",
                  {{"bad-element", "datastore"}}));
}

std::string NameOf(Target target) { return target == Target::kRunning ? "running" : "candidate"; }

/// "ann (session 4, over SSH from 192.0.2.7)"
std::string HolderOf(const Request& request)
{
    const auto& origin = request.Origin();
    const std::string way = !origin                ? "on the switch"
                            : origin->host.empty() ? "over SSH"
                                                   : "over SSH from " + origin->host;
    return request.Who().user + " (session " + std::to_string(request.Who().id) + ", " + way + ")";
}

/// "12 s", "5 min", "3 h"
std::string ForText(std::int64_t lastedUs)
{
    const std::int64_t lasted = std::max<std::int64_t>(lastedUs, 0) / 1'000'000;
    if (lasted < 120) return std::to_string(lasted) + " s";
    if (lasted < 7200) return std::to_string(lasted / 60) + " min";
    return std::to_string(lasted / 3600) + " h";
}

netconf::RpcError LockDenied(const std::string& message, std::uint32_t holder)
{
    return MakeError(Layer::kProtocol, ErrorTag::kLockDenied, message,
                     {{"session-id", std::to_string(holder)}});
}

}  // namespace

std::string Locks::Text(Target target, std::int64_t nowUs) const
{
    const Taken& taken = m_taken[static_cast<std::size_t>(target)];
    return NameOf(target) + " is locked by " + taken.holder + " for " + ForText(nowUs - taken.sinceUs);
}

Operations::Operations(Services services)
    : m_services(std::move(services)),
      m_dataSchema(m_services.schema),
      m_confirmed(m_services.timers, m_services.events, [this] { RollBackDue(); }),
      m_candidates(m_services.datastore),
      m_queue(m_services.loop),
      m_commits(m_services.loop)
{
}

Operations::Handler Operations::Find(const lyd_node* operation)
{
    struct Row {
        std::string_view module;
        std::string_view name;
        Handler handler;
    };
    constexpr std::string_view kBase = "ietf-netconf";
    constexpr std::string_view kSystem = "switch-system";
    constexpr std::string_view kHistory = "switch-history";
    constexpr std::string_view kPrivate = "switch-private-candidate";
    static const std::array kRows{
        Row{kBase, "get", &Operations::Get},
        Row{kBase, "get-config", &Operations::GetConfig},
        Row{kBase, "edit-config", &Operations::EditConfig},
        Row{kBase, "copy-config", &Operations::CopyConfig},
        Row{kBase, "validate", &Operations::Validate},
        Row{kBase, "commit", &Operations::Commit},
        Row{kBase, "cancel-commit", &Operations::CancelCommit},
        Row{kBase, "discard-changes", &Operations::DiscardChanges},
        Row{kBase, "lock", &Operations::Lock},
        Row{kBase, "unlock", &Operations::Unlock},
        Row{kBase, "close-session", &Operations::CloseSession},
        Row{kBase, "kill-session", &Operations::KillSession},
        Row{"ietf-netconf-monitoring", "get-schema", &Operations::GetSchema},
        Row{"ietf-netconf-nmda", "get-data", &Operations::GetData},
        Row{"ietf-netconf-nmda", "edit-data", &Operations::EditData},
        Row{"notifications", "create-subscription", &Operations::CreateSubscription},
        Row{kSystem, "ha-transition", &Operations::HaTransition},
        Row{kSystem, "sflow-resync", &Operations::SflowResync},
        Row{kSystem, "sflow-clear-statistics", &Operations::SflowClearStatistics},
        Row{kSystem, "sflow-test-collector", &Operations::SflowTestCollector},
        Row{kSystem, "get-log", &Operations::GetLog},
        Row{kSystem, "sflow-top-talkers", &Operations::SflowTopTalkers},
        Row{kSystem, "backup", &Operations::MakeBackup},
        Row{kHistory, "confirm-commit", &Operations::ConfirmCommit},
        Row{kHistory, "rollback", &Operations::RollBack},
        Row{kHistory, "compare", &Operations::CompareWith},
        Row{kHistory, "commit-changes", &Operations::CommitChanges},
        Row{kHistory, "checkpoint", &Operations::SetCheckpoint},
        Row{kHistory, "delete-checkpoint", &Operations::DeleteCheckpoint},
        Row{kPrivate, "open-private-candidate", &Operations::OpenPrivateCandidate},
        Row{kPrivate, "close-private-candidate", &Operations::ClosePrivateCandidate},
        Row{kPrivate, "update-candidate", &Operations::UpdateCandidate},
    };
    const std::string_view module = operation->schema->module->name;
    const std::string_view name = operation->schema->name;
    const auto* row = std::find_if(kRows.begin(), kRows.end(), [module, name](const Row& each) {
        return each.module == module && each.name == name;
    });
    return row == kRows.end() ? nullptr : row->handler;
}

void Operations::Handle(const RequestPtr& request)
{
    if (RefuseDenied(request)) return;
    if (const Handler handler = Find(request->Operation())) return (this->*handler)(request);
    const std::string name = request->Operation()->schema->name;
    request->Refuse(MakeError(Layer::kProtocol, cdb::ErrorTag::kOperationNotSupported,
                              "the operation " + name + " is not offered", {{"bad-element", name}}));
}

bool Operations::RefuseDenied(const RequestPtr& request)
{
    const lysc_node* operation = request->Operation()->schema;
    if (request->Who().access->MayExecute(operation)) return false;
    ++m_services.access.Denied().operations;
    request->Refuse(MakeError(Layer::kProtocol, cdb::ErrorTag::kAccessDenied,
                              request->Who().user + " may not execute " + operation->name +
                                  "; the rules of access (cdbd --access) decide it"));
    return true;
}

void Operations::InTurn(const RequestPtr& request, std::function<void(const SerialQueue::TicketPtr&)> work)
{
    m_queue.Push([request, doWork = std::move(work)](const SerialQueue::TicketPtr& ticket) {
        if (request->Wanted()) doWork(ticket);
    });
}

bool Operations::RefuseLocked(const RequestPtr& request, Target target)
{
    if (target == Target::kCandidate && m_candidates.Find(request->Who().id) != nullptr) return false;
    const auto holder = m_locks.HeldByOther(target, request->Who().id);
    if (!holder) return false;
    request->Refuse(MakeError(
        Layer::kProtocol, cdb::ErrorTag::kInUse,
        m_locks.Text(target, m_services.now()) + "; wait until it unlocks, or end it with kill-session"));
    return true;
}

std::vector<NetconfFacts::Lock> Operations::Datastores() const
{
    std::vector<NetconfFacts::Lock> datastores;
    for (const Target target : {Target::kCandidate, Target::kRunning})
        datastores.push_back({NameOf(target), m_locks.Holder(target).value_or(0), m_locks.Since(target)});
    return datastores;
}

void Operations::Lock(const RequestPtr& request)
{
    const auto named = TargetOf(request->Operation());
    if (!named) return request->Refuse(named.error());
    if (*named == Target::kCandidate && m_candidates.Find(request->Who().id) != nullptr)
        return LockPrivate(request);
    InTurn(request, [this, request, target = *named](const SerialQueue::TicketPtr& ticket) {
        if (const auto holder = m_locks.Holder(target))
            return request->Refuse(LockDenied(m_locks.Text(target, m_services.now()), *holder));
        if (target == Target::kRunning) {
            // RFC 6241, section 7.5: not while another session's confirmed commit waits.
            if (const auto other = m_confirmed.OfOther(request->Who().id))
                return request->Refuse(
                    LockDenied(m_confirmed.Name() + " by " + m_confirmed.Pending().user +
                                   " waits for its confirmation; wait until it is confirmed or rolled back",
                               *other));
            m_locks.Take(target, request->Who().id, HolderOf(*request), m_services.now());
            return request->Ok();
        }
        const auto changed = std::make_shared<bool>(false);
        m_services.changes.Do(
            [this, changed] {
                // A base that can't be had is one of a candidate with changes.
                *changed = m_services.datastore.Prepare(true) || m_services.datastore.Changed();
            },
            [this, request, ticket, changed] {
                if (!request->Wanted()) return;
                // The changes have no known owner: any session may edit a candidate that is not locked.
                if (*changed)
                    return request->Refuse(LockDenied(
                        "candidate has changes that are not committed; commit or discard them first", 0));
                m_locks.Take(Target::kCandidate, request->Who().id, HolderOf(*request), m_services.now());
                request->Ok();
            });
    });
}

void Operations::Unlock(const RequestPtr& request)
{
    const auto named = TargetOf(request->Operation());
    if (!named) return request->Refuse(named.error());
    if (*named == Target::kCandidate && m_candidates.Find(request->Who().id) != nullptr)
        return UnlockPrivate(request);
    InTurn(request, [this, request, target = *named](const SerialQueue::TicketPtr& ticket) {
        const auto holder = m_locks.Holder(target);
        if (holder != request->Who().id) {
            const std::string whose =
                holder ? m_locks.Text(target, m_services.now()) + "; that session alone can unlock it"
                       : NameOf(target) + " is not locked";
            return request->Refuse(MakeError(Layer::kProtocol, ErrorTag::kOperationFailed, whose));
        }
        if (target == Target::kRunning) {
            m_locks.Release(target);
            return request->Ok();
        }
        ReleaseCandidate(ticket, [request] { request->Ok(); });
    });
}

void Operations::ReleaseCandidate(const SerialQueue::TicketPtr& ticket, const std::function<void()>& done)
{
    // Uncommitted changes are discarded with the lock (RFC 6241, section 8.3.5.2).
    m_services.changes.Do([this] { m_services.datastore.Discard(); },
                          [this, ticket, done] {
                              m_locks.Release(Target::kCandidate);
                              m_candidates.NoteSharedClean();
                              done();
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
    if (!m_services.endSession(session, reason, request->Who().id))
        return refuse("there is no session " + std::string(text));
    request->Ok();
}

void Operations::SessionEnded(std::uint32_t session)
{
    // The edit, and its turn, end with its session.
    if (const auto asked = m_asked.extract(session)) asked.mapped()();
    DropPrivate(session);
    m_confirmed.SessionEnded(session);
    // In turn, because the lock covers an edit of the session that may be under way.
    m_queue.Push([this, session](const SerialQueue::TicketPtr& ticket) {
        if (m_locks.Holder(Target::kRunning) == session) m_locks.Release(Target::kRunning);
        if (m_locks.Holder(Target::kCandidate) == session) ReleaseCandidate(ticket, [] {});
    });
}

}  // namespace agent
