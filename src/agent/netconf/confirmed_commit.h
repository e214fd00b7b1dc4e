// SPDX-License-Identifier: Apache-2.0
// The confirmed commit that waits for its confirmation (RFC 6241, section 8.4), of which there is at most
// one: whose it is, who may go on with it, and when it is due to be rolled back. Writes nothing: the
// operations commit and roll back, and say here what they have done. For the loop only.

#ifndef AGENT_NETCONF_CONFIRMED_COMMIT_H
#define AGENT_NETCONF_CONFIRMED_COMMIT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "agent/events/events.h"
#include "agent/state/system_state.h"
#include "base/expected.h"
#include "base/timers.h"
#include "cdb/model/history.h"
#include "netconf/rpc_error.h"

struct lyd_node;

namespace agent {

class ConfirmedCommit {
public:
    /// The longest token, in bytes.
    static constexpr std::size_t kMaxPersist = 255;
    /// After a roll-back that failed the next one is tried; the time doubles from the first to the last.
    static constexpr std::chrono::seconds kFirstRetry{10};
    static constexpr std::chrono::seconds kLastRetry{320};

    /// What <commit> says of confirmation.
    struct Parameters {
        bool confirmed = false;
        std::uint32_t timeoutSeconds = 0;
        std::optional<std::string> persist{};
        std::optional<std::string> persistId{};
    };
    /// Refuses parameters that only mean something together with <confirmed>, and tokens that are empty or
    /// too long.
    static base::expected<Parameters, netconf::RpcError> Read(const lyd_node* commit);

    /// `onDue` is called from the loop when the commit is to be rolled back, and again after each failure.
    /// The references must outlive this.
    ConfirmedCommit(base::Timers& timers, Events& events, std::function<void()> onDue);

    [[nodiscard]] bool Waits() const { return m_pending.has_value(); }
    /// Only while one waits.
    [[nodiscard]] const cdb::PendingCommit& Pending() const { return *m_pending; }
    /// "commit 42", "commits 42 to 44"; only while one waits.
    [[nodiscard]] std::string Name() const;
    /// Whether it is to be rolled back now.
    [[nodiscard]] bool IsDue() const { return m_due != Due::kNot; }

    /// Why the session may not commit, confirm or cancel with this token; nullopt if it may. Nullopt also if
    /// none waits, but for a token, which then fits nothing. `writesAll`: no rule of access binds its user.
    [[nodiscard]] std::optional<netconf::RpcError> Refusal(std::uint32_t session, bool writesAll,
                                                           const std::optional<std::string>& persistId) const;
    /// The session of the one that waits, if it is another one; 0: no session that is open.
    [[nodiscard]] std::optional<std::uint32_t> OfOther(std::uint32_t session) const;
    /// The refusal of what needs one that waits.
    static netconf::RpcError NoneWaits();

    /// The record that a commit with these parameters leaves; nullopt: none waits after it. `newest`: the
    /// last commit's number.
    [[nodiscard]] std::optional<cdb::PendingCommit> After(const Parameters& parameters,
                                                          const std::string& user,
                                                          std::uint64_t newest) const;

    /// A commit has left this record: it begins, is extended or is confirmed. `newest`: the last commit's
    /// number now.
    void Made(std::optional<cdb::PendingCommit> record, const SessionParty& by, std::uint64_t newest);
    /// The session has ended: its commit is due, unless it is persistent.
    void SessionEnded(std::uint32_t session);
    /// The record that an earlier run of cdbd has left. It is due at once unless it is persistent and its
    /// deadline is to come. Does not call onDue for that.
    void TakeUp(cdb::PendingCommit record);

    /// It has been rolled back; `by`: who has cancelled it, nullopt: cdbd, because it was due. `commit`: the
    /// commit that has done it; nullopt: nothing was to be undone.
    void RolledBack(const std::optional<SessionParty>& by, std::optional<std::uint64_t> commit);
    /// It is due and could not be rolled back; tried again later. Any session of a user whom no rule of
    /// access binds may commit, confirm or cancel meanwhile.
    void Failed(const std::string& problem);

    /// For the history, at most 255 bytes: why it is rolled back. `cancelled`: on a user's request.
    [[nodiscard]] std::string Reason(bool cancelled) const;
    /// For the state; nullopt if none waits.
    [[nodiscard]] std::optional<PendingConfirmation> Facts() const;

private:
    enum class Due : std::uint8_t { kNot, kTimeout, kSessionEnded, kRestarted };

    void Arm(std::chrono::milliseconds time);
    void BecomeDue(Due due);
    void Forget();

    base::Timers& m_timers;
    Events& m_events;
    std::function<void()> m_onDue;
    std::optional<cdb::PendingCommit> m_pending;
    SessionParty m_owner;  // who has committed last; its session is 0 once that has ended
    Due m_due = Due::kNot;
    std::string m_problem;  // of the last attempt to roll back
    std::chrono::seconds m_retry = kFirstRetry;
    std::chrono::steady_clock::time_point m_deadline;
    std::shared_ptr<void> m_timer;
};

}  // namespace agent

#endif
