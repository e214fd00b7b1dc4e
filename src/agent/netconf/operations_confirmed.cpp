// SPDX-License-Identifier: Apache-2.0
// The operations on a confirmed commit that waits, but for <commit> itself: cancelling it, confirming it
// without a commit, and rolling it back when it is due.

#include <libyang/libyang.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/data/errors.h"
#include "agent/netconf/operations.h"
#include "log/log.h"

namespace agent {
namespace {

std::optional<std::string> PersistIdOf(const lyd_node* operation)
{
    const lyd_node* node = ChildNamed(operation, "persist-id");
    return node == nullptr ? std::nullopt : std::optional<std::string>(lyd_get_value(node));
}

}  // namespace

/// A confirmed commit being rolled back.
struct Operations::UndoJob {
    RequestPtr request;  // null: cdbd does it by itself
    SerialQueue::TicketPtr commitTicket;
    SerialQueue::TicketPtr ticket;  // with the candidate; ends once the commit is written
    std::uint64_t returnTo = 0;
    cdb::CommitInfo info;
    std::vector<cdb::Error> errors;
    WrittenChanges written;
    std::size_t rows = 0;  // changed
};

bool Operations::RefuseUnconfirmed(const RequestPtr& request, const std::optional<std::string>& persistId)
{
    const auto& who = request->Who();
    const auto refusal = m_confirmed.Refusal(who.id, who.access->WritesAll(), persistId);
    if (refusal) request->Refuse(*refusal);
    return refusal.has_value();
}

bool Operations::RefuseNoneWaits(const RequestPtr& request)
{
    const auto persistId = PersistIdOf(request->Operation());
    if (RefuseUnconfirmed(request, persistId)) return true;
    if (m_confirmed.Waits()) return false;
    request->Refuse(ConfirmedCommit::NoneWaits());
    return true;
}

void Operations::CancelCommit(const RequestPtr& request)
{
    m_commits.Push([this, request](const SerialQueue::TicketPtr& commitTicket) {
        InTurn(request, [this, request, commitTicket](const SerialQueue::TicketPtr& ticket) {
            if (RefuseLocked(request, Target::kRunning) || RefuseNoneWaits(request)) return;
            RollBackPending(MakeUndo(request, commitTicket, ticket));
        });
    });
}

void Operations::ConfirmCommit(const RequestPtr& request)
{
    m_commits.Push([this, request](const SerialQueue::TicketPtr& commitTicket) {
        if (!request->Wanted()) return;
        if (RefuseLocked(request, Target::kRunning) || RefuseNoneWaits(request)) return;
        const auto error = std::make_shared<std::optional<cdb::Error>>();
        m_services.changes.Do(
            [this, error] { *error = m_services.store.SetPending(std::nullopt); },
            [this, request, commitTicket, error] {
                if (*error) return request->Refuse(ToRpcError(**error, m_services.schema.Context()));
                m_confirmed.Made(std::nullopt, request->Party(), 0);
                request->Ok();
            });
    });
}

void Operations::RollBackDue()
{
    m_commits.Push([this](const SerialQueue::TicketPtr& commitTicket) {
        m_queue.Push([this, commitTicket](const SerialQueue::TicketPtr& ticket) {
            // It may have been confirmed, extended or cancelled meanwhile.
            if (m_confirmed.IsDue()) RollBackPending(MakeUndo(nullptr, commitTicket, ticket));
        });
    });
}

Operations::UndoJobPtr Operations::MakeUndo(const RequestPtr& request,
                                            const SerialQueue::TicketPtr& commitTicket,
                                            const SerialQueue::TicketPtr& ticket) const
{
    auto job = std::make_shared<UndoJob>();
    job->request = request;
    job->commitTicket = commitTicket;
    job->ticket = ticket;
    job->returnTo = m_confirmed.Pending().returnTo;
    job->info.user = request ? request->Who().user : "cdbd";
    job->info.source = "rollback";
    job->info.comment = m_confirmed.Reason(request != nullptr);
    job->info.timeUs = m_services.now();
    return job;
}

void Operations::Undo(UndoJob& job) const
{
    auto result = m_services.datastore.Restore(job.returnTo, job.info);
    if (!result) {
        job.errors = std::move(result.error());
        return;
    }
    job.rows = result->rows;
    job.written = WriteOut(std::move(result->changes));
}

void Operations::RollBackPending(const UndoJobPtr& job)
{
    m_services.changes.Do(
        [this, job] { Undo(*job); },
        [this, job] {
            job->ticket.reset();
            if (job->errors.empty()) {
                TellUndone(*job);
                return DeliverUndone(job);
            }
            if (job->request)
                job->request->Refuse(ToRpcErrors(job->errors, m_services.schema.Context()));
            else
                m_confirmed.Failed(cdb::TextOf(job->errors));
            // Ends the process if the store can't be read any more, as after a commit.
            m_services.changes.Do([this] { static_cast<void>(m_services.store.LastCommit()); });
        });
}

void Operations::TellUndone(const UndoJob& job)
{
    const cdb::ChangeSet& changes = job.written.changes;
    const auto by = job.request ? std::optional(job.request->Party()) : std::nullopt;
    if (job.request && job.rows > 0) {
        job.request->NoteCommit(changes.commit);
        job.request->NoteChanges(job.rows);
    }
    if (!changes.Empty()) m_services.events.ConfigChanged(changes, by, job.info.comment);
    m_confirmed.RolledBack(by, job.rows > 0 ? std::optional(changes.commit) : std::nullopt);
}

void Operations::DeliverUndone(const UndoJobPtr& job)
{
    const auto done = [job](Delivery::Result result) {
        job->commitTicket.reset();
        if (!job->request) {
            for (const std::string& text : result.warnings) slog::Notice("{}", text);
            return;
        }
        std::vector<netconf::RpcError> shown;
        shown.reserve(result.warnings.size());
        for (const std::string& text : result.warnings) shown.push_back(MakeWarning(text));
        job->request->NoteAcknowledged(std::move(result.acknowledged));
        job->request->Ok(shown);
    };
    if (job->written.changes.Empty())
        done({});
    else
        m_services.delivery.Deliver(job->written, done);
    m_services.changes.Do([this, written = std::make_shared<WrittenChanges>(std::move(job->written))] {
        *written = {};  // freeing a large change takes time
        m_services.datastore.TidyUp();
    });
}

void Operations::TakeUpConfirmed()
{
    auto record = m_services.store.Pending();
    if (!record) return;
    const std::uint64_t newest = m_services.store.LastCommit();
    if (record->last != newest) {
        // A version that knows no confirmed commits has committed since: a roll-back would undo that, too.
        slog::Error(
            "commit {}, which {} has not confirmed, is kept: another version has made commits after it, "
            "the last one number {}",
            record->last, record->user, newest);
        if (const auto error = m_services.store.SetPending(std::nullopt)) slog::Error("{}", error->message);
        return;
    }
    m_confirmed.TakeUp(*std::move(record));
    if (!m_confirmed.IsDue()) return;
    const auto job = MakeUndo(nullptr, nullptr, nullptr);
    Undo(*job);
    if (!job->errors.empty()) return m_confirmed.Failed(cdb::TextOf(job->errors));
    TellUndone(*job);
}

}  // namespace agent
