// SPDX-License-Identifier: Apache-2.0
// Carries out NETCONF's operations (RFC 6241, sections 7 and 8) and those of the modules switch-system,
// switch-history and switch-private-candidate.

#ifndef AGENT_NETCONF_OPERATIONS_H
#define AGENT_NETCONF_OPERATIONS_H

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/access/access.h"
#include "agent/clients/callpoints.h"
#include "agent/clients/delivery.h"
#include "agent/data/data_schema.h"
#include "agent/data/filter_plan.h"
#include "agent/events/events.h"
#include "agent/log/log_store.h"
#include "agent/netconf/answer_room.h"
#include "agent/netconf/candidates.h"
#include "agent/netconf/commit_meter.h"
#include "agent/netconf/confirmed_commit.h"
#include "agent/netconf/request.h"
#include "agent/netconf/workbench.h"
#include "agent/state/state.h"
#include "base/expected.h"
#include "base/timers.h"
#include "base/worker.h"
#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace agent {

enum class Target : std::uint8_t { kRunning, kCandidate };

/// Which session has locked which datastore (RFC 6241, section 7.5).
class Locks {
public:
    using SessionId = std::uint32_t;

    [[nodiscard]] std::optional<SessionId> Holder(Target target) const { return At(target); }

    /// The holder if it is another session than this; nullopt if not.
    [[nodiscard]] std::optional<SessionId> HeldByOther(Target target, SessionId session) const
    {
        const auto holder = At(target);
        return holder && *holder != session ? holder : std::nullopt;
    }

    /// `holder`: for people, "ann (session 4, over SSH from 192.0.2.7)". `sinceUs`: the time now,
    /// microseconds since the epoch.
    void Take(Target target, SessionId session, std::string holder, std::int64_t sinceUs)
    {
        At(target) = session;
        m_taken[static_cast<std::size_t>(target)] = {std::move(holder), sinceUs};
    }
    /// When the lock that there is was taken.
    [[nodiscard]] std::int64_t Since(Target target) const
    {
        return m_taken[static_cast<std::size_t>(target)].sinceUs;
    }
    /// "candidate is locked by ann (session 4, over SSH from 192.0.2.7) for 12 s"; of a lock that there is.
    [[nodiscard]] std::string Text(Target target, std::int64_t nowUs) const;
    void Release(Target target) { At(target).reset(); }

private:
    struct Taken {
        std::string holder;
        std::int64_t sinceUs = 0;
    };
    using Holders = std::array<std::optional<SessionId>, 2>;
    std::optional<SessionId>& At(Target target) { return m_holders[static_cast<std::size_t>(target)]; }
    [[nodiscard]] const std::optional<SessionId>& At(Target target) const
    {
        return m_holders[static_cast<std::size_t>(target)];
    }

    Holders m_holders;
    std::array<Taken, 2> m_taken{};
};

class HaRole;    // ha_role.h
struct Reading;  // reading.h
using ReadingPtr = std::shared_ptr<const Reading>;

class Operations {
public:
    /// What the operations work on; all of it must outlive them.
    struct Services {
        boost::asio::io_context& loop;
        base::Timers& timers;
        const cdb::Schema& schema;
        cdb::Store& store;
        cdb::Datastore& datastore;  // with the shared candidate
        const Clients& clients;
        Callpoints& callpoints;
        Delivery& delivery;
        StateSource& state;
        Workbench& changes;                 // for all work on the candidate and all writes of the store
        Workbench& reads;                   // for long answers
        std::function<std::int64_t()> now;  // microseconds since the epoch
        /// Ends the session of that number on behalf of the other; returns false if there is none.
        std::function<bool(std::uint32_t session, const std::string& reason, std::uint32_t killer)>
            endSession;
        std::chrono::milliseconds actionTimeout;
        Access& access;  // counts what is denied
        AnswerRoom& room;
        FilterLimits filterLimits;
        Events& events;
        HaRole& ha;
        const LogStore& log;
    };
    explicit Operations(Services services);

    /// Carries the request out and answers it, now or later.
    void Handle(const RequestPtr& request);

    /// The datastores with their locks.
    [[nodiscard]] std::vector<NetconfFacts::Lock> Datastores() const;

    [[nodiscard]] const CommitMeter& Commits() const { return m_commitMeter; }

    /// The sessions' candidates, for the state.
    [[nodiscard]] const Candidates& AllCandidates() const { return m_candidates; }

    /// The confirmed commit that waits, for the state.
    [[nodiscard]] std::optional<PendingConfirmation> Unconfirmed() const { return m_confirmed.Facts(); }

    /// Takes up the confirmed commit that an earlier run of cdbd has left, and rolls it back if it is due. To
    /// be called before any client is admitted.
    void TakeUpConfirmed();

    /// Releases the session's locks, and drops its private candidate. A candidate that it had locked loses
    /// its changes. A confirmed commit of the session that is not persistent is rolled back.
    void SessionEnded(std::uint32_t session);

    /// Makes the events of a session that has begun, and of one whose connection has ended.
    void TellBegin(const Session& session);
    void TellEnd(const Session& session);

private:
    using Handler = void (Operations::*)(const RequestPtr&);
    static Handler Find(const lyd_node* operation);

    // operations_read.cpp
    void Get(const RequestPtr& request);
    void GetConfig(const RequestPtr& request);
    void ReadAll(const RequestPtr& request, const ReadingPtr& reading, StateSelections& selections);
    void ReadConfig(const RequestPtr& request, const ReadingPtr& reading);
    void GetSchema(const RequestPtr& request);

    // operations_nmda.cpp
    void GetData(const RequestPtr& request);
    void EditData(const RequestPtr& request);

