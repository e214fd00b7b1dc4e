// SPDX-License-Identifier: Apache-2.0
// Commits: written to the store, told to the subscribers, answered.

#include <libyang/libyang.h>

#include <cstddef>
#include <cstdint>
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

std::vector<netconf::RpcError> Warnings(const std::vector<std::string>& texts)
{
    std::vector<netconf::RpcError> warnings;
    warnings.reserve(texts.size());
    for (const std::string& text : texts) warnings.push_back(MakeWarning(text));
    return warnings;
}

}  // namespace

/// A commit under way: written, delivered.
struct Operations::CommitJob {
    RequestPtr request;
    std::chrono::steady_clock::time_point begun;
    DatastorePtr datastore;
    SerialQueue::TicketPtr commitTicket;
    SerialQueue::TicketPtr ticket;  // with the candidate; ends once the commit is written
    cdb::CommitInfo info;
    std::vector<cdb::Error> errors;
    WrittenChanges written;
    std::size_t rows = 0;                                       // changed
    std::vector<std::pair<std::string, std::uint32_t>> others;  // whose edits it has taken, too
};

void Operations::Commit(const RequestPtr& request)
{
    const auto confirm = ConfirmedCommit::Read(request->Operation());
    if (!confirm) return request->Refuse(confirm.error());
    // While a commit waits for its subscribers, edits go on; only the next commit waits.
    const auto begun = m_services.timers.Now();
    m_commits.Push([this, request, begun, confirm = *confirm](const SerialQueue::TicketPtr& commitTicket) {
        InTurn(request, [this, request, begun, confirm, commitTicket](const SerialQueue::TicketPtr& ticket) {
            if (RefuseLocked(request, Target::kCandidate) || RefuseLocked(request, Target::kRunning) ||
                RefuseUnconfirmed(request, confirm.persistId))
                return m_commitMeter.NotMade();
            const auto job = std::make_shared<CommitJob>();
            job->request = request;
            job->begun = begun;
            job->datastore = m_candidates.Of(request->Who().id);
            job->commitTicket = commitTicket;
            job->ticket = ticket;
            job->info.user = request->Who().user;
            job->info.source = "netconf";
            job->info.comment = ChildText(request->Operation(), "comment");
            job->info.timeUs = m_services.now();
            job->info.pending = m_confirmed.After(confirm, job->info.user, m_services.store.LastCommit());
            WriteCommit(job);
        });
    });
}

void Operations::WriteCommit(const CommitJobPtr& job)
{
    m_services.changes.Do(
        [this, job] {
            const AccessGrant& grant = *job->request->Who().access;
            if (auto error = job->datastore->Prepare(true)) {
                job->errors = {std::move(*error)};
                return;
            }
            if (!grant.WritesAll()) {
                auto denied = grant.CheckChanges(m_services.schema, job->datastore->ChangedRows());
                if (denied) {
                    ++m_services.access.Denied().dataWrites;
                    job->errors = {std::move(*denied)};
                    return;
                }
            }
            auto result = job->datastore->Commit(job->info);
            if (!result) {
                job->errors = std::move(result.error());
                return;
            }
            job->rows = result->rows;
            job->written = WriteOut(std::move(result->changes));
        },
        [this, job] {
            if (job->errors.empty()) {
                job->others = m_candidates.OthersIn(job->request->Who().id);
                m_candidates.NoteClean(job->request->Who().id, job->datastore);
            }
            job->ticket.reset();
            if (job->errors.empty()) return DeliverCommit(job);
            m_commitMeter.NotMade();
            job->request->Refuse(ToRpcErrors(job->errors, m_services.schema.Context()));
            // A store whose last page could not be written can't be read until it is opened again: this
            // throws then and ends the process, which restarts with the commits before this one.
            m_services.changes.Do([this] { static_cast<void>(m_services.store.LastCommit()); });
        });
}

void Operations::DeliverCommit(const CommitJobPtr& job)
{
    const cdb::ChangeSet& changes = job->written.changes;
    if (job->rows > 0) {
        job->request->NoteCommit(changes.commit);
        job->request->NoteChanges(job->rows);
        job->request->NoteOthers(std::move(job->others));
        slog::Notice("commit {} by {}, {} session {}: {} {}{}", changes.commit, job->info.user,
                     job->info.source, job->request->Who().id, job->rows,
                     job->rows == 1 ? "change" : "changes",
                     job->info.comment.empty() ? std::string() : ", \"" + job->info.comment + '"');
    }
    m_confirmed.Made(std::move(job->info.pending), job->request->Party(), changes.commit);
    // The session may have ended while the commit was written.
    if (!job->request->Wanted()) m_confirmed.SessionEnded(job->request->Who().id);
    if (changes.Empty()) {
        job->request->Ok();
    } else {
        m_services.events.ConfigChanged(changes, job->request->Party(), job->info.comment);
        m_services.delivery.Deliver(job->written, [this, job](Delivery::Result result) {
            m_commitMeter.Made(m_services.timers.Now() - job->begun);
            job->request->NoteAcknowledged(std::move(result.acknowledged));
            job->request->Ok(Warnings(result.warnings));
            job->commitTicket.reset();
        });
    }
    m_services.changes.Do([this, datastore = job->datastore,
                           written = std::make_shared<WrittenChanges>(std::move(job->written))] {
        *written = {};  // freeing a large change takes time
        datastore->TidyUp();
        // The shared candidate learns at once what has changed since its base, so that its edits outlive
        // the history. It does not move: an edit of it may be waiting for a callpoint.
        static_cast<void>(m_services.datastore.Prepare(false));
    });
}

}  // namespace agent