    // operations_change.cpp
    void EditConfig(const RequestPtr& request);
    void CopyConfig(const RequestPtr& request);
    void CopyRunning(const RequestPtr& request);
    void Validate(const RequestPtr& request);
    void ValidateSent(const RequestPtr& request);
    void Commit(const RequestPtr& request);
    void DiscardChanges(const RequestPtr& request);
    struct EditJob;
    using EditJobPtr = std::shared_ptr<EditJob>;
    /// Answers <ok/> if there is no error.
    void OkOrRefuse(const RequestPtr& request, const std::vector<cdb::Error>& errors) const;
    void PlanEdit(const EditJobPtr& job);
    void AskCallpoints(const EditJobPtr& job);
    void ApplyEdit(const EditJobPtr& job);
    void AnswerEdit(const EditJobPtr& job);
    struct CommitJob;
    using CommitJobPtr = std::shared_ptr<CommitJob>;
    void WriteCommit(const CommitJobPtr& job);
    void DeliverCommit(const CommitJobPtr& job);

    // operations_confirmed.cpp
    void CancelCommit(const RequestPtr& request);
    void ConfirmCommit(const RequestPtr& request);
    /// Rolls the confirmed commit back in its turn, if it is still due then.
    void RollBackDue();
    struct UndoJob;
    using UndoJobPtr = std::shared_ptr<UndoJob>;
    [[nodiscard]] UndoJobPtr MakeUndo(const RequestPtr& request, const SerialQueue::TicketPtr& commitTicket,
                                      const SerialQueue::TicketPtr& ticket) const;
    /// Writes the commit that rolls back. Beside the loop, or before any client is admitted.
    void Undo(UndoJob& job) const;
    void RollBackPending(const UndoJobPtr& job);
    void TellUndone(const UndoJob& job);
    void DeliverUndone(const UndoJobPtr& job);
    /// Refuses the request, and returns true, if its session may not go on with the confirmed commit that
    /// waits.
    bool RefuseUnconfirmed(const RequestPtr& request, const std::optional<std::string>& persistId);
    /// The same for a request that needs one, and has its persist-id in it.
    bool RefuseNoneWaits(const RequestPtr& request);
    // operations_private.cpp
    void OpenPrivateCandidate(const RequestPtr& request);
    void ClosePrivateCandidate(const RequestPtr& request);
    void UpdateCandidate(const RequestPtr& request);
    void LockPrivate(const RequestPtr& request);
    void UnlockPrivate(const RequestPtr& request);
    void DropPrivate(std::uint32_t session);
    /// Runs the work in the request's turn with the candidate that its session uses. A private one is used by
    /// this session alone: the work begins at once, without a ticket.
    void OnCandidate(const RequestPtr& request, std::function<void(const SerialQueue::TicketPtr&)> work);

    // operations_session.cpp
    void Lock(const RequestPtr& request);
    void Unlock(const RequestPtr& request);
    void CloseSession(const RequestPtr& request);
    void KillSession(const RequestPtr& request);

    // operations_events.cpp
    void CreateSubscription(const RequestPtr& request);

    void ReleaseCandidate(const SerialQueue::TicketPtr& ticket, const std::function<void()>& done);

    // operations_system.cpp
    void HaTransition(const RequestPtr& request);
    void SflowResync(const RequestPtr& request);
    void SflowClearStatistics(const RequestPtr& request);
    void SflowTestCollector(const RequestPtr& request);
    void SflowTopTalkers(const RequestPtr& request);
    /// Has the sFlow manager do it, and answers with the output that it gives. `subject`: what it is about.
    void AskManager(const RequestPtr& request, const char* name, const std::string& subject = {});
    void MakeBackup(const RequestPtr& request);
    void BackupMade(const RequestPtr& request, const std::string& file,
                    const std::optional<cdb::Error>& error);

    // operations_log.cpp
    void GetLog(const RequestPtr& request);

    // operations_history.cpp
    void RollBack(const RequestPtr& request);
    void CompareWith(const RequestPtr& request);
    void CommitChanges(const RequestPtr& request);
    void SetCheckpoint(const RequestPtr& request);
    void DeleteCheckpoint(const RequestPtr& request);
    using Compare = std::function<base::expected<cdb::Datastore::Comparison, cdb::Error>()>;
    /// Answers with the two configurations, or refuses. `compare` is called beside the loop.
    void AnswerComparison(const RequestPtr& request, const Compare& compare);

    /// Runs the work in the request's turn with the shared candidate, unless its session has ended by then.
    void InTurn(const RequestPtr& request, std::function<void(const SerialQueue::TicketPtr&)> work);

    /// Refuses the request, and returns true, if its user may not execute it.
    bool RefuseDenied(const RequestPtr& request);

    /// Refuses a datastore of RFC 8526's leaf "datastore", with which the operation can't be carried out.
    static void RefuseDatastore(const RequestPtr& request, std::string_view operation,
                                std::string_view offered);

    /// Refuses the request, and returns true, if another session has locked the datastore. A private
    /// candidate is locked by no other session.
    bool RefuseLocked(const RequestPtr& request, Target target);

    Services m_services;
    DataSchema m_dataSchema;
    Locks m_locks;
    CommitMeter m_commitMeter;
    ConfirmedCommit m_confirmed;
    Candidates m_candidates;
    std::map<std::uint32_t, Callpoints::Cancel> m_asked;  // by session: the inquiry that its edit waits for
    SerialQueue m_queue;                                  // for the shared candidate
    SerialQueue m_commits;  // a commit keeps its turn until its subscribers have acknowledged
    std::unique_ptr<base::Worker> m_backupWorker;  // made for the first backup
    std::shared_ptr<void> m_backup;                // under way
};

}  // namespace agent

#endif
